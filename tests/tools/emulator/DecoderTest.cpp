#include "tools/emulator/Decoder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

using namespace emulator;

namespace {

TEST(Decoder, FullScaleIsTheRange) {
    const ConverterModel ideal = ConverterModel::Ideal();
    EXPECT_DOUBLE_EQ(Millivolts(AnalogueCode(ideal, 12, 0, 4048), 12, 5.0), 5.0);
    EXPECT_DOUBLE_EQ(Millivolts(AnalogueCode(ideal, 12, 0, 48), 12, 5.0), -5.0);
    EXPECT_DOUBLE_EQ(Millivolts(AnalogueCode(ideal, 12, 0, 2048), 12, 5.0), 0.0);
    EXPECT_DOUBLE_EQ(Millivolts(AnalogueCode(ideal, 16, 0, 64768), 16, 5.0), 5.0);
    EXPECT_DOUBLE_EQ(Millivolts(AnalogueCode(ideal, 16, 0, 768), 16, 2.0), -2.0);
    EXPECT_DOUBLE_EQ(Millivolts(AnalogueCode(ideal, 16, 0, 32768 + 3200), 16, 5.0), 0.5);
}

TEST(Decoder, AnUncalibratedConverterIsOffByItsOwnErrors) {
    const ConverterModel model = ConverterModel::Uncalibrated();
    // At the middle: offset and bow.
    EXPECT_DOUBLE_EQ(model.Measured(0, 2048), 2048 + 3.25 + 1.5);
    EXPECT_DOUBLE_EQ(model.Measured(6, 2048), 2048 + 2.0 + 2.75);
    // At code 0: offset and gain.
    EXPECT_NEAR(model.Measured(1, 0), -4.5 + 0.0013 * 2048, 1e-6);
    EXPECT_DOUBLE_EQ(AnalogueCode(model, 12, 0, 2048), 4.75);
    EXPECT_DOUBLE_EQ(AnalogueCode(model, 16, 0, 32768), 0.0);
}

TEST(Decoder, CodesBeyondTwelveBitsAreNotCorrected) {
    EXPECT_DOUBLE_EQ(ConverterModel::Uncalibrated().Measured(3, 4096), 4096.0);
    EXPECT_DOUBLE_EQ(ConverterModel::Ideal().Measured(3, 17), 17.0);
}

TEST(Decoder, TheCalibrationFileHoldsTheMeasuredValues) {
    const ConverterModel model = ConverterModel::Uncalibrated();
    const std::string path = "/usr/local/tarnwick/ravo/RAVO_DACtest.txt";
    ASSERT_TRUE(model.WriteCalibrationFile(path));
    std::ifstream file(path);
    std::string line;
    std::uint16_t code = 0;
    for (; std::getline(file, line); ++code) {
        // The driver reads lines of at most 255 characters.
        ASSERT_LE(line.size(), 255U);
        std::istringstream numbers(line);
        std::string word;
        std::size_t channel = 0;
        for (; std::getline(numbers, word, ','); ++channel) {
            ASSERT_EQ(std::strtod(word.c_str(), nullptr), model.Measured(channel, code));
        }
        ASSERT_EQ(channel, 8U);
    }
    EXPECT_EQ(code, 4096);
    std::filesystem::remove(path);
}

TEST(Decoder, AFileThatCannotBeWrittenIsReported) {
    EXPECT_FALSE(ConverterModel::Ideal().WriteCalibrationFile("/nonesuch/file.txt"));
    EXPECT_FALSE(ConverterModel::Ideal().WriteCalibrationFile("/dev/full"));
}

} // namespace
