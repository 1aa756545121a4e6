#pragma once

#include "tools/ravo/Leads.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

// What the user wants loaded: a file, recognised by its extension or by `format`, or a waveform
// by its name.
struct MaterialRequest {
    std::string name;
    std::string format;                 // empty: by extension and content
    std::vector<std::string> map;       // SIGNAL=LEAD
    double frequency = 1.0;             // hertz
    std::vector<double> amplitude{1.0}; // millivolts peak to peak, one or one per output
    int width = 100;                    // milliseconds
    std::string noise;                  // WFDB record to mix in; empty: none
    double signalToNoise = 0.0;         // decibels
    std::string builtinNoise;           // noise of the built-in database; empty: none
};

struct Signal {
    std::string description;
    ECG_Lead lead;
};

// The material that the library now holds. There is one at a time.
struct Record {
    std::string name;
    std::string source; // path, or the waveform in words
    std::string format; // "wfdb", "aha", ... as --format takes it
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

// Adds the options that say what to load; every command that loads takes the same ones.
void AddMaterialOptions(CLI::App& command, MaterialRequest& request);

// Loads the material, or fails with a sentence about the file. Material that feeds no output
// loads all the same.
Record LoadRecord(const MaterialRequest& request);

// The path of the header of WFDB record `name`, given with or without ".hea", with a directory.
std::string HeaderPathOf(const std::string& name);

// Writes `signal` with the noise records mixed in, at one signal-to-noise ratio for all or one for
// each, as record `output` (a path without extension). The records are header paths.
void MixNoise(const std::string& signal, const std::vector<std::string>& noises,
              const std::vector<double>& ratios, const std::string& output);

// Fails when nothing of the record reaches an output.
void RequirePlayable(const Record& record);

// Fails when the record is over at `startSecond`.
void RequireStart(const Record& record, int startSecond);

// Calls `each` with the twelve leads in millivolts, unclamped, of every sample of `seconds` seconds
// from `startSecond` on, as far as the material goes.
void ForEachSample(int startSecond, int seconds, const std::function<void(const double*)>& each);

} // namespace cli
