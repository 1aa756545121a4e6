#include "builtin/NeutralText.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

class NeutralText : public testing::Test {
  protected:
    void TearDown() override { std::remove(m_path.c_str()); }

    void Write(const std::string& text) { std::ofstream(m_path) << text; }

    // The sentence with which reading two columns of two samples fails.
    std::string Failure() {
        try {
            ctscse::ReadNeutralText(m_path, 2, 2);
        } catch (const std::runtime_error& error) {
            const std::string sentence = error.what();
            return sentence.substr(sentence.find(m_path) == 0 ? m_path.size() : 0);
        }
        return "no failure";
    }

    const std::string m_path = testing::TempDir() + "neutral_" +
                               testing::UnitTest::GetInstance()->current_test_info()->name() +
                               ".txt";
};

TEST_F(NeutralText, ReadsBothUnits) {
    Write("unit uV\n1500 -2\n# a comment\n\n3;4\n");
    const ctscse::Table microvolts = ctscse::ReadNeutralText(m_path, 2, 2);
    EXPECT_EQ(microvolts.columns,
              (std::vector<std::vector<double>>{{1.5, 0.003}, {-0.002, 0.004}}));

    Write("unit mV\n1.5,-2e-3\n0.003\t0.004");
    EXPECT_EQ(ctscse::ReadNeutralText(m_path, 2, 2).columns, microvolts.columns);
}

TEST_F(NeutralText, ReadsBackWhatItWrites) {
    ctscse::WriteNeutralText(m_path, {{{0.125, -1.5}, {2.0, 0.001}}}, "made up");
    EXPECT_EQ(ctscse::ReadNeutralText(m_path, 2, 2).columns,
              (std::vector<std::vector<double>>{{0.125, -1.5}, {2.0, 0.001}}));
}

TEST_F(NeutralText, SaysWhatIsWrongAndWhere) {
    EXPECT_EQ(Failure(), ": cannot be read");
    Write("1 2\n3 4\n");
    EXPECT_EQ(Failure(), ", line 1: expected \"unit uV\" or \"unit mV\" before the samples");
    Write("unit V\n");
    EXPECT_EQ(Failure(), ", line 1: expected \"unit uV\" or \"unit mV\" before the samples");
    Write("unit uV\n1 2\n3\n");
    EXPECT_EQ(Failure(), ", line 3: expected 2 values, found 1");
    Write("unit uV\n1 2\n3 x4\n");
    EXPECT_EQ(Failure(), ", line 3: \"x4\" is not a number");
    Write("unit uV\n1 2\n3 nan\n");
    EXPECT_EQ(Failure(), ", line 3: \"nan\" is not a number");
    Write("unit uV\n1 2\n");
    EXPECT_EQ(Failure(), ", line 2: expected 2 samples, found 1");
    Write("unit uV\n1 2\n3 4\n5 6\n");
    EXPECT_EQ(Failure(), ", line 4: expected 2 samples, found 3");
    Write("");
    EXPECT_EQ(Failure(), ", line 0: expected 2 samples, found 0");
}

} // namespace
