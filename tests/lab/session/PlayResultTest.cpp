#include "lab/session/Play.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

std::string SentenceOf(Ending ending, int64_t requests, bool isRefused = false) {
    PlayResult result;
    result.isRefused = isRefused;
    result.device = "/dev/ttyACM0";
    result.ending = ending;
    result.requests = requests;
    const std::optional<Failure> failure = FailureOf(result);
    return failure ? failure->Problem() : "";
}

} // namespace

// A simulator that is unplugged before its first request has not failed to start.
TEST(PlayResultTest, TheDisconnectionIsTheReasonBeforeAllElse) {
    EXPECT_EQ(SentenceOf(Ending::kLost, 0),
              "output ended after 0.000 s: the simulator was disconnected.");
    EXPECT_EQ(SentenceOf(Ending::kLost, 5),
              "output ended after 0.000 s: the simulator was disconnected.");
    EXPECT_EQ(SentenceOf(Ending::kLost, 0, true), "did not accept the start command.");
    EXPECT_EQ(SentenceOf(Ending::kShort, 0),
              "does not start: it asked for no data after the start command.");
    EXPECT_EQ(SentenceOf(Ending::kShort, 5),
              "output ended after 0.000 s: the simulator stopped asking for data.");
    EXPECT_EQ(SentenceOf(Ending::kFinished, 5), "");
}
