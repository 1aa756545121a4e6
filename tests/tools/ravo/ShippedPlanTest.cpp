#include "CommandLine.h"
#include "RunFixture.h"
#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

class ShippedPlanTest : public RunTest {
  protected:
    // The plan beside the test's files. Takes this many lines of a list of records, because a whole
    // day is too long for a test suite.
    std::string CopyShipped(const std::string& name, int lines = 1000) const {
        std::istringstream text(ReadFile(std::string(RAVO_EXAMPLE_PLANS) + "/" + name));
        std::string copy;
        for (std::string line; std::getline(text, line);) {
            const bool isOfList = line.rfind("    \"", 0) == 0;
            copy += isOfList && lines-- <= 0 ? "" : line + "\n";
        }
        return m_directory.Write(name, copy);
    }

    Result RunShipped(const std::string& plan, const std::vector<std::string>& more) const {
        std::vector<std::string> arguments = {"run",        plan,  "--output",  Out(),
                                              "--speed-up", "100", "--timeout", "60"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Ravo(arguments);
    }
};

} // namespace

TEST_F(ShippedPlanTest, TheSessionOfQuestions) {
    m_directory.Write("answers.toml", "amplitude-10hz = 0.98\nrate = 75\nasystole = \"yes\"\n"
                                      "remark = \"none\"\n");
    emulator::Simulator simulator(Unit(100.0));
    const Result result = RunShipped(CopyShipped("question-session.toml"),
                                     {"--answers", m_directory / "answers.toml"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["steps"].size(), 7U);
}

TEST_F(ShippedPlanTest, TheHolterBatch) {
    std::filesystem::create_directory(m_directory / "mitdb");
    std::istringstream plan(ReadFile(std::string(RAVO_EXAMPLE_PLANS) + "/holter-batch.toml"));
    for (std::string line; std::getline(plan, line);) {
        const std::regex record("mitdb/(\\d+)\\.hea");
        for (std::sregex_iterator it(line.begin(), line.end(), record), end; it != end; ++it) {
            WriteRecord("mitdb/" + (*it)[1].str());
        }
    }
    m_directory.Write("answers.toml", "recording = \"yes\"\n");
    const Result check = RunShipped(CopyShipped("holter-batch.toml"), {"--dry-run"});
    EXPECT_EQ(check.out.rfind("Holter batch: 50 steps, 48 materials, ", 0), 0U) << check.out;
    emulator::Simulator simulator(Unit(100.0));
    const Result result = RunShipped(CopyShipped("holter-batch.toml", 1),
                                     {"--answers", m_directory / "answers.toml"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["outcome"], "passed");
    EXPECT_EQ(Step("record[mitdb/101.hea]")["framesPlayed"], 2000);
}

TEST_F(ShippedPlanTest, TheBuiltInDatabase) {
    const Result check = RunShipped(CopyShipped("builtin-database.toml"), {"--dry-run"});
    EXPECT_EQ(check.out.rfind("CTS/CSE database with and without noise: 238 steps, ", 0), 0U)
        << check.out << check.err;
    emulator::Simulator simulator(Unit(100.0));
    const Result result = RunShipped(CopyShipped("builtin-database.toml", 1), {});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadResult()["steps"].size(), 2U * 4U);
    EXPECT_EQ(Step("record[BL_HF,builtin:ANE20002]")["seconds"], 10);
}
