#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace lab {

// What the user wants loaded: a file, recognised by its extension or by `format`, or a waveform
// by its name.
struct MaterialRequest {
    std::string name;
    std::string format;                    // empty: by extension and content
    std::vector<std::string> map;          // SIGNAL=LEAD
    double frequency = 1.0;                // hertz
    std::vector<double> amplitude{1.0};    // millivolts peak to peak, one or one per output
    int width = 100;                       // milliseconds
    std::set<std::string> waveformOptions; // those of the three options above that were given
    std::string noise;                     // WFDB record to mix in; empty: none
    double signalToNoise = 0.0;            // decibels

    std::string builtinNoise;        // built-in noise or WFDB record to add as it is; empty: none
    std::vector<std::string> gain;   // FACTOR or LEAD=FACTOR, acts before the offset
    double offset = 0.0;             // millivolts
    std::string missing = "hold";    // what is played for missing samples: "hold" or "zero"
    std::optional<double> rate;      // samples per second of a CSV file
    std::optional<std::string> unit; // "mV" or "uV", of a CSV file or signals that name no voltage
    bool asEdf = false;              // the library's own kind of EDF material

    // A second with a fraction at which the play starts: the samples before it are left out, and
    // the loaded record begins there. A whole number leaves the record as it is.
    double start = 0.0;
};

} // namespace lab
