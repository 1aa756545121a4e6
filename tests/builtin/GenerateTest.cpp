// Runs the generator of the compiled-in database on folders of made-up licensed data.
#include "tests/support/Files.h"

#include <gtest/gtest.h>
#include <iterator>
#include <sys/wait.h>
#include <utility>

namespace {

constexpr int kNoiseSamples = 10000;

class Generate : public testing::Test {
  protected:
    // Runs the generator with a licensed noise of zeros except for this one value; returns its exit
    // code.
    int RunWithNoise(const std::string& unit, const std::string& value) {
        std::string text = "unit " + unit + "\n" + value + "\n";
        for (int n = 1; n < kNoiseSamples; ++n) {
            text += "0\n";
        }
        m_licensed.Write("NOISE_50HZ.txt", text);
        const std::string command = std::string(RAVO_GENERATE_PROGRAM) + " '" + m_output.Path() +
                                    "' '" + m_licensed.Path() + "' 2> '" + m_output / "said" + "'";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string Said() const { return ReadFile(m_output / "said"); }

    // Whether the generated noise begins with these values.
    bool NoiseBeginsWith(const std::string& values) const {
        const std::string source = ReadFile(m_output / "CTSCSE_NoiseData.cpp");
        const std::string declaration = "CTSCSE_Noise_50HZ[kCTSCSENoiseSamples] = {\n";
        return source.find(declaration + values) != std::string::npos;
    }

    Scratch m_licensed;
    Scratch m_output;
};

TEST_F(Generate, TakesTheWholeRangeOfANoise) {
    ASSERT_EQ(RunWithNoise("uV", "2147483647.4"), 0) << Said();
    EXPECT_TRUE(NoiseBeginsWith("2147483647,0,0,"));
    ASSERT_EQ(RunWithNoise("mV", "-2147483.648"), 0) << Said();
    EXPECT_TRUE(NoiseBeginsWith("-2147483648,0,0,"));
}

TEST_F(Generate, RefusesANoiseBeyondIt) {
    const std::pair<const char*, const char*> beyond[] = {
        {"uV", "2147483648"}, {"uV", "-2147483649"}, {"mV", "2147483.648"}, {"mV", "1e300"}};
    for (const auto& [unit, value] : beyond) {
        EXPECT_EQ(RunWithNoise(unit, value), 1) << value;
        EXPECT_EQ(Said(), "ravo-ctscse-generate: " + m_licensed / "NOISE_50HZ.txt" +
                              ", line 2: expected a noise of -2147483648 to 2147483647 uV\n");
        EXPECT_FALSE(std::filesystem::exists(m_output / "CTSCSE_NoiseData.cpp")) << value;
    }
}

} // namespace
