#include "lab/plan/Run.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

using namespace lab;

namespace {

// "1 passed,-" while the second of two steps is under way.
std::string Summary(const RunProgress& progress) {
    std::string text = progress.current ? std::to_string(*progress.current) : "";
    for (const RunProgress::Step& step : progress.steps) {
        text += (&step == &progress.steps.front() ? " " : ",") +
                (step.outcome.empty() ? "-" : step.outcome);
    }
    return text + (progress.outcome.empty() ? "" : " " + progress.outcome) + "\n";
}

class Notes : public RunObserver {
  public:
    void Progress(const RunProgress& progress) override {
        told += Summary(progress);
        left += Format("%.2f ", progress.left);
        last = progress.steps.back().kind + ": " + progress.steps.back().message;
    }
    void Connected(const SimulatorInformation& /*simulator*/) override {}
    void PlayBegun(const std::string& /*material*/, const PlayRequest& /*request*/,
                   const Record& /*record*/) override {}
    void PlayEnded(const PlayResult& /*result*/) override {}

    std::string told;
    std::string left;
    std::string last;
};

} // namespace

TEST(RunObserverTest, IsToldOfEachStepAndOfTheEnd) {
    const Scratch scratch;
    RunRequest request;
    request.plan = scratch.Write("p.toml", "title = \"t\"\n[[step]]\nname = \"w\"\nwait = 0.01\n"
                                           "[[step]]\nname = \"q\"\nask = \"?\"\nmax = 1\n");
    request.answers = scratch.Write("a.toml", "q = 2\n");
    request.output = scratch / "out";
    Notes notes;
    request.observer = &notes;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunPlan(request), 5);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(notes.told,
              "0 -,-\n0 passed,-\n1 passed,-\n1 passed,failed\n passed,failed failed\n");
    EXPECT_EQ(notes.last, "ask: the answer is not one that passes");

    notes.told.clear();
    request.isResumed = true;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunPlan(request), 5);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(notes.told, " passed,-\n passed,failed\n passed,failed failed\n");
}

// Determined by the steps and pauses still to come, whatever time the present one has taken.
TEST(RunObserverTest, TheTimeThatIsLeftFallsWithEachStepAndPause) {
    const Scratch scratch;
    RunRequest request;
    request.plan = scratch.Write("p.toml", "title = \"t\"\n[defaults]\npause = 8\n"
                                           "[[step]]\nname = \"a\"\nwait = 4\n"
                                           "[[step]]\nname = \"b\"\nwait = 2\npause = 0\n"
                                           "[[step]]\nname = \"q\"\nask = \"?\"\n");
    request.answers = scratch.Write("a.toml", "q = 2\n");
    request.output = scratch / "out";
    request.speedUp = 100.0;
    Notes notes;
    request.observer = &notes;
    for (const char* left : {// a: 0.04 and 0.08, b: 0.02, q: 0.08
                             "0.22 0.18 0.10 0.08 0.08 0.08 0.00 ",
                             // the same run resumed: one step after the other is done already
                             "0.10 0.08 0.00 0.00 "}) {
        notes.left.clear();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(RunPlan(request), 0);
        testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(notes.left, left);
        request.isResumed = true;
    }
}
