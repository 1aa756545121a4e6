#include "builtin/AnalyticalBeat.h"

#include <cmath>
#include <stdexcept>

namespace ctscse {
namespace {

constexpr double kPi = 3.141592653589793;

// Heights in millivolts, one per lead.
struct LeadShape {
    double p;
    double q;
    double r;
    double s;
    double t;
};

constexpr LeadShape kShapes[kLeads] = {
    {0.08, -0.05, 0.90, -0.15, 0.20}, // I
    {0.12, -0.08, 1.20, -0.20, 0.28}, // II
    {0.05, 0.00, 0.25, -1.10, -0.10}, // V1
    {0.06, 0.00, 0.45, -2.00, 0.45},  // V2, with its large S
    {0.06, 0.00, 0.80, -1.20, 0.50},  // V3
    {0.06, -0.06, 1.40, -0.60, 0.42}, // V4
    {0.06, -0.10, 1.50, -0.25, 0.34}, // V5
    {0.06, -0.10, 1.20, -0.10, 0.26}, // V6
};

// Lengths in milliseconds; Q, R and S together are the QRS complex.
constexpr int kPWave = 90;
constexpr int kQWave = 20;
constexpr int kRWave = 40;
constexpr int kSWave = 34;
constexpr int kTWave = 160;
static_assert(kQWave + kRWave + kSWave == 94, "the QRS complex lasts 94 ms");

// Where the waves begin in a period of this length.
struct Timing {
    int period;
    int pWave;
    int qrs;
    int tWave;
};

constexpr Timing kTimings[] = {
    {1000, 40, 180, 440},
    {1500, 74, 224, 520},
    {500, 10, 134, 290},
};

const Timing& TimingOf(int period) {
    for (const Timing& timing : kTimings) {
        if (timing.period == period) {
            return timing;
        }
    }
    throw std::invalid_argument("no analytical beat lasts " + std::to_string(period) + " ms");
}

void AddHalfSine(std::vector<double>& lead, int begin, int length, double height) {
    const auto first = static_cast<size_t>(begin);
    for (int n = 0; n <= length; ++n) {
        lead[first + static_cast<size_t>(n)] += height * std::sin(kPi * n / length);
    }
}

std::vector<double> MakeLead(const LeadShape& shape, const Timing& timing) {
    std::vector<double> lead(static_cast<size_t>(timing.period), 0.0);
    AddHalfSine(lead, timing.pWave, kPWave, shape.p);
    AddHalfSine(lead, timing.qrs, kQWave, shape.q);
    AddHalfSine(lead, timing.qrs + kQWave, kRWave, shape.r);
    AddHalfSine(lead, timing.qrs + kQWave + kRWave, kSWave, shape.s);
    AddHalfSine(lead, timing.tWave, kTWave, shape.t);
    return lead;
}

} // namespace

Leads MakeAnalyticalBeat(int samples) {
    const Timing& timing = TimingOf(samples);
    Leads leads;
    for (const LeadShape& shape : kShapes) {
        leads.push_back(MakeLead(shape, timing));
    }
    return leads;
}

} // namespace ctscse
