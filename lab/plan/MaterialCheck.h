#pragma once

#include "lab/evidence/Digest.h"
#include "lab/plan/Plan.h"

#include <map>
#include <string>
#include <vector>

namespace lab {

// An excerpt of a step's material for the report: one lead on ECG paper.
struct Strip {
    std::string lead;
    double from = 0.0; // second of the material
    double rate = 0.0; // points per second
    std::vector<int> microvolts;
};

struct CheckedFile {
    FileDigest digest;        // the path as it is opened
    std::string name;         // as the plan names it: relative to the plan
    bool isPublished = false; // its digest is in the SHA256SUMS.txt of its folder
    std::string state;        // StateOf the file when its digest was taken
};

// One material with its options and its start, as at least one step plays it.
struct CheckedMaterial {
    std::string source; // "file", "licensed", "stand-in" or "waveform"
    std::string record;
    std::string noise; // the noise that was added; empty: none
    std::vector<CheckedFile> files;
    double rate = 0.0;
    double seconds = 0.0;                  // infinite without end
    std::map<std::string, double> clipped; // lead: millivolts
    std::vector<std::string> warnings;
    Strip strip;
};

struct Checks {
    std::vector<CheckedMaterial> materials;
    std::map<std::string, std::size_t> ofStep; // by the result's name; steps of material only
    std::map<std::string, std::vector<CheckedFile>> references; // of scores, by the result's name
    double seconds = 0.0; // of all checked steps with their pauses
};

// Loads the material of every selected step, and checks that it can be played as the plan requires.
// Fails after every fault has been printed: with kUsage when the plan's options do not fit,
// otherwise with kMaterial.
Checks CheckMaterial(const Plan& plan, const std::vector<bool>& isSelected,
                     const Interrupt& interrupt);

// Fails with status 2 when a file's bytes have changed since it was checked.
void RequireUnchanged(const std::vector<CheckedFile>& files);

} // namespace lab
