#pragma once

#include "lab/material/Leads.h"
#include "lab/material/MaterialRequest.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace lab {

struct Signal {
    std::string description;
    ECG_Lead lead;
};

// The material that the library now holds. There is one at a time.
struct Record {
    std::string name;
    std::string source;   // path, or the waveform in words
    std::string format;   // "wfdb", "aha", ... as --format takes it
    int signalFormat = 0; // of a WFDB record's samples: 16 or 212
    WaveformType type = WAVEFORM_TYPE_NONE;
    int64_t rate = 0;    // samples per second
    int64_t samples = 0; // per signal
    bool isEndless = false;
    std::vector<Signal> signals;
    std::array<bool, kLeadCount> supplied{}; // the leads that the material really has
    std::string date;                        // as the record gives it, may be empty
    std::vector<std::string> warnings;

    double Seconds() const;          // infinite when endless
    int64_t FramesPerSecond() const; // of the simulator, which native text is resampled for
    std::string HeaderPath() const { return format == "wfdb" ? source : std::string(); }
};

// Loads the material, or fails with a sentence about the file. Material that feeds no output
// loads all the same.
Record LoadRecord(const MaterialRequest& request);

// Fails when nothing of the record reaches an output.
void RequirePlayable(const Record& record);

// Fails when the record is over at `startSecond`.
void RequireStart(const Record& record, int startSecond);

// Calls `each` with the twelve leads in millivolts, unclamped, of every sample of `seconds` seconds
// from `startSecond` on, as far as the material goes.
void ForEachSample(int startSecond, int seconds, const std::function<void(const double*)>& each);

} // namespace lab
