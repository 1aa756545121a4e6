#pragma once

#include "lab/material/Record.h"
#include "lab/session/Play.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lab::serve {

// A play that has been started: everything that does not change while it lasts.
struct Playing {
    std::string material; // as the client named it
    PlayRequest request;
    Record record;
    int64_t framesDue = 0;            // 0: without end
    std::vector<double> libraryNoise; // that the library adds, in millivolts by frame, repeated
    std::size_t noiseBegin = 0;       // its index at frame 0
};

// A play of the loaded record. The library adds its noise from `noiseIndex` on, or from the
// beginning when it plays once.
std::shared_ptr<Playing> MakePlaying(const std::string& material, const PlayRequest& request,
                                     const Record& record, std::size_t noiseIndex);

// The position of the library's noise after a play of `framesSent` frames.
std::size_t NoiseIndexAfter(const Playing& playing, int64_t framesSent);

// The samples of the material, counted from its first, in the order in which they play.
class SampleOrder {
  public:
    explicit SampleOrder(const Playing& playing);

    double Rate() const { return m_rate; } // samples per second

    // How many samples of the material a number of the simulator's frames carry.
    int64_t SamplesOf(int64_t frames) const;
    int64_t FrameOf(int64_t sample) const;

    // Seconds that a loop repeats; practically infinite for endless material.
    double LapSeconds() const { return static_cast<double>(m_end - m_wrap) / m_rate; }

    // Where sample `number` of the play is in the loaded record.
    int64_t IndexOf(int64_t number) const;

    // The same as seconds from the beginning of the material.
    double SecondsOf(int64_t number) const;

  private:
    double m_rate;
    double m_framesPerSecond;
    double m_skipped; // seconds that precede the loaded record
    int64_t m_first;
    int64_t m_end;  // of the record; the largest number when it is endless
    int64_t m_wrap; // the index that follows the end
};

// Frames that have left the outputs by now: those that the requests prove and, of the next buffer,
// as many as the clock has taken since the last request. Takes no lock of the library.
int64_t FramesByNow(double speedUp);

// The simulator that plays has not asked for data for three buffers and a second: a machine under
// load is late, too.
bool HasStoppedAsking(double speedUp);

} // namespace lab::serve
