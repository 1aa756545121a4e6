#include "lab/common/Failure.h"
#include "lab/common/WallClock.h"
#include "lab/evidence/Digest.h"
#include "lab/evidence/Journal.h"
#include "lab/evidence/Numbers.h"
#include "lab/evidence/Times.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace lab;
using json = nlohmann::ordered_json;

namespace {

// FIPS 180's example.
constexpr const char* kAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

std::string FailureOf(const std::function<void()>& act) {
    try {
        act();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return {};
}

json EventNumber(int number) {
    return {{"event", "begin"}, {"number", number}};
}

} // namespace

TEST(DigestTest, OfAFileAndOfAText) {
    const Scratch scratch;
    const FileDigest digest = DigestFile(scratch.Write("abc", "abc"));
    EXPECT_EQ(digest.sha256, kAbc);
    EXPECT_EQ(digest.bytes, 3);
    EXPECT_EQ(Sha256("abc"), kAbc);
    EXPECT_NE(FailureOf([&] { DigestFile(scratch / "none"); }), "");
}

TEST(DigestTest, PublishedOnesAreTakenByName) {
    const Scratch scratch;
    scratch.Write("SHA256SUMS.txt",
                  std::string(kAbc) + "  100.hea\n" + kAbc + " *sub/1.dat\r\nnonsense line\n");
    const auto published = PublishedDigests(scratch / ".");
    ASSERT_EQ(published.size(), 2U);
    EXPECT_EQ(published.at("100.hea"), kAbc);
    EXPECT_EQ(published.at("sub/1.dat"), kAbc);
    EXPECT_TRUE(PublishedDigests(scratch / "none").empty());
}

TEST(NumbersTest, AVerdictIsTakenOnWhatIsPrinted) {
    EXPECT_EQ(NumberText(1.10000000001), "1.1");
    EXPECT_EQ(AsPrinted(1.10000000001), 1.1);
    EXPECT_EQ(NumberText(-0.0), "0");
    EXPECT_EQ(Counted(1, "step") + ", " + Counted(0, "step"), "1 step, 0 steps");
    EXPECT_EQ(Rounded(359.99280014, 3), 359.993);
}

TEST(TimesTest, InstantsCompareAcrossZones) {
    EXPECT_EQ(InstantOf("1970-01-02T01:30:00.500+01:30"), 86400.5);
    EXPECT_EQ(InstantOf("1970-01-01T19:00:00.000-05:00"), 86400.0);
    EXPECT_EQ(InstantOf("yesterday"), 0.0);
    EXPECT_NEAR(InstantOf(WallClockNow()), static_cast<double>(std::time(nullptr)), 60.0);
}

TEST(TimesTest, Durations) {
    EXPECT_EQ(DurationText(59.6), "1:00");
    EXPECT_EQ(DurationText(3723), "1:02:03");
}

TEST(RunFolderTest, IsForOneRunAtATime) {
    const Scratch scratch;
    const RunFolder folder(scratch / "a/b", false);
    EXPECT_NE(FailureOf([&] { RunFolder(scratch / "a/b", true); }).find("is in use by another run"),
              std::string::npos);
}

TEST(RunFolderTest, AFolderThatHoldsSomethingIsTaken) {
    const Scratch scratch;
    scratch.Write("x", "");
    for (const bool mayHoldRun : {false, true}) {
        EXPECT_NE(
            FailureOf([&] { RunFolder(scratch / ".", mayHoldRun); }).find("holds files but no run"),
            std::string::npos);
    }
    scratch.Write("journal.jsonl", "{\"event\":\"run\"}\n");
    EXPECT_NE(FailureOf([&] { RunFolder(scratch / ".", false); }).find("is not empty"),
              std::string::npos);
    EXPECT_EQ(FailureOf([&] { RunFolder(scratch / ".", true); }), "");
}

TEST(RunFolderTest, ReplacesAFileAndLeavesNothingElse) {
    const Scratch scratch;
    const RunFolder folder(scratch / "out", false);
    folder.Replace("x", "one");
    folder.Replace("x", "two");
    EXPECT_EQ(ReadFile(scratch / "out/x"), "two");
    const std::filesystem::directory_iterator entries(scratch / "out");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(JournalTest, KeepsEventsOverProcesses) {
    const Scratch scratch;
    const RunFolder folder(scratch / "out", false);
    {
        Journal journal(folder);
        journal.Append(EventNumber(1));
        journal.Append(EventNumber(2));
    }
    const Journal again(folder);
    EXPECT_EQ(again.Events(), (std::vector<json>{EventNumber(1), EventNumber(2)}));
    EXPECT_EQ(ReadJournal(scratch / "out"), again.Events());
}

TEST(JournalTest, ATornLastLineIsDropped) {
    const Scratch scratch;
    for (const std::string torn : {"{\"event\":\"end\",\"st", "{", "\x01\x02\n"}) {
        std::filesystem::remove_all(scratch / "out");
        const RunFolder folder(scratch / "out", false);
        scratch.Write("out/journal.jsonl", "{\"event\":\"begin\",\"number\":1}\n" + torn);
        {
            Journal journal(folder);
            EXPECT_EQ(journal.Events(), std::vector<json>{EventNumber(1)});
            journal.Append(EventNumber(2));
        }
        EXPECT_EQ(ReadFile(scratch / "out/journal.jsonl"), "{\"event\":\"begin\",\"number\":1}\n"
                                                           "{\"event\":\"begin\",\"number\":2}\n");
    }
}

TEST(JournalTest, ADamagedLineIsRefused) {
    const Scratch scratch;
    const RunFolder folder(scratch / "out", false);
    scratch.Write("out/journal.jsonl", "{\"event\":\"run\"}\nrubbish\n{\"event\":\"end\"}\n");
    EXPECT_NE(
        FailureOf([&] { Journal journal(folder); }).find("is damaged: line 2 is not an event"),
        std::string::npos);
}

TEST(JournalTest, AFolderThatWasRemovedIsMadeAgainWithTheWholeJournal) {
    const Scratch scratch;
    const RunFolder folder(scratch / "out", false);
    Journal journal(folder);
    journal.Append(EventNumber(1));
    std::filesystem::remove_all(scratch / "out");
    EXPECT_NE(FailureOf([&] { journal.Append(EventNumber(2)); }).find("was removed while the run"),
              std::string::npos);
    EXPECT_EQ(ReadJournal(scratch / "out"), std::vector<json>{EventNumber(1)});
}

TEST(JournalTest, AFolderThatWasMovedKeepsItsJournal) {
    const Scratch scratch;
    const RunFolder folder(scratch / "out", false);
    Journal journal(folder);
    journal.Append(EventNumber(1));
    std::filesystem::rename(scratch / "out", scratch / "moved");
    EXPECT_NE(FailureOf([&] { journal.Append(EventNumber(2)); }).find("was moved away"),
              std::string::npos);
    EXPECT_EQ(ReadJournal(scratch / "moved"), std::vector<json>{EventNumber(1)});
}
