#pragma once

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
    std::set<std::string> waveformOptions; // those given of the three above
    std::string noise;                     // WFDB record to mix in; empty: none
    double signalToNoise = 0.0;            // decibels
    std::string builtinNoise;              // noise of the built-in database; empty: none
};

} // namespace lab
