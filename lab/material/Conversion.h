#pragma once

#include "lab/material/MaterialRequest.h"

#include <string>
#include <vector>

namespace lab {

struct ConversionRequest {
    MaterialRequest material;
    std::string directory;
    std::string name;      // empty: the source's, made unique
    bool isCsv = false;    // NAME.csv instead of a WFDB record
    bool takesAll = false; // signals that feed no lead, too
    bool overwrites = false;
};

struct Converted {
    std::string path; // the header, or the CSV file
    std::vector<std::string> warnings;
};

// Writes any material as a WFDB record of format 16, at its own rate. Missing samples stay missing.
// Its annotations go with it. The files appear complete or not at all. Fails, status 6, when the
// name is taken or the directory cannot be written, and, status 2, when nothing feeds a lead.
Converted ConvertMaterial(const ConversionRequest& request);

} // namespace lab
