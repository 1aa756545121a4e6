#include "lab/plan/Fields.h"
#include "lab/plan/Plan.h"
#include "lab/plan/ScoreTask.h"

#include "lab/common/Failure.h"
#include "lab/material/Builtin.h"
#include "lab/material/Noise.h"
#include "lab/material/Recognition.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <tuple>

namespace lab {
namespace {

using Kind = TomlNode::Kind;

constexpr std::size_t kMostResults = 100'000;

// Fields by name: those of the step itself and, below them, the defaults.
using Values = std::map<std::string, const TomlEntry*>;

// One value for each key of the matrix.
struct Combination {
    std::vector<std::pair<const Field*, const TomlNode*>> values;
    std::string label; // "50HZ,2"
};

class PlanReader {
  public:
    explicit PlanReader(Plan& plan) : m_plan(plan) {}

    std::vector<Complaint> Read(const TomlNode& root) {
        for (const TomlEntry& entry : root.entries) {
            ReadTopLevel(entry);
        }
        if (root.Find("title") == nullptr) {
            Complain({1, 1}, "title", "is missing", "every plan has a text title");
        }
        const TomlEntry* steps = root.Find("step");
        if (steps == nullptr) {
            Complain({1, 1}, "step", "is missing", "every plan has at least one [[step]]");
        } else if (steps->value.kind == Kind::kList) {
            for (const TomlNode& step : steps->value.items) {
                ReadStep(step);
            }
        }
        return std::move(m_complaints);
    }

  private:
    void Complain(TomlPlace place, std::string field, std::string wrong, std::string allowed) {
        m_complaints.push_back({place, std::move(field), std::move(wrong), std::move(allowed)});
    }

    void ComplainOfValue(const TomlNode& value, const std::string& field,
                         const std::string& allowed) {
        Complain(value.place, field, "is " + Described(value), "it has to be " + allowed);
    }

    // ---- The plan -------------------------------------------------------------------------------

    void ReadTopLevel(const TomlEntry& entry) {
        if (entry.key == "title") {
            if (entry.value.kind == Kind::kText && !entry.value.text.empty()) {
                m_plan.title = entry.value.text;
            } else {
                ComplainOfValue(entry.value, "title", "a text that is not empty");
            }
        } else if (entry.key == "defaults") {
            ReadDefaults(entry);
        } else if (entry.key == "step") {
            if (!IsListOfTables(entry.value)) {
                ComplainOfValue(entry.value, "step", "a list of tables, each headed [[step]]");
            }
        } else {
            Complain(entry.place, entry.key, "is not a field of a plan",
                     "allowed are title, defaults, step");
        }
    }

    static bool IsListOfTables(const TomlNode& value) {
        return value.kind == Kind::kList &&
               std::all_of(value.items.begin(), value.items.end(),
                           [](const TomlNode& item) { return item.kind == Kind::kTable; });
    }

    void ReadDefaults(const TomlEntry& defaults) {
        if (defaults.value.kind != Kind::kTable) {
            ComplainOfValue(defaults.value, "defaults", "a table");
            return;
        }
        for (const TomlEntry& entry : defaults.value.entries) {
            const Field* field = FindField(entry.key);
            if (field == nullptr || entry.key == "name") {
                Complain(entry.place, entry.key,
                         field == nullptr ? "is not a field of a step"
                                          : "belongs to each step itself",
                         "allowed are " + FieldNamesBut("name"));
            } else if (CheckValue(*field, entry.value, kEveryKind)) {
                m_defaults[entry.key] = &entry;
            }
        }
    }

    static std::string FieldNamesBut(const std::string& name) {
        std::string names = FieldNames(kEveryKind);
        const std::string with = name + ", ";
        names.erase(names.find(", " + with) + 2, with.size());
        return names;
    }

    // True when the value is allowed.
    bool CheckValue(const Field& field, const TomlNode& value, unsigned kinds) {
        if (field.name == "matrix") {
            return CheckMatrix(value, kinds);
        }
        if (field.name == "score") {
            const auto complaints = ComplaintsOfScore(value);
            m_complaints.insert(m_complaints.end(), complaints.begin(), complaints.end());
            return complaints.empty();
        }
        const std::string allowed = field.refuse(value);
        if (!allowed.empty()) {
            ComplainOfValue(value, field.name, allowed);
        }
        return allowed.empty();
    }

    // ---- One step -------------------------------------------------------------------------------

    void ReadStep(const TomlNode& step) {
        const std::optional<StepKind> kind = KindOf(step);
        const std::string name = ReadName(step);
        bool isSound = kind && !name.empty();
        for (const TomlEntry& entry : step.entries) {
            isSound = CheckField(entry, kind) && isSound;
        }
        if (!isSound) {
            return;
        }
        Values values;
        for (const auto& [key, entry] : m_defaults) {
            if ((FindField(key)->kinds & MaskOf(*kind)) != 0) {
                values[key] = entry;
            }
        }
        for (const TomlEntry& entry : step.entries) {
            values[entry.key] = &entry;
        }
        Unfold(step, *kind, name, values);
    }

    // The step's kind, determined by its own fields or its matrix or, when these do not determine
    // it, by the defaults.
    std::optional<StepKind> KindOf(const TomlNode& step) {
        const TomlEntry* matrix = step.Find("matrix");
        std::vector<std::pair<const TomlEntry*, StepKind>> found;
        for (const auto& [name, kind] : KindFields()) {
            const TomlEntry* own = step.Find(name);
            const TomlEntry* entry =
                own == nullptr && matrix != nullptr ? matrix->value.Find(name) : own;
            if (entry != nullptr) {
                found.emplace_back(entry, kind);
            }
        }
        for (const auto& [name, kind] : KindFields()) {
            if (found.empty() && m_defaults.count(name) != 0) {
                found.emplace_back(m_defaults.at(name), kind);
            }
        }
        if (found.size() == 1) {
            return found.front().second;
        }
        if (found.empty()) {
            Complain(step.place, "step", "does nothing", "it has exactly one of " + KindNames());
        } else {
            Complain(found[1].first->place, found[1].first->key,
                     "stands beside " + found[0].first->key,
                     "a step has exactly one of " + KindNames());
        }
        return std::nullopt;
    }

    std::string ReadName(const TomlNode& step) {
        const TomlEntry* name = step.Find("name");
        if (name == nullptr) {
            Complain(step.place, "name", "is missing", "every step has a name of its own");
            return {};
        }
        if (!FindField("name")->refuse(name->value).empty()) {
            return {}; // reported together with the other fields
        }
        const auto [other, isNew] = m_names.emplace(name->value.text, name->place.line);
        if (!isNew) {
            Complain(name->value.place, "name",
                     Format("\"%s\" is the name of the step in line %u too",
                            name->value.text.c_str(), other->second),
                     "every step has a name of its own");
        }
        return isNew ? name->value.text : "";
    }

    // True when the entry belongs to a step of this kind and its value is allowed.
    bool CheckField(const TomlEntry& entry, std::optional<StepKind> kind) {
        const unsigned kinds = kind ? MaskOf(*kind) : kEveryKind;
        const Field* field = FindField(entry.key, kinds);
        if (field == nullptr) {
            const std::string what =
                kind ? Format("of a step of the kind %s", KindName(*kind)) : "of a step";
            Complain(entry.place, entry.key, "is not a field " + what,
                     "allowed are " + FieldNames(kinds));
            return false;
        }
        return CheckValue(*field, entry.value, kinds);
    }

    // ---- The matrix -----------------------------------------------------------------------------

    static bool MayVary(const std::string& key) {
        return key != "name" && key != "matrix" && key != "repeat" && FindField(key) != nullptr;
    }

    bool CheckMatrix(const TomlNode& matrix, unsigned kinds) {
        if (matrix.kind != Kind::kTable || matrix.entries.empty()) {
            ComplainOfValue(matrix, "matrix", "a table FIELD = [value, value, ...]");
            return false;
        }
        bool isSound = true;
        for (const TomlEntry& entry : matrix.entries) {
            isSound = CheckMatrixKey(entry, kinds) && isSound;
        }
        return isSound;
    }

    bool CheckMatrixKey(const TomlEntry& entry, unsigned kinds) {
        const std::string field = "matrix." + entry.key;
        if (!MayVary(entry.key)) {
            Complain(entry.place, field, "is not a field that can vary",
                     "allowed are all fields of a step except name, matrix, repeat");
            return false;
        }
        if (FindField(entry.key, kinds) == nullptr) {
            Complain(entry.place, field, "is not a field of a step of this kind",
                     "allowed are " + FieldNames(kinds));
            return false;
        }
        if (entry.value.kind != Kind::kList || entry.value.items.empty()) {
            ComplainOfValue(entry.value, field, "a list of at least one value");
            return false;
        }
        bool isSound = true;
        std::set<std::string> seen;
        for (const TomlNode& item : entry.value.items) {
            const std::string allowed = Refusal(entry.key, item, kinds);
            if (!allowed.empty()) {
                ComplainOfValue(item, field, allowed);
            } else if (!seen.insert(item.text).second) {
                Complain(item.place, field, "has " + Described(item) + " twice",
                         "every value appears once");
            } else {
                continue;
            }
            isSound = false;
        }
        return isSound;
    }

    // The values that all kinds with this field allow, when one of these kinds refuses the value.
    static std::string Refusal(const std::string& key, const TomlNode& value, unsigned kinds) {
        for (const auto& [name, kind] : KindFields()) {
            const Field* field = FindField(key, kinds & MaskOf(kind));
            std::string allowed = field == nullptr ? "" : field->refuse(value);
            if (!allowed.empty()) {
                return allowed;
            }
        }
        return "";
    }

    // The cross product, the last key changing fastest. Keys of defaults that do not fit the kind
    // are left out like other defaults.
    static std::vector<Combination> Combine(const TomlNode& matrix, StepKind kind) {
        std::vector<Combination> combinations(1);
        for (const TomlEntry& entry : matrix.entries) {
            const Field* field = FindField(entry.key, MaskOf(kind));
            if (field == nullptr) {
                continue;
            }
            std::vector<Combination> longer;
            for (const Combination& shorter : combinations) {
                for (const TomlNode& item : entry.value.items) {
                    longer.push_back(shorter);
                    longer.back().values.emplace_back(field, &item);
                    longer.back().label += (shorter.values.empty() ? "" : ",") + item.text;
                }
                if (longer.size() > kMostResults) {
                    return longer;
                }
            }
            combinations = std::move(longer);
        }
        return combinations;
    }

    // ---- Steps as they will be carried out ------------------------------------------------------

    void Unfold(const TomlNode& step, StepKind kind, const std::string& name,
                const Values& values) {
        const auto matrix = values.find("matrix");
        const auto repeat = values.find("repeat");
        const int64_t repetitions = repeat == values.end() ? 1 : repeat->second->value.whole;
        const auto combinations = matrix == values.end() ? std::vector<Combination>(1)
                                                         : Combine(matrix->second->value, kind);
        if (m_plan.steps.size() + combinations.size() * static_cast<std::size_t>(repetitions) >
            kMostResults) {
            Complain(step.place, "step", "makes the plan longer than 100,000 results",
                     "fewer repetitions and combinations");
            return;
        }
        for (const Combination& combination : combinations) {
            PlannedStep planned = Build(step, kind, values, combination);
            CheckTogether(planned, values);
            planned.stepName = name;
            const std::string label =
                combination.values.empty() ? name : name + "[" + combination.label + "]";
            for (int64_t n = 1; n <= repetitions; ++n) {
                planned.name = repeat == values.end() || repetitions == 1
                                   ? label
                                   : label + "#" + std::to_string(n);
                m_plan.steps.push_back(planned);
            }
        }
    }

    PlannedStep Build(const TomlNode& step, StepKind kind, const Values& values,
                      const Combination& combination) const {
        PlannedStep planned;
        planned.kind = kind;
        planned.place = step.place;
        std::map<std::string, const TomlNode*> effective;
        for (const auto& [key, entry] : values) {
            effective[key] = &entry->value;
        }
        for (const auto& [field, value] : combination.values) {
            effective[field->name] = value;
        }
        for (const auto& [key, value] : effective) {
            const Field* field = FindField(key, MaskOf(kind));
            field->set(planned, *value);
            if (field->isOption) {
                planned.options.emplace_back(key, *value);
            }
        }
        ResolvePaths(planned);
        return planned;
    }

    void ResolvePaths(PlannedStep& step) const {
        MaterialRequest& material = step.play.material;
        material.name = PathFromPlan(step.material);
        if (!material.noise.empty()) {
            material.noise = PathFromPlan(material.noise);
        }
        if (!material.builtinNoise.empty() && !IsBuiltinNoise(material.builtinNoise)) {
            material.builtinNoise = PathFromPlan(material.builtinNoise);
        }
    }

    std::string PathFromPlan(const std::string& name) const {
        const bool isPath = !name.empty() && name.front() != '/' && !IsBuiltin(name) &&
                            Recognise(name, "wfdb") != MaterialKind::kWaveform;
        return isPath && m_plan.folder != "." ? m_plan.folder + "/" + name : name;
    }

    // Checks that concern several fields.
    void CheckTogether(const PlannedStep& step, const Values& values) {
        const auto place = [&](const char* field) {
            const auto found = values.find(field);
            return found == values.end() ? step.place : found->second->value.place;
        };
        const Question& question = step.question;
        if (question.min && question.max && *question.min > *question.max) {
            Complain(place("min"), "min", Format("%g is above max", *question.min),
                     Format("a number up to %g", *question.max));
        }
        if (!question.choices.empty() && question.IsNumber()) {
            Complain(place("choices"), "choices", "are given together with unit, min or max",
                     "a question has choices or limits");
        }
        if (step.play.loop && step.play.seconds == 0.0) {
            Complain(place("loop"), "loop", "has no end", "seconds says how long a loop plays");
        }
        const bool hasRatio = std::any_of(step.options.begin(), step.options.end(),
                                          [](const auto& o) { return o.first == "snr"; });
        if (hasRatio && step.play.material.noise.empty()) {
            Complain(place("snr"), "snr", "is given without noise-record",
                     "it is the ratio to a noise record");
        }
    }

    Plan& m_plan;
    std::vector<Complaint> m_complaints;
    Values m_defaults;
    std::map<std::string, unsigned> m_names; // with their lines
};

std::string FolderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

} // namespace

const char* KindName(StepKind kind) {
    for (const auto& [name, value] : KindFields()) {
        if (value == kind) {
            return name.c_str();
        }
    }
    return "";
}

std::string ReadWholeFile(const std::string& path, ExitStatus status, const std::string& cure) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        Fail(status, path, "is a folder.", cure);
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        Fail(status, path, Format("cannot be read: %s.", std::strerror(errno)), cure);
    }
    return content;
}

void RequireNone(const std::string& path, std::vector<Complaint> complaints) {
    if (complaints.empty()) {
        return;
    }
    std::stable_sort(
        complaints.begin(), complaints.end(), [](const Complaint& a, const Complaint& b) {
            return std::tie(a.place.line, a.place.column) < std::tie(b.place.line, b.place.column);
        });
    std::string former;
    std::size_t count = 0;
    for (const Complaint& complaint : complaints) {
        const std::string line =
            Format("%s:%u:%u: %s: %s; %s\n", Printable(path).c_str(), complaint.place.line,
                   complaint.place.column, Printable(complaint.field).c_str(),
                   complaint.wrong.c_str(), complaint.allowed.c_str());
        if (line != former) { // every combination of a matrix would report it again
            std::fputs(line.c_str(), stderr);
            ++count;
        }
        former = line;
    }
    Fail(kUsage, path, count == 1 ? "has an error." : Format("has %zu errors.", count),
         "Nothing was played.");
}

Plan ReadPlan(const std::string& path) {
    Plan plan;
    plan.path = path;
    plan.folder = FolderOf(path);
    plan.text = ReadWholeFile(path, kUsage, "`ravo run --example` writes a plan to begin with.");
    try {
        RequireNone(path, PlanReader(plan).Read(ReadToml(plan.text)));
    } catch (const TomlError& error) {
        RequireNone(path, {{error.Place(), "TOML", error.what(), "a plan is a TOML file"}});
    }
    return plan;
}

} // namespace lab
