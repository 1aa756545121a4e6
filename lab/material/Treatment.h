#pragma once

#include "lab/material/Leads.h"
#include "lab/material/MaterialRequest.h"
#include "lab/material/readers/SourceRecord.h"

#include <array>
#include <memory>
#include <vector>

namespace lab {

// What is done to the leads of any material before they are played: gain, then offset, then noise.
struct Treatment {
    std::array<double, kOutputCount> gain{};
    double offset = 0.0; // millivolts
    std::string noise;   // empty: none
    double start = 0.0;  // seconds at the beginning that are not played

    bool IsNothing() const;
};

// Fails when a --gain is neither FACTOR nor LEAD=FACTOR.
Treatment TreatmentOf(const MaterialRequest& request);

// Whether the play starts between two whole seconds, so that the samples before it must be dropped.
bool HasFraction(double start);

// A reader whose signals that feed a lead, by `leads`, are treated; the others are as they were.
std::unique_ptr<SourceReader> Treat(std::unique_ptr<SourceReader> reader,
                                    const std::vector<ECG_Lead>& leads, const Treatment& treatment);

} // namespace lab
