#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/readers/SourceRecord.h"
#include "lab/material/Record.h"

#include <map>
#include <string>
#include <vector>

namespace worker {

// Samples that the interpreter has made: one row of millivolts for each of some leads.
struct MadeSamples {
    lab::Rate rate;
    std::vector<std::string> leads;
    lab::Samples rows;
};

struct LoadedMade {
    lab::Record record;
    std::map<std::string, double> clipped; // lead: largest voltage, above the range
};

// Loads them so that every output of a 16-bit simulator plays the code nearest to the requested
// voltage; the library alone would play the code below it. At a rate that the simulator cannot
// keep, they are resampled like any other material.
LoadedMade LoadSamples(MadeSamples made, const lab::MaterialRequest& request);

} // namespace worker
