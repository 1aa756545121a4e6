#include "engine/Conversion.h"

#include "device/Calibration.h"
#include "device/Protocol.h"
#include "engine/Kinds.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// Noise at one instant, in millivolts.
double CurrentNoise() {
    const bool mixed = LoadShared(g_NoiseOn) != 0 && KindOf(g_WaveformType).carriesNoise;
    if (!mixed || g_nNoiseCurrent >= kNoiseSamples) {
        return 0.0;
    }
    return g_NoiseData[g_nNoiseCurrent] / 1000.0;
}

using Quad = int __attribute__((vector_size(16)));

// The settings that determine how voltages become codes, at one instant.
class CodeConverter {
  public:
    CodeConverter()
        : m_range(LoadShared(g_fVoltageRange)), m_noise(CurrentNoise()),
          m_is16Bit(LoadShared(g_nDACBit) != 0),
          m_isCorrected(KindOf(g_WaveformType).isCorrected && LoadShared(g_bDACAvailable) != 0) {}

    // -1.0 to +1.0 of the range.  A voltage that is not a number counts as 0; so does every voltage
    // when the range is not above 0.
    double Normalise(double voltage) const {
        const double noisy = NumberOrZero(voltage) + m_noise;
        return NumberOrZero(ClampVoltage(noisy, m_range) / m_range);
    }

    // The code of a normalised voltage, before correction and truncation.  The full scale stops
    // short of the converter's end codes.
    double Scale(double x) const { return m_is16Bit ? x * 32000.0 + 32768.0 : x * 2000.0 + 2048.0; }

    bool CorrectsCodes() const { return m_isCorrected && !m_is16Bit; }

  private:
    static double NumberOrZero(double value) { return std::isnan(value) ? 0.0 : value; }

    double m_range;
    double m_noise;
    bool m_is16Bit;
    bool m_isCorrected;
};

// The uncorrected code lies between 48 and 4048, inside its row of the table.  The table is a
// file's content and can push the corrected code anywhere.
double CorrectCode(double code, int channel) {
    constexpr double kLargestCode = 4294967295.0;
    const double error = g_DACError[channel * kDACErrorCodes + static_cast<int>(code)];
    return std::max(0.0, std::min(2.0 * code - error, kLargestCode));
}

} // namespace

double AdjustVoltage(double voltage) {
    return ClampVoltage(voltage, LoadShared(g_fVoltageRange));
}

unsigned int DAC(double voltage, int channel) {
    const CodeConverter converter;
    double code = converter.Scale(converter.Normalise(voltage));
    if (converter.CorrectsCodes() && channel >= 0 && channel < kOutputLeads) {
        code = CorrectCode(code, channel);
    }
    return static_cast<unsigned int>(code);
}

void ConvertFrame(const double* voltages, int* frame) {
    const CodeConverter converter;
    double codes[kOutputLeads];
    for (int channel = 0; channel < kOutputLeads; ++channel) {
        codes[channel] = converter.Scale(converter.Normalise(voltages[channel]));
    }
    const bool isCorrected = converter.CorrectsCodes();
    const auto codeOf = [&](int channel) {
        const double code = isCorrected ? CorrectCode(codes[channel], channel) : codes[channel];
        return static_cast<int>(static_cast<unsigned int>(code));
    };
    // Stored four at a time, the way the packer loads them: a load that spans several stores would
    // have to wait for the cache.
    for (int first = 0; first < kOutputLeads; first += 4) {
        const Quad quad = {codeOf(first), codeOf(first + 1), codeOf(first + 2), codeOf(first + 3)};
        std::memcpy(frame + first, &quad, sizeof(quad));
    }
}

int IsDACFileLoaded() {
    return LoadShared(g_bDACAvailable);
}
