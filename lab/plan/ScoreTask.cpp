#include "lab/plan/ScoreTask.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Numbers.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

namespace lab {
namespace {

using score::Rational;
using Kind = TomlNode::Kind;

constexpr const char* kAllowed =
    "allowed are reference, test, reference-suffix, test-suffix, learning, window, offset, "
    "clock-ppm, align, and limits FIGURE_min and FIGURE_max of figures such as qrs_se, qrs_ppv, "
    "veb_se, sveb_fpr, average_qrs_se";

// ---- The fields ---------------------------------------------------------------------------------

struct NumberField {
    const char* name;
    double least;
    double most;
    Rational score::Rules::*rule;
    int64_t divisor; // converts the field's unit to that of the rule
};

constexpr double kLongest = 1e9; // seconds

const std::vector<NumberField>& NumberFields() {
    static const std::vector<NumberField> fields = {
        {"learning", -kLongest, kLongest, &score::Rules::learning, 1},
        {"window", 0.0, 10'000.0, &score::Rules::window, 1000},
        {"offset", -kLongest, kLongest, &score::Rules::offset, 1},
        {"clock-ppm", -500'000.0, 500'000.0, &score::Rules::clockPpm, 1}};
    return fields;
}

struct TextField {
    const char* name;
    std::string score::ScoreRequest::*member;
};

constexpr std::array<TextField, 4> kTextFields = {
    {{"reference", &score::ScoreRequest::reference},
     {"test", &score::ScoreRequest::test},
     {"reference-suffix", &score::ScoreRequest::referenceSuffix},
     {"test-suffix", &score::ScoreRequest::testSuffix}}};

template <class Fields>
auto FindByName(const Fields& fields, const std::string& name) {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const auto& field) { return field.name == name; });
    return found == fields.end() ? nullptr : &*found;
}

// The number as written, without the separators that TOML allows.
std::string Digits(const TomlNode& value) {
    std::string text = value.kind == Kind::kWhole ? std::to_string(value.whole) : value.text;
    text.erase(std::remove(text.begin(), text.end(), '_'), text.end());
    return text;
}

std::string RefuseWithin(const TomlNode& value, double least, double most) {
    return value.IsNumber() && value.number >= least && value.number <= most
               ? ""
               : "a number from " + NumberText(least) + " to " + NumberText(most);
}

// In the unit of the rule; nothing where the value has more digits than are kept exactly.
std::optional<Rational> RuleOf(const NumberField& field, const TomlNode& value) {
    try {
        const auto decimal = score::ParseDecimal(Digits(value));
        return decimal ? std::optional(Rational(*decimal) * Rational(1, field.divisor))
                       : std::nullopt;
    } catch (const std::overflow_error&) {
        return std::nullopt;
    }
}

// The values allowed, when this one is not.
std::string RefuseEntry(const TomlEntry& entry) {
    const TomlNode& value = entry.value;
    if (const NumberField* field = FindByName(NumberFields(), entry.key)) {
        const std::string allowed = RefuseWithin(value, field->least, field->most);
        return allowed.empty() && !RuleOf(*field, value) ? "a number of fewer digits" : allowed;
    }
    if (FindByName(kTextFields, entry.key) != nullptr) {
        return value.kind == Kind::kText && !value.text.empty() ? "" : "a text that is not empty";
    }
    if (entry.key == "align") {
        return value.kind == Kind::kTruth ? "" : "true or false";
    }
    return RefuseWithin(value, 0.0, 1.0);
}

bool IsField(const std::string& name) {
    return FindByName(NumberFields(), name) != nullptr ||
           FindByName(kTextFields, name) != nullptr || name == "align" || score::ParseLimit(name);
}

void ComplainTogether(const TomlNode& table, std::vector<Complaint>& complaints) {
    for (const char* name : {"reference", "test"}) {
        if (table.Find(name) == nullptr) {
            complaints.push_back({table.place, std::string("score.") + name, "is missing",
                                  "a score has a reference and a test"});
        }
    }
    const TomlEntry* align = table.Find("align");
    for (const char* name : {"offset", "clock-ppm"}) {
        const TomlEntry* entry = table.Find(name);
        if (entry != nullptr && align != nullptr && align->value.truth) {
            complaints.push_back({entry->place, std::string("score.") + name,
                                  "is given together with align", "the clock is stated or found"});
        }
    }
}

} // namespace

std::vector<Complaint> ComplaintsOfScore(const TomlNode& table) {
    if (table.kind != Kind::kTable) {
        return {{table.place, "score", "is " + Described(table),
                 "it has to be a table { reference = FILE, test = FILE, FIGURE_min = NUMBER }"}};
    }
    std::vector<Complaint> complaints;
    for (const TomlEntry& entry : table.entries) {
        const std::string field = "score." + entry.key;
        if (!IsField(entry.key)) {
            complaints.push_back({entry.place, field, "is not a field of a score", kAllowed});
            continue;
        }
        const std::string allowed = RefuseEntry(entry);
        if (!allowed.empty()) {
            complaints.push_back({entry.value.place, field, "is " + Described(entry.value),
                                  "it has to be " + allowed});
        }
    }
    ComplainTogether(table, complaints);
    return complaints;
}

ScoreTask ReadScore(const TomlNode& table) {
    ScoreTask task;
    for (const TomlEntry& entry : table.entries) {
        if (const TextField* field = FindByName(kTextFields, entry.key)) {
            task.request.*field->member = entry.value.text;
        } else if (const NumberField* number = FindByName(NumberFields(), entry.key)) {
            task.request.rules.*number->rule = *RuleOf(*number, entry.value);
        } else if (entry.key == "align") {
            task.request.aligns = entry.value.truth;
        } else {
            task.limits.push_back({entry.key, *score::ParseLimit(entry.key), entry.value.number});
        }
    }
    return task;
}

score::ScoreRequest RequestIn(const ScoreTask& task, const std::string& folder) {
    score::ScoreRequest request = task.request;
    for (std::string* path : {&request.reference, &request.test}) {
        *path = path->front() == '/' || folder == "." ? *path : folder + "/" + *path;
    }
    return request;
}

std::vector<std::string> ReferenceFiles(const ScoreTask& task, const std::string& folder) {
    const score::ScoreRequest request = RequestIn(task, folder);
    return score::FilesOfSide(request.reference, request.referenceSuffix);
}

} // namespace lab
