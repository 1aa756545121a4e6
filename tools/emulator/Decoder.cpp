#include "tools/emulator/Decoder.h"

#include <cmath>
#include <cstdio>
#include <memory>

namespace emulator {
namespace {

constexpr std::size_t kPacketHeaderBytes = 4;
constexpr double kMiddleOf12 = 2048.0;
constexpr double kMiddleOf16 = 32768.0;
constexpr double kFullScaleOf12 = 2000.0;
constexpr double kFullScaleOf16 = 32000.0;

struct ConverterError {
    double offset; // codes
    double gain;   // in codes per code from the middle
    double bow;    // in codes at the middle, vanishing at both ends
};

constexpr std::array<ConverterError, kChannels> kErrors = {{
    {3.25, 0.0021, 1.5},
    {-4.5, -0.0013, 2.25},
    {7.0, 0.0034, -1.75},
    {-1.75, 0.0008, 0.5},
    {0.5, -0.0029, -2.5},
    {-6.25, 0.0017, 1.0},
    {2.0, -0.0036, 2.75},
    {5.5, 0.0005, -0.75},
}};

// The calibration file holds six decimals; the model uses the same rounded numbers.
double RoundAsInFile(double value) {
    return std::round(value * 1e6) / 1e6;
}

double MeasuredWith(const ConverterError& error, double code) {
    const double fromMiddle = code - kMiddleOf12;
    const double towardsEnd = fromMiddle / kMiddleOf12;
    return RoundAsInFile(code + error.offset + error.gain * fromMiddle +
                         error.bow * (1.0 - towardsEnd * towardsEnd));
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

} // namespace

int BitsOf(Unit unit) {
    return unit == Unit::kSixteenBit ? 16 : 12;
}

std::size_t FramesPerPacket(int bits) {
    return bits == 16 ? 3 : 5;
}

Codes UnpackPlanes(const std::uint8_t* planes, int bits) {
    Codes codes{};
    for (int plane = 0; plane < bits; ++plane) {
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            const unsigned bit = (static_cast<unsigned>(planes[plane]) >> channel) & 1U;
            const unsigned higher = codes[channel];
            codes[channel] = static_cast<std::uint16_t>(higher << 1U | bit);
        }
    }
    return codes;
}

void UnpackPacket(const std::uint8_t* packet, int bits, std::vector<Codes>& frames) {
    const std::uint8_t* planes = packet + kPacketHeaderBytes;
    for (std::size_t frame = 0; frame < FramesPerPacket(bits); ++frame, planes += bits) {
        frames.push_back(UnpackPlanes(planes, bits));
    }
}

ConverterModel ConverterModel::Ideal() {
    return {};
}

ConverterModel ConverterModel::Uncalibrated() {
    ConverterModel model;
    model.m_measured.resize(kCodes);
    for (std::size_t code = 0; code < kCodes; ++code) {
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            model.m_measured[code][channel] =
                MeasuredWith(kErrors[channel], static_cast<double>(code));
        }
    }
    return model;
}

double ConverterModel::Measured(std::size_t channel, std::uint16_t code) const {
    return code < m_measured.size() ? m_measured[code][channel] : code;
}

bool ConverterModel::WriteCalibrationFile(const std::string& path) const {
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "we"));
    if (!file) {
        return false;
    }
    for (std::uint16_t code = 0; code < kCodes; ++code) {
        for (std::size_t channel = 0; channel < kChannels; ++channel) {
            std::fprintf(file.get(), channel == 0 ? "%.6f" : ", %.6f", Measured(channel, code));
        }
        std::fputc('\n', file.get());
    }
    return std::fflush(file.get()) == 0 && std::ferror(file.get()) == 0;
}

double AnalogueCode(const ConverterModel& model, int bits, std::size_t channel,
                    std::uint16_t code) {
    return bits == 16 ? code - kMiddleOf16 : model.Measured(channel, code) - kMiddleOf12;
}

double Millivolts(double analogueCode, int bits, double range) {
    return analogueCode / (bits == 16 ? kFullScaleOf16 : kFullScaleOf12) * range;
}

} // namespace emulator
