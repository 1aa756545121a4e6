// The readers of plans and of answers: any text is refused with sentences or gives steps, each with
// a name of its own, and answers to their questions. The answers begin after a line "===".
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "lab/common/Failure.h"
#include "lab/plan/Answers.h"
#include "lab/plan/Plan.h"

#include <cstdio>
#include <set>
#include <string>

namespace {

constexpr const char* kDivider = "===\n";

// Faults are printed; the descriptor stays, so that a finding can be reported.
void Silence() {
    static FILE* const nowhere = std::fopen("/dev/null", "w");
    stderr = nowhere;
}

void Read(const std::string& planText, const std::string& answersText) {
    const auto& scratch = ScratchDirectory::Get();
    const lab::Plan plan =
        lab::ReadPlan(scratch.Write("plan.toml", planText.data(), planText.size()));
    std::set<std::string> names;
    for (const lab::PlannedStep& step : plan.steps) {
        Require(!step.stepName.empty() && names.insert(step.name).second);
    }
    Require(!plan.title.empty() && !plan.steps.empty());
    const auto answers = lab::ReadAnswers(
        scratch.Write("answers.toml", answersText.data(), answersText.size()), plan);
    Require(answers.size() <= plan.steps.size() * 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Silence();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto divider = text.find(kDivider);
    try {
        Read(text.substr(0, divider), divider == std::string::npos
                                          ? ""
                                          : text.substr(divider + std::string(kDivider).size()));
    } catch (const lab::Failure& failure) {
        Require(failure.Status() == lab::kUsage);
    }
    return 0;
}
