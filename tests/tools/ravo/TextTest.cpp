#include "lab/common/Suggestion.h"
#include "lab/common/TimeText.h"
#include "lab/common/WallClock.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <regex>

namespace lab {

TEST(TimeTextTest, SecondsMinutesAndHoursAreRead) {
    EXPECT_EQ(SecondsFromText("0"), 0.0);
    EXPECT_EQ(SecondsFromText("90.5"), 90.5);
    EXPECT_EQ(SecondsFromText("1:30"), 90.0);
    EXPECT_EQ(SecondsFromText("1:30.25"), 90.25);
    EXPECT_EQ(SecondsFromText("90:00"), 5400.0);
    EXPECT_EQ(SecondsFromText("2:00:01.5"), 7201.5);
}

TEST(TimeTextTest, EverythingElseIsRefused) {
    for (const char* text : {"", " 1", "-1", "+1", "1e3", "1.", ".5", "1:", ":1", "1:60", "1:60:00",
                             "1.5:00", "1:2:3:4", "nan", "1,5", "0x10"}) {
        EXPECT_EQ(SecondsFromText(text), std::nullopt) << text;
    }
}

TEST(TimeTextTest, TheClockCountsMinutesSecondsAndTenths) {
    EXPECT_EQ(ClockText(0.0), "0:00.0");
    EXPECT_EQ(ClockText(59.99), "0:59.9");
    EXPECT_EQ(ClockText(3661.25), "61:01.2");
}

TEST(SuggestionTest, TheNearestIsFound) {
    const std::vector<std::string> words = {"CAL20000", "CAL20002", "50HZ", "rectangle-pulse"};
    EXPECT_EQ(Nearest("cal20000", words), "CAL20000");
    EXPECT_EQ(Nearest("CAL2000", words), "CAL20000");
    EXPECT_EQ(Nearest("CLA20002", words), "CAL20002");
    EXPECT_EQ(Nearest("50hz", words), "50HZ");
    EXPECT_EQ(Nearest("rectangle", words), "rectangle-pulse");
    EXPECT_EQ(Nearest("builtin:CAL20000", words), "CAL20000");
    EXPECT_EQ(Nearest("dance", words), "");
    EXPECT_EQ(Nearest("200", words), "");
    EXPECT_EQ(Nearest("", words), "");
}

TEST(WallClockTest, TimesCarryTheirOffset) {
    ::setenv("TZ", "XST-05:30", 1);
    ::tzset();
    const std::string now = WallClockNow();
    EXPECT_TRUE(
        std::regex_match(now, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+05:30)")))
        << now;
    EXPECT_EQ(WallClockText(0), "");
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    const int64_t monotonic = int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
    EXPECT_GE(WallClockText(monotonic), now);
}

} // namespace lab
