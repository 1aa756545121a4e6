#include "builtin/Beat.h"

#include <cmath>

namespace synthesis {
namespace {

constexpr double kPi = 3.14159265358979323846;

// P and T lie further from R than this phase, Q and S nearer.
constexpr double kOutermostQrsPhase = 0.5;

struct Projection {
    double x;
    double y;
    double z;
};

constexpr std::array<Projection, kLeadCount> kDowerMatrix = {{
    {0.632, -0.235, 0.059},  // I
    {0.235, 1.066, -0.132},  // II
    {-0.515, 0.157, -0.917}, // V1
    {0.044, 0.164, -1.387},  // V2
    {0.882, 0.098, -1.277},  // V3
    {1.213, 0.127, -0.601},  // V4
    {1.125, 0.127, -0.086},  // V5
    {0.831, 0.076, 0.230},   // V6
}};

double WrapToHalfTurn(double phase) {
    return std::remainder(phase, 2.0 * kPi);
}

double Height(const std::vector<Wave>& waves, double phase) {
    double sum = 0.0;
    for (const Wave& wave : waves) {
        const double distance = WrapToHalfTurn(phase - wave.phase);
        sum += wave.millivolts * std::exp(-distance * distance / (2.0 * wave.width * wave.width));
    }
    return sum;
}

std::vector<Wave> ScaleWaves(std::vector<Wave> waves, double scale) {
    for (Wave& wave : waves) {
        const bool isQrs = std::fabs(wave.phase) < kOutermostQrsPhase;
        wave.phase *= isQrs ? scale : std::sqrt(scale);
        wave.width *= scale;
    }
    return waves;
}

} // namespace

Beat NormalBeat() {
    return {
        {{-1.09, 0.03, 0.0906},
         {-0.83, 0.08, 0.1057},
         {-0.19, -0.13, 0.0453},
         {-0.07, 0.85, 0.0378},
         {0.0, 1.11, 0.0332},
         {0.06, 0.75, 0.0302},
         {0.22, 0.06, 0.0378},
         {1.2, 0.1, 0.604},
         {1.42, 0.17, 0.302},
         {1.68, 0.39, 0.1812},
         {2.9, 0.03, 0.5}},
        {{-1.1, 0.035, 0.07},
         {-0.9, 0.015, 0.07},
         {-0.76, -0.019, 0.04},
         {-0.11, 0.32, 0.055},
         {-0.01, 0.51, 0.037},
         {0.065, -0.32, 0.0604},
         {0.8, 0.04, 0.45},
         {1.58, 0.08, 0.3},
         {2.9, 0.014, 0.5}},
        {{-1.1, -0.03, 0.03},
         {-0.93, -0.14, 0.12},
         {-0.7, -0.035, 0.04},
         {-0.4, 0.045, 0.4},
         {-0.15, -0.4, 0.045},
         {0.095, 0.46, 0.05},
         {1.05, -0.12, 0.8},
         {1.25, -0.2, 0.4},
         {1.55, -0.35, 0.2},
         {2.8, -0.035, 0.4}},
    };
}

Beat AtHeartRate(const Beat& beat, double beatsPerMinute) {
    const double scale = std::sqrt(beatsPerMinute / 60.0);
    return {ScaleWaves(beat.x, scale), ScaleWaves(beat.y, scale), ScaleWaves(beat.z, scale)};
}

std::array<double, kLeadCount> LeadsAt(const Beat& beat, double phase) {
    const double x = Height(beat.x, phase);
    const double y = Height(beat.y, phase);
    const double z = Height(beat.z, phase);
    std::array<double, kLeadCount> leads{};
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        const Projection& p = kDowerMatrix[i];
        leads[i] = p.x * x + p.y * y + p.z * z;
    }
    return leads;
}

} // namespace synthesis
