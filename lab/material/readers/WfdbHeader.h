#pragma once

#include "lab/material/readers/Numbers.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The header of a WFDB record, as described in header(5) of the WFDB Applications Guide, complete:
// the library reads only a part of it.
namespace lab {

struct WfdbSignalLine {
    std::string file;
    int format = 0;
    int64_t samplesPerFrame = 1;
    int64_t skew = 0;   // frames
    int64_t offset = 0; // bytes before the first sample
    double gain = 200.0;
    double baseline = 0.0;
    std::string unit = "mV";
    int64_t initial = 0;
    std::string description;
};

struct WfdbSegment {
    std::string name; // "~" for a gap
    int64_t frames = 0;
};

struct WfdbHeader {
    std::string path;
    std::string name;
    Rate rate;           // frames per second
    int64_t frames = -1; // -1 when not stated
    std::string time;
    std::string date;
    std::vector<WfdbSignalLine> signals;
    int64_t recordLine = 1;            // the number of the first line that is not a comment
    std::vector<WfdbSegment> segments; // empty for a single-segment record

    // The library reads lines of up to 255 characters, the record line first.
    bool isPlainText = true;
};

// Fails with a sentence that names the file and, where there is one, the line or signal.
WfdbHeader ParseWfdbHeader(const std::string& path);

} // namespace lab
