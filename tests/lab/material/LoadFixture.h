#pragma once

#include "lab/material/LoadedSamples.h"
#include "lab/material/LoadRecord.h"
#include "Scratch.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

// Records that a test writes and loads with a request of its own.

using namespace lab;

// The library's samples of lead `lead`, one of the twelve.
inline std::vector<double> Loaded(std::size_t lead, int start = 0, int seconds = 1000) {
    std::vector<double> samples;
    ForEachSample(start, seconds, [&](const double* leads) { samples.push_back(leads[lead]); });
    return samples;
}

class LoadTest : public testing::Test {
  protected:
    LoadTest() {
        m_scratch.Write("r.dat", Words({100, -200, 300, -400, 500, -600}, 16));
        m_request.name = m_scratch.Write("r.hea", "r 2 100 3\nr.dat 16 1000/mV 16 0 0 0 0 I\n"
                                                  "r.dat 16 1000/mV 16 0 0 0 0 V2\n");
    }

    std::string Failed() const {
        return FailureOf([&] { LoadRecord(m_request); });
    }

    Scratch m_scratch;
    MaterialRequest m_request;
};
