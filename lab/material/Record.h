#pragma once

#include "lab/material/Gap.h"
#include "lab/material/Leads.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace lab {

struct Signal {
    std::string description;
    ECG_Lead lead;
    int64_t missing = 0;     // samples missing in the source, played as substitutes
    int64_t cut = 0;         // further samples that the source announces but does not hold
    std::vector<Gap> gaps{}; // where substitutes play in the loaded record, in order

    int64_t Lacking() const; // missing and cut
};

// The material that the library holds. There is one at a time.
struct Record {
    std::string name;
    std::string source;   // path, or the waveform in words
    std::string format;   // "wfdb", "aha", ... as --format takes it
    std::string origin;   // "file", "licensed", "stand-in" or "waveform"
    int signalFormat = 0; // of a WFDB record's samples: 16 or 212
    WaveformType type = MATERIAL_NONE;
    int64_t rate = 0;    // samples per second
    int64_t samples = 0; // per signal
    bool isEndless = false;
    std::vector<Signal> signals;
    std::array<bool, kLeadCount> supplied{}; // the leads that the material really has
    std::string date;                        // as stated in the record; may be empty
    std::vector<std::string> files;          // what it was read from; empty for built-in material
    std::vector<std::string> warnings;
    bool isCut = false; // a file of the source ends early; a warning says where

    // The treatment of the source.
    std::array<double, kOutputCount> gain{1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
    double offset = 0.0;         // millivolts
    std::string noise;           // name of the noise or the noise record, empty without one
    double resampledFrom = 0.0;  // samples per second of the source, 0 when it was not resampled
    double skippedSeconds = 0.0; // left out before the record's first sample

    double Seconds() const;          // infinite when endless
    int64_t FramesPerSecond() const; // of the simulator; native text is resampled
    int64_t MissingSamples() const;  // those cut off the end included
    std::string HeaderPath() const { return format == "wfdb" ? source : std::string(); }

    // The signals that feed outputs, in the order of the outputs.
    std::vector<std::size_t> FeedingSignals() const;

    // Whether the library's own kind of EDF material, whose output II carries lead I.
    bool IsLibraryEdf() const;

    // Each output that is fed, with the description of the signal that feeds it.
    std::vector<std::pair<std::string, std::string>> Map() const;
};

// Fails when none of the record's signals feeds an output.
void RequirePlayable(const Record& record);

// Fails when a file of the record ends early.
void RequireWhole(const Record& record);

// Fails when the record is over at `startSecond`.
void RequireStart(const Record& record, int startSecond);

} // namespace lab
