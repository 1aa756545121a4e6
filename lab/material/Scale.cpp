#include "lab/material/Scale.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace lab {
namespace {

constexpr double kHighest = 32767.0;
constexpr double kSteps = 65000.0;

bool IsNearlyWhole(double number) {
    return std::fabs(number - std::nearbyint(number)) < 1e-4;
}

// Cut to six digits, so that headers stay readable.
double WithSixDigits(double number) {
    const double unit = std::pow(10.0, std::floor(std::log10(number)) - 5.0);
    return std::floor(number / unit) * unit;
}

Scale Spread(double least, double most, double finest) {
    const double middle = least + (most - least) / 2.0;
    double gain = std::min(kSteps / std::max(most - least, 1e-300), finest);
    // The baseline has 32 bits.
    gain = std::min(gain, 2e9 / std::max(std::fabs(middle), 1e-300));
    gain = std::clamp(gain, 1e-290, 1e290);
    Scale scale;
    scale.gain = WithSixDigits(gain);
    scale.baseline = static_cast<int32_t>(-std::nearbyint(middle * scale.gain));
    return scale;
}

} // namespace

void Survey::Look(const std::vector<double>& samples) {
    const double gain = m_signal.gain;
    const double baseline = m_signal.baseline;
    for (const double value : samples) {
        if (std::isnan(value)) {
            ++m_missing;
            continue;
        }
        m_least = m_there == 0 ? value : std::min(m_least, value);
        m_most = m_there == 0 ? value : std::max(m_most, value);
        ++m_there;
        m_isWhole = m_isWhole && IsNearlyWhole(value * gain + baseline);
    }
}

Scale Survey::Choose() const {
    constexpr double kFinestVoltage = 1e5; // steps of 0.01 microvolts
    const double gain = m_signal.gain;
    if (m_there == 0) {
        return {};
    }
    if (m_isWhole && gain != 0.0 && IsNearlyWhole(m_signal.baseline) &&
        std::fabs(m_signal.baseline) < 1e9) {
        const double one = m_least * gain + m_signal.baseline;
        const double other = m_most * gain + m_signal.baseline;
        const double low = std::nearbyint(std::min(one, other));
        const double high = std::nearbyint(std::max(one, other));
        // A 16-bit range that does not fit as it is fits with another baseline.
        const double shift =
            low < -kHighest || high > kHighest ? std::nearbyint(-(low + (high - low) / 2.0)) : 0.0;
        if (low + shift >= -kHighest && high + shift <= kHighest) {
            return {gain, static_cast<int32_t>(std::nearbyint(m_signal.baseline) + shift)};
        }
    }
    const double largest = std::max({std::fabs(m_least), std::fabs(m_most), 1e-6});
    return Spread(m_least, m_most, m_signal.isVoltage ? kFinestVoltage : 1e6 / largest);
}

} // namespace lab
