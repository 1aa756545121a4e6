#include "Scratch.h"

#include "lab/plan/Run.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

// "1 passed,-" for the second of two steps under way.
std::string Summary(const RunProgress& progress) {
    std::string text = progress.current ? std::to_string(*progress.current) : "";
    for (const RunProgress::Step& step : progress.steps) {
        text += (&step == &progress.steps.front() ? " " : ",") +
                (step.outcome.empty() ? "-" : step.outcome);
    }
    return text + (progress.outcome.empty() ? "" : " " + progress.outcome) + "\n";
}

} // namespace

TEST(RunObserverTest, IsToldOfEachStepAndOfTheEnd) {
    const Scratch scratch;
    RunRequest request;
    request.plan = scratch.Write("p.toml", "title = \"t\"\n[[step]]\nname = \"w\"\nwait = 0.01\n"
                                           "[[step]]\nname = \"q\"\nask = \"?\"\nmax = 1\n");
    request.answers = scratch.Write("a.toml", "q = 2\n");
    request.output = scratch / "out";
    std::string told;
    std::string last;
    request.observer = [&](const RunProgress& progress) {
        told += Summary(progress);
        last = progress.steps.back().kind + ": " + progress.steps.back().message;
    };
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunPlan(request), 5);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(told, "0 -,-\n0 passed,-\n1 passed,-\n1 passed,failed\n passed,failed failed\n");
    EXPECT_EQ(last, "ask: the answer is not within what passes");

    told.clear();
    request.isResumed = true;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunPlan(request), 5);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(told, " passed,-\n passed,failed\n passed,failed failed\n");
}
