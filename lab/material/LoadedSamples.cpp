#include "lab/material/LoadedSamples.h"

#include "api/ravo.h"
#include "lab/material/LeadNoise.h"
#include "lab/material/Leads.h"

#include <algorithm>
#include <array>
#include <utility>

namespace lab {
namespace {

// The effect of one millivolt on every output on each of the twelve leads. A chest output carries
// the chest lead and a third of I + II, scaled, so that the effect on the lead itself is a little
// above one.
constexpr double kChest = 1.0 / 0.592731022038923 - 2.0 * 0.33333333333;
constexpr std::array<double, kLeadCount> kNoiseOnLeads = {
    1.0, 1.0, 0.0, -1.0, 0.5, 0.5, kChest, kChest, kChest, kChest, kChest, kChest};

std::vector<double> s_noise;

// The library's callback takes no user argument.
const std::function<void(const double*)>* s_each = nullptr;

void PassSample(double, double* leads, bool end) {
    if (!end) {
        (*s_each)(leads);
    }
}

} // namespace

void ForEachSample(int startSecond, int seconds, const std::function<void(const double*)>& each) {
    std::size_t frame = 0;
    ForEachCleanSample(startSecond, seconds, [&](const double* leads) {
        if (s_noise.empty()) {
            each(leads);
            return;
        }
        std::array<double, kLeadCount> noisy{};
        std::copy_n(leads, kLeadCount, noisy.begin());
        AddNoiseToLeads(s_noise[frame % s_noise.size()], noisy.data());
        ++frame;
        each(noisy.data());
    });
}

void ForEachCleanSample(int startSecond, int seconds,
                        const std::function<void(const double*)>& each) {
    s_each = &each;
    RAVOGetWaveformSignal(startSecond, seconds, PassSample);
    s_each = nullptr;
}

void AddNoiseToLeads(double noise, double* leads) {
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        leads[i] += kNoiseOnLeads[i] * noise;
    }
}

const std::vector<double>& LibraryNoise() {
    return s_noise;
}

void SetLibraryNoise(std::vector<double> noise) {
    s_noise = std::move(noise);
}

} // namespace lab
