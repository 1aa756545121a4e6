#pragma once

#include "tools/emulator/Settings.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

// From the bytes on the line back to codes, and from codes to what the outputs carry.
namespace emulator {

// The width of a unit's converters, 12 or 16 bits.
int BitsOf(Unit unit);

std::size_t FramesPerPacket(int bits);

// The frame in `bits` bit planes, most significant first, channel n in bit n of each.
Codes UnpackPlanes(const std::uint8_t* planes, int bits);

// Appends the frames of a 64-byte packet.
void UnpackPacket(const std::uint8_t* packet, int bits, std::vector<Codes>& frames);

// The 12-bit converters of a unit as they left the factory: each channel a little off in its own
// way.  A measured value is the ideal code for the voltage that the channel actually outputs.
class ConverterModel {
  public:
    // Converters without any errors.
    static ConverterModel Ideal();
    // Converters with an offset, a gain error and a bow, different in every channel.
    static ConverterModel Uncalibrated();

    // The ideal code, a fraction included, that corresponds to the output of `channel` at `code`.
    double Measured(std::size_t channel, std::uint16_t code) const;

    // Writes the unit's calibration: a line for each code, on it the measured value of each
    // channel.  Returns whether the whole file was written.
    bool WriteCalibrationFile(const std::string& path) const;

  private:
    static constexpr std::size_t kCodes = 4096;
    std::vector<std::array<double, kChannels>> m_measured;
};

// The output of a channel in units of the ideal code, relative to the middle code.
double AnalogueCode(const ConverterModel& model, int bits, std::size_t channel, std::uint16_t code);

// The voltage at full scale +-range: a 12-bit unit reaches it 2000 codes from the middle code, a
// 16-bit unit 32000 codes.
double Millivolts(double analogueCode, int bits, double range);

} // namespace emulator
