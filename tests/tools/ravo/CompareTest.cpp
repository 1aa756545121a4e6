#include "CommandLine.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr int kRate = 100;
constexpr int kFrames = 300;

// Output voltages in steps of 5 mV / 32000, the unit used in records of the outputs.
int16_t Step(double millivolts) {
    return static_cast<int16_t>(std::lround(millivolts * 6400.0));
}

// Lead `lead` of the source in microvolts: a slow sawtooth, different in each lead and second.
int Microvolts(int lead, int frame) {
    return (frame * (lead + 3) * 17) % 1800 - 900;
}

// What the outputs carry at a frame of the source: the limb leads as they are; the chest leads plus
// a third of I + II, times the factor of the simulator's output stage.
std::vector<int16_t> OutputFrame(int frame) {
    const double one = Microvolts(0, frame) / 1000.0;
    const double two = Microvolts(1, frame) / 1000.0;
    std::vector<int16_t> steps = {Step(one), Step(two)};
    for (int lead = 2; lead < 8; ++lead) {
        const double chest = Microvolts(lead, frame) / 1000.0;
        steps.push_back(Step((chest + (one + two) / 3.0) * 0.592731022038923));
    }
    return steps;
}

std::string Names(const std::string& file, const std::string& gain) {
    std::string text;
    for (const char* name : {"I", "II", "V1", "V2", "V3", "V4", "V5", "V6"}) {
        text += file + ".dat 16 " + gain + "/mV 16 0 0 0 0 " + name + "\n";
    }
    return text;
}

class CompareTest : public testing::Test {
  protected:
    void SetUp() override {
        std::vector<int16_t> samples;
        for (int frame = 0; frame < kFrames; ++frame) {
            for (int lead = 0; lead < 8; ++lead) {
                samples.push_back(static_cast<int16_t>(Microvolts(lead, frame)));
            }
        }
        m_directory.Write("source.dat", Format16(samples));
        m_source = m_directory.Write("source.hea", "source 8 " + std::to_string(kRate) + " " +
                                                       std::to_string(kFrames) + "\n" +
                                                       Names("source", "1000"));
    }

    // The outputs of a play from frame `from` that looped at the end.
    std::vector<int16_t> Played(int from, int frames) const {
        std::vector<int16_t> steps;
        for (int n = 0; n < frames; ++n) {
            const int frame = from + n % (kFrames - from);
            const auto more = OutputFrame(frame);
            steps.insert(steps.end(), more.begin(), more.end());
        }
        return steps;
    }

    std::string WriteOutputs(const std::vector<int16_t>& steps, int rate = kRate) const {
        m_directory.Write("outputs.dat", Format16(steps));
        return m_directory.Write("outputs.hea", "outputs 8 " + std::to_string(rate) + " " +
                                                    std::to_string(steps.size() / 8) + "\n" +
                                                    Names("outputs", "6400"));
    }

    Scratch m_directory;
    std::string m_source;
};

} // namespace

// Half a step of 5 mV / 32000 is 0.078 uV.
TEST_F(CompareTest, FaithfulOutputsDifferByRoundingOnly) {
    const Result result =
        Ravo({"compare", m_source, WriteOutputs(Played(0, kFrames)), "--tolerance", "0.0785"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("compared 300 frames (3.000 s) from second 0 of the source\n"
                               "largest difference per output\n  I  ",
                               0),
              0U)
        << result.out;
}

TEST_F(CompareTest, FindsTheSecondAtWhichThePlayBegan) {
    const Result result = Ravo({"compare", m_source, WriteOutputs(Played(100, 200)), "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("{\"start\":1,\"frames\":200,\"framesBehindEnd\":0,\"rate\":100,"
                               "\"largestDifferenceMicrovolts\":{\"I\":0.0",
                               0),
              0U)
        << result.out;
}

TEST_F(CompareTest, FramesBehindTheEndAreLeftOut) {
    const Result result = Ravo({"compare", m_source, WriteOutputs(Played(200, 130))});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("compared 100 frames (1.000 s) from second 2 of the source\n"
                              "30 frames after the last one due are not compared\n"),
              std::string::npos)
        << result.out;
}

// After two seconds the outputs hold their last frame.
TEST_F(CompareTest, WhatIsHeldAfterThePlayIsLeftOut) {
    auto steps = Played(0, 200);
    for (int n = 0; n < 60; ++n) {
        const auto last = OutputFrame(199);
        steps.insert(steps.end(), last.begin(), last.end());
    }
    const std::string outputs = WriteOutputs(steps);
    const Result told = Ravo({"compare", m_source, outputs});
    EXPECT_NE(
        told.err.find("holds one frame for the last 0.600 s, as after a play with --seconds;"),
        std::string::npos)
        << told.err;
    const Result result =
        Ravo({"compare", m_source, outputs, "--seconds", "2", "--tolerance", "0.0785"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("60 frames after the last one due are not compared\n"),
              std::string::npos)
        << result.out;
}

// From frame 150 on.
TEST_F(CompareTest, StartsBetweenTwoSeconds) {
    const Result result = Ravo({"compare", m_source, WriteOutputs(Played(150, 100)), "--start",
                                "0:01.5", "--tolerance", "0.0785"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("compared 100 frames (1.000 s) from second 1.5 of the source\n", 0),
              0U)
        << result.out;
}

TEST_F(CompareTest, LoopGoesOnFromTheStart) {
    const Result result = Ravo({"compare", m_source, WriteOutputs(Played(200, 250)), "--start", "2",
                                "--loop", "--tolerance", "0.0785"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("compared 250 frames"), std::string::npos);
}

// One output is off by 16 steps, 2.5 uV, in one frame.
TEST_F(CompareTest, FindsTheLargestDifferenceAndWhereItIs) {
    auto steps = Played(0, kFrames);
    const auto index = static_cast<std::size_t>(8 * 150 + 1);
    steps[index] = static_cast<int16_t>(steps[index] + 16);
    const Result result = Ravo({"compare", m_source, WriteOutputs(steps), "--tolerance", "2.4"});
    EXPECT_EQ(result.status, 5);
    EXPECT_NE(result.out.find("  II      2.500 uV at 1.500 s\n"), std::string::npos) << result.out;
    EXPECT_NE(result.err.find("differs from the source by up to 2.500 uV, more than 2.4 uV"),
              std::string::npos)
        << result.err;
}

// One document: the figures, and the reason for the failure.
TEST_F(CompareTest, DifferenceStandsInTheJson) {
    auto steps = Played(0, kFrames);
    steps[1] = static_cast<int16_t>(steps[1] + 16);
    const Result result =
        Ravo({"compare", m_source, WriteOutputs(steps), "--tolerance", "2.4", "--json"});
    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.out.rfind("{\"start\":0,", 0), 0U) << result.out;
    EXPECT_NE(result.out.find("},\"error\":{\"status\":5,\"where\":\""), std::string::npos)
        << result.out;
    EXPECT_EQ(result.out.find('\n'), result.out.size() - 1) << result.out;
}

TEST_F(CompareTest, OtherRateIsRefused) {
    const Result result = Ravo({"compare", m_source, WriteOutputs(Played(0, kFrames), 200)});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("has 200 frames per second, the source plays at 100"),
              std::string::npos)
        << result.err;
}

TEST_F(CompareTest, StartBehindTheEndIsRefused) {
    const Result result =
        Ravo({"compare", m_source, WriteOutputs(Played(0, kFrames)), "--start", "3"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("is past the end: source lasts 3.000 s"), std::string::npos)
        << result.err;
}

TEST_F(CompareTest, RecordThatIsNoOutputIsRefused) {
    m_directory.Write("one.dat", Format16({1}));
    const std::string one = m_directory.Write("one.hea", "one 1 100 1\none.dat 16\n");
    const Result result = Ravo({"compare", m_source, one});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("is not a record of the simulator's eight outputs"),
              std::string::npos)
        << result.err;
}

TEST_F(CompareTest, EmptyOutputsAreRefused) {
    const Result result = Ravo({"compare", m_source, WriteOutputs({})});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("holds no frames"), std::string::npos) << result.err;
}

// Two-signal material has no chest leads: all six chest outputs carry (I + II) / 3 / 1.665.
TEST_F(CompareTest, TwoSignalMaterial) {
    std::string text;
    std::vector<int16_t> steps;
    for (int n = 0; n < 250; ++n) {
        const double one = (n % 50) * 0.02;
        const double two = (n % 40) * -0.03;
        text += std::to_string(one * 400.0) + "," + std::to_string(two * 400.0) + "\n";
        steps.push_back(Step(one));
        steps.push_back(Step(two));
        steps.insert(steps.end(), 6, Step((one + two) / 3.0 / 1.665));
    }
    const std::string source = m_directory.Write("a.txt", text);
    const Result result =
        Ravo({"compare", source, WriteOutputs(steps, 250), "--tolerance", "0.08"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

// Native text at 500 per second plays at 1000: every other frame is half-way between two samples.
TEST_F(CompareTest, NativeTextIsResampled) {
    std::string text = "500\n500\nstart\nLead I\n";
    for (int n = 0; n < 500; ++n) {
        text += std::to_string((n % 25) * 10) + "\n";
    }
    std::vector<int16_t> steps;
    for (int frame = 0; frame < 999; ++frame) {
        const double here = (frame / 2 % 25) * 0.010;
        const double next = ((frame / 2 + 1) % 25) * 0.010;
        const double one = frame % 2 == 0 ? here : (here + next) / 2.0;
        steps.push_back(Step(one));
        steps.push_back(0);
        steps.insert(steps.end(), 6, Step(one / 3.0 * 0.592731022038923));
    }
    const Result result = Ravo({"compare", m_directory.Write("n.txt", text),
                                WriteOutputs(steps, 1000), "--tolerance", "0.08"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST_F(CompareTest, Waveform) {
    std::vector<int16_t> steps;
    for (int n = 0; n < 500; ++n) {
        const double sine = std::sin(2.0 * M_PI * 5.0 * n / 1000.0);
        steps.push_back(Step(sine));
        steps.push_back(Step(sine));
        steps.insert(steps.end(), 6, Step(sine * 5.0 / 3.0 * 0.592731022038923));
    }
    const Result result = Ravo({"compare", "sine", WriteOutputs(steps, 1000), "--frequency", "5",
                                "--amplitude", "2", "--tolerance", "0.08"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}
