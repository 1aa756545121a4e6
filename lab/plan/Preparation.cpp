#include "lab/plan/Preparation.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Numbers.h"
#include "lab/evidence/Times.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <sys/statvfs.h>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

// A generous estimate of what a run writes for each result and each material: journal, result,
// reports.
constexpr double kBytesPerStep = 8'000.0;
constexpr double kBytesPerMaterial = 120'000.0;
constexpr double kBytesAtLeast = 200'000.0;

void RequireStepName(const Plan& plan, const std::string& option, const std::string& name) {
    const bool isKnown =
        name.empty() || std::any_of(plan.steps.begin(), plan.steps.end(),
                                    [&](const auto& step) { return step.stepName == name; });
    if (!isKnown) {
        Fail(kUsage, option + " " + name, "is not a step of " + Printable(plan.path) + ".",
             "--only and --from take a step's name as the plan gives it.");
    }
}

} // namespace

std::vector<bool> SelectSteps(const Plan& plan, const RunRequest& request) {
    RequireStepName(plan, "--only", request.only);
    RequireStepName(plan, "--from", request.from);
    std::vector<bool> isSelected;
    bool hasBegun = request.from.empty();
    for (const PlannedStep& step : plan.steps) {
        hasBegun = hasBegun || step.stepName == request.from;
        isSelected.push_back(hasBegun && (request.only.empty() || step.stepName == request.only));
    }
    return isSelected;
}

void RequireSpace(const std::string& output, std::size_t steps, std::size_t materials) {
    std::filesystem::path folder = std::filesystem::absolute(output);
    std::error_code ignored;
    while (!std::filesystem::exists(folder, ignored) && folder.has_relative_path()) {
        folder = folder.parent_path();
    }
    const double needed = kBytesAtLeast + kBytesPerStep * static_cast<double>(steps) +
                          kBytesPerMaterial * static_cast<double>(materials);
    struct statvfs state {};
    if (::statvfs(folder.c_str(), &state) == 0 &&
        static_cast<double>(state.f_bavail) * static_cast<double>(state.f_frsize) < needed) {
        Fail(kCannotWrite, output,
             Format("has too little space left: this run may need %.1f MB.", needed / 1e6),
             "Make room, or give --output another folder.");
    }
}

void PrintForecast(const RunRequest& request, const Plan& plan, const Checks& checks,
                   const std::vector<bool>& isSelected) {
    const auto steps = std::count(isSelected.begin(), isSelected.end(), true);
    const double seconds = checks.seconds / request.speedUp;
    if (request.isJson) {
        json forecast;
        forecast["title"] = plan.title;
        forecast["steps"] = steps;
        forecast["materials"] = checks.materials.size();
        forecast["seconds"] = seconds;
        std::printf("%s\n", forecast.dump().c_str());
    } else {
        std::printf("%s: %s, %s, %s\n", Printable(plan.title).c_str(),
                    Counted(static_cast<std::size_t>(steps), "step").c_str(),
                    Counted(checks.materials.size(), "material").c_str(),
                    DurationText(seconds).c_str());
    }
}

void WarnOfMaterial(const Checks& checks) {
    std::set<std::string> told;
    const auto warn = [&](const std::string& sentence) {
        if (told.insert(sentence).second) {
            Warn(sentence);
        }
    };
    for (const CheckedMaterial& material : checks.materials) {
        for (const std::string& warning : material.warnings) {
            warn(warning);
        }
        for (const auto& [lead, millivolts] : material.clipped) {
            warn(Format("%s: lead %s reaches %.3f mV and is clipped", material.record.c_str(),
                        lead.c_str(), millivolts));
        }
    }
}

} // namespace lab
