#pragma once

#include "tools/emulator/Settings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The codes that the outputs must carry, worked out from the formulas alone and without the
// library: the voltages of the eight leads I, II, V1 to V6 at one instant become the codes of the
// channels I, II, V6 to V1.
class Converter {
  public:
    explicit Converter(emulator::Unit unit) : m_isWide(unit == emulator::Unit::kSixteenBit) {}

    // From now on the codes are corrected by a calibration file.
    void Calibrate(const std::string& path) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            std::replace(line.begin(), line.end(), ',', ' ');
            std::istringstream numbers(line);
            std::array<double, 8> errors{};
            for (double& error : errors) {
                std::string number;
                numbers >> number;
                error = std::stod(number);
            }
            m_errors.push_back(errors);
        }
    }
    bool IsCalibrated() const { return m_errors.size() == 4096; }

    std::uint16_t Code(double voltage, std::size_t channel) const {
        const double x = std::clamp(voltage, -kRange, kRange) / kRange;
        if (m_isWide) {
            return static_cast<std::uint16_t>(x * 32000.0 + 32768.0);
        }
        const double y = x * 2000.0 + 2048.0;
        const auto q = static_cast<std::uint16_t>(y);
        return IsCalibrated() ? static_cast<std::uint16_t>(2 * y - m_errors[q][channel]) : q;
    }

    emulator::Codes Frame(const std::array<double, 8>& voltages) const {
        std::array<double, 8> lead = voltages;
        for (double& voltage : lead) {
            voltage = std::clamp(voltage, -kRange, kRange);
        }
        const double w = (lead[0] + lead[1]) * 0.33333333333;
        emulator::Codes codes{Code(lead[0], 0), Code(lead[1], 1)};
        for (std::size_t channel = 2; channel < 8; ++channel) {
            codes[channel] = Code((lead[9 - channel] + w) * 0.592731022038923, channel);
        }
        return codes;
    }

  private:
    static constexpr double kRange = 5.0;

    bool m_isWide;
    std::vector<std::array<double, 8>> m_errors;
};
