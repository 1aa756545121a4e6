#include "CommandLine.h"

#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace {

int CountOf(const std::string& part, const std::string& text) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace

TEST(BuiltinTest, ListShowsEveryRecordAndNoise) {
    const Result result = Ravo({"list"});
    EXPECT_EQ(result.status, 0) << result.err;
    // Two headings, an empty line, 119 records and 14 noises.
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2 + 1 + 119 + 14);
    EXPECT_NE(result.out.find("\n     6  CAL20000     10000    10.000  "), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("\n   118  MA1_125       8000     8.000  "), std::string::npos);
    EXPECT_NE(result.out.find("\n    13  HF_50                 10.000  "), std::string::npos);
    EXPECT_EQ(CountOf("  stand-in\n", result.out) + CountOf("  licensed\n", result.out), 119 + 14);
}

TEST(BuiltinTest, ListAsJson) {
    const Result result = Ravo({"list", "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("{\"records\":[{\"number\":0,\"name\":\"", 0), 0U) << result.out;
    EXPECT_NE(result.out.find("{\"number\":6,\"name\":\"CAL20000\",\"material\":"
                              "\"builtin:CAL20000\",\"rate\":1000,\"samples\":10000,"
                              "\"seconds\":10,\"source\":\""),
              std::string::npos);
    EXPECT_NE(result.out.find("],\"noises\":[{\"number\":0,\"name\":\""), std::string::npos);
    EXPECT_NE(result.out.find("{\"number\":13,\"name\":\"HF_50\",\"seconds\":10,\"source\":\""),
              std::string::npos);
    EXPECT_EQ(CountOf("{\"number\":", result.out), 119 + 14);
}

TEST(BuiltinTest, RecordHasItsEightLeads) {
    const Result result = Ravo({"info", "builtin:MA1_015"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("MA1_015"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("ECG V6"), std::string::npos) << result.out;
}

TEST(BuiltinTest, UnknownNamesAreRefused) {
    const Result record = Ravo({"info", "builtin:CAL1"});
    EXPECT_EQ(record.status, 2);
    EXPECT_NE(record.err.find("builtin:CAL1: is not a record of the built-in database."),
              std::string::npos)
        << record.err;
    const Result noise = Ravo({"info", "builtin:CAL20000", "--noise", "70HZ"});
    EXPECT_EQ(noise.status, 1);
    EXPECT_NE(noise.err.find("--noise 70HZ: is not a noise of the built-in database."),
              std::string::npos)
        << noise.err;
    EXPECT_EQ(Ravo({"info", "sine", "--noise", "50HZ"}).status, 0);
    EXPECT_EQ(Ravo({"info", "builtin:CAL20000", "--map", "1=I"}).status, 1);
}

TEST(BuiltinTest, StandInsPlayWithTheirNoise) {
    if (CountOf("  licensed\n", Ravo({"list"}).out) != 0) {
        GTEST_SKIP() << "the library was built with licensed data";
    }
    emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit, 0);
    settings.bufferBytes = 80 * emulator::kBufferBytes; // so that no stall costs frames
    settings.behaviour.speed = 4.0;
    emulator::Simulator simulator(settings);
    const Result result = Ravo({"play", "builtin:CAL20000", "--noise", "50HZ", "--speed-up", "4"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("CAL20000 is a stand-in"), std::string::npos) << result.err;
    const auto frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 10000U);
    // 2 mV are 12800 codes of +-5 mV; a quarter of the mains period later 25 uV come on top.
    EXPECT_EQ(frames[0][0], 32768 + 12800);
    EXPECT_EQ(frames[5][0], 32768 + 12960);
    EXPECT_EQ(frames[515][0], 32768 - 12960);
}

TEST(BuiltinTest, ANearMissIsAnsweredWithAHint) {
    for (const char* name : {"CAL20000", "cal20000", "builtin:cal20000", "builtin:CAL2000"}) {
        const Result result = Ravo({"info", name});
        EXPECT_EQ(result.status, 2) << name;
        EXPECT_NE(result.err.find("\n      Did you mean builtin:CAL20000?\n"), std::string::npos)
            << result.err;
    }
    EXPECT_NE(Ravo({"info", "SINE"}).err.find("Did you mean sine?"), std::string::npos);
    EXPECT_NE(Ravo({"info", "rectangle"}).err.find("Did you mean rectangle-pulse?"),
              std::string::npos);
    EXPECT_NE(Ravo({"play", "builtin:CAL20000", "--noise", "50hz"}).err.find("Did you mean 50HZ?"),
              std::string::npos);
}
