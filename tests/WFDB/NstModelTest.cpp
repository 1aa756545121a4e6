#include "WFDB/nst.h"

#include "tests/support/PublicRecord.h"
#include "tests/WFDB/NstFixture.h"
#include "tests/WFDB/RandomNoise.h"
#include "tests/WFDB/RecordModel.h"
#include "WFDB/sigamp.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

namespace {

struct Mix {
    const char* name;
    int frequency;
    std::vector<std::string> signal;
    std::vector<std::string> noise;
    size_t noiseFrames;
    bool annotated;
};

void PrintTo(const Mix& mix, std::ostream* out) {
    *out << mix.name;
}

const Mix kMixes[] = {
    {"TwoSignals", 4, {"212 200 12 0", "212 200 12 -50"}, {"212 1 12 0"}, 700, false},
    {"Beats", 20, {"212 200 11 1024", "212 200(30) 11 1024"}, {"212 100 12 77"}, 4000, true},
    {"OneSignal", 4, {"212 7 12 3"}, {"212 1 12 0", "212 200 12 5"}, 999, false},
    {"ThreeSignals",
     4,
     {"212 3.3 12 9", "212 9 12 -9", "212 1 12 0"},
     {"212 3 12 5", "212 1 12 0"},
     777,
     false},
    {"Format16",
     4,
     {"16 1000 16 0", "16 250 16 12"},
     {"16 50 16 -3", "16 1 16 0", "16 1 16 8"},
     600,
     false},
    {"Format16Beats", 20, {"16x2 1000 16 0", "16 250 16 12"}, {"212 50 16 -3"}, 5000, true},
    {"SeveralSamples", 20, {"212x3 200 12 7", "212 200 12 7"}, {"212x2 200 12 1"}, 2001, true},
    {"NoiseLongerThanTheSignal",
     4,
     {"212 200 12 7", "212 200 12 7"},
     {"212 200 12 1"},
     9000,
     false},
    {"ShortNoise", 4, {"212 200 12 100", "212 200 12 0"}, {"212 200 12 30"}, 397, false},
};

constexpr int kRuns = 20;
constexpr int kWindow = 18;

class NoiseTestAgainstModel : public NoiseTest, public testing::WithParamInterface<Mix> {
  protected:
    NoiseTestAgainstModel() {
        g_nRunMax = kRuns;
        g_nMovingWindowSize = kWindow;
        const Mix& mix = GetParam();
        // Lead-in, noisy, clean and the beginning of a noisy segment.
        const size_t frames = 560 * static_cast<size_t>(mix.frequency);
        Make("s", mix.frequency, mix.signal, frames, 700);
        Make("n", 10, mix.noise, mix.noiseFrames, 300);
        Make("m", 10, {"212 400 12 -200"}, 500, 1500);
        if (mix.annotated) {
            m_directory.Write("s.atr", BeatsEvery(17, 310));
        }
    }

    model::Record Open(const std::string& name) const {
        return {m_directory.Path(), name, name == "s"};
    }

    void CompareWithModel(model::Record& signal, std::vector<model::Noise>& noises,
                          model::Form form) {
        EXPECT_TRUE(Data() == model::MixNoise(signal, noises, form, kRuns, kWindow));
        EXPECT_GT(Data().size(), size_t{3} * 420 * static_cast<size_t>(GetParam().frequency));
        for (const model::Noise& noise : noises) {
            for (const double ratio : noise.ratio) {
                EXPECT_TRUE(std::isnormal(ratio) && ratio > 0) << ratio;
            }
        }
    }

  private:
    void Make(const std::string& name, int frequency, const std::vector<std::string>& signals,
              size_t frames, int amplitude) {
        size_t samples = 0;
        for (const std::string& signal : signals) {
            const size_t marker = signal.find('x');
            samples += marker == std::string::npos ? 1U : std::stoul(signal.substr(marker + 1));
        }
        MakeRecord(name, frequency, frames, signals, Noise(frames * samples, amplitude, ++m_seed));
    }

    unsigned m_seed = 0;
};

} // namespace

TEST_P(NoiseTestAgainstModel, ConfiguredFormIsTheSameBitForBit) {
    for (const bool two : {false, true}) {
        model::Record signal = Open("s");
        std::vector<model::Noise> noises = {{Open("n"), 6.0}};
        NSTSetSignal((m_directory / "s").c_str());
        NSTResetNoise();
        NSTAddNoise((m_directory / "n").c_str(), 6.0);
        if (two) {
            noises.emplace_back(Open("m"), -2.5);
            NSTAddNoise((m_directory / "m").c_str(), -2.5);
        }
        ASSERT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
        CompareWithModel(signal, noises, model::Form::kList);
        // Once more, with the factors that the first run left.
        ASSERT_EQ(NSTOutput((m_directory / "o").c_str()), 0);
        CompareWithModel(signal, noises, model::Form::kList);
    }
}

TEST_P(NoiseTestAgainstModel, SingleFormIsTheSameBitForBit) {
    model::Record signal = Open("s");
    std::vector<model::Noise> noise = {{Open("n"), -1.0}};
    ASSERT_EQ(RunSingle("s", "n", -1.0), 0);
    CompareWithModel(signal, noise, model::Form::kSingle);
}

INSTANTIATE_TEST_SUITE_P(Mixes, NoiseTestAgainstModel, testing::ValuesIn(kMixes),
                         [](const auto& mix) { return std::string(mix.param.name); });

namespace {

class NoiseTestOfRecord100 : public NoiseTest {
  protected:
    void SetUp() override {
        const std::filesystem::path record = PublicRecord("100.hea");
        if (record.empty()) {
            GTEST_SKIP() << "The public record 100 is missing.";
        }
        m_from = record.parent_path();
        // Shorter than the signal, so that both are repeated within segments.
        MakeRecord("n", 360, 200000, {"212 200 11 1024", "212 200 11 1024"}, Noise(400000, 400, 9));
        MakeRecord("m", 360, 123457, {"16 100 16 10"}, Noise(123457, 5000, 10));
    }

    void CompareConfigured(std::vector<model::Noise> noises) {
        model::Record signal(m_from, "100", true);
        NSTSetSignal((m_from + "/100").c_str());
        ASSERT_EQ(NSTOutput((m_directory / "100n").c_str()), 0);
        EXPECT_EQ(Data("100n").size(), 650000U * 3);
        EXPECT_TRUE(Data("100n") == model::MixNoise(signal, noises, model::Form::kList));
        EXPECT_EQ(HeaderText("100n"), "100n 2 360 650000\n100n.dat 212 200 11 1024 0 0 0 MLII\n"
                                      "100n.dat 212 200 11 1024 0 0 0 V5\n");
    }

    model::Record Open(const std::string& name) const { return {m_directory.Path(), name, false}; }

    std::string m_from;
};

} // namespace

TEST_F(NoiseTestOfRecord100, OneNoise) {
    NSTAddNoise((m_directory / "n").c_str(), 12.0);
    CompareConfigured({{Open("n"), 12.0}});
}

TEST_F(NoiseTestOfRecord100, TwoNoises) {
    NSTAddNoise((m_directory / "n").c_str(), 12.0);
    NSTAddNoise((m_directory / "m").c_str(), 6.0);
    CompareConfigured({{Open("n"), 12.0}, {Open("m"), 6.0}});
}

TEST_F(NoiseTestOfRecord100, SingleForm) {
    model::Record signal(m_from, "100", true);
    std::vector<model::Noise> noise = {{Open("n"), 0.0}};
    std::string signalPath = m_from + "/100.hea";
    std::string noisePath = m_directory / "n";
    std::string outputPath = m_directory / "single";
    ASSERT_EQ(nst(signalPath.data(), noisePath.data(), outputPath.data(), 0.0), 0);
    EXPECT_TRUE(Data("single") == model::MixNoise(signal, noise, model::Form::kSingle));
}
