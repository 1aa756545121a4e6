#pragma once

#include "lab/common/Failure.h"
#include "lab/plan/ScoreTask.h"
#include "lab/plan/Toml.h"
#include "lab/session/Play.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// A test plan: the steps that `ravo run` carries out, one after the other.
namespace lab {

enum class StepKind { kMaterial, kAsk, kWait, kHook, kScore };

// "material", "ask", "wait", "hook" or "score"
const char* KindName(StepKind kind);

// A question to the operator, and which answers pass.
struct Question {
    std::string text;
    std::string unit;
    std::optional<double> min;
    std::optional<double> max;
    std::vector<std::string> choices;

    bool IsNumber() const { return min || max || !unit.empty(); }
};

// One result to come: a step of the plan with one combination of its matrix, in one repetition.
struct PlannedStep {
    std::string name;     // of the result: NAME, NAME[value,value], NAME#2, NAME[value]#2
    std::string stepName; // in the plan
    StepKind kind = StepKind::kMaterial;
    TomlPlace place;    // of the step in the plan
    double pause = 0.0; // seconds of pause afterwards

    PlayRequest play;                                      // of material; paths as they are opened
    std::string material;                                  // as the plan names it
    std::vector<std::pair<std::string, TomlNode>> options; // of the material, by long name
    std::map<std::string, std::string> sha256;             // file, as the plan names it: digest

    Question question;
    double wait = 0.0; // seconds
    std::vector<std::string> hook;
    double timeout = 60.0; // of the hook, seconds
    ScoreTask score;
};

struct Plan {
    std::string path;   // as given
    std::string folder; // that its paths are relative to; "." or a path
    std::string text;
    std::string title;
    std::vector<PlannedStep> steps;
};

// Reads a plan and unfolds its steps. Prints all faults of a plan that has any, and then fails.
Plan ReadPlan(const std::string& path);

// Prints the complaints, one line each, in the order of their places, and fails when there are any.
void RequireNone(const std::string& path, std::vector<Complaint> complaints);

// The content of a file; fails with `status` when it cannot be read.
std::string ReadWholeFile(const std::string& path, ExitStatus status, const std::string& cure);

} // namespace lab
