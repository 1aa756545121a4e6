#include "lab/plan/Fields.h"

#include "lab/common/Failure.h"
#include "lab/plan/ScoreTask.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

namespace lab {
namespace {

using Kind = TomlNode::Kind;
using Refuse = std::function<std::string(const TomlNode&)>;

constexpr unsigned kMaterialOnly = MaskOf(StepKind::kMaterial);
constexpr unsigned kAskOnly = MaskOf(StepKind::kAsk);
constexpr unsigned kHookOnly = MaskOf(StepKind::kHook);
constexpr unsigned kWaitOnly = MaskOf(StepKind::kWait);
constexpr unsigned kScoreOnly = MaskOf(StepKind::kScore);

constexpr std::size_t kDigestLength = 64;
constexpr double kLongest = 1e8; // seconds

// ---- Which values are allowed -------------------------------------------------------------------

std::string Plain(double number) {
    std::string text = Format("%.6f", number);
    text.erase(text.find_last_not_of('0') + 1);
    return text.back() == '.' ? text.substr(0, text.size() - 1) : text;
}

bool IsWithin(const TomlNode& value, double least, double most) {
    return value.IsNumber() && value.number >= least && value.number <= most;
}

Refuse Number(double least, double most) {
    return [=](const TomlNode& value) {
        return IsWithin(value, least, most)
                   ? std::string()
                   : "a number from " + Plain(least) + " to " + Plain(most);
    };
}

Refuse Whole(double least, double most) {
    return [=](const TomlNode& value) {
        return value.kind == Kind::kWhole && IsWithin(value, least, most)
                   ? std::string()
                   : "a whole number from " + Plain(least) + " to " + Plain(most);
    };
}

std::string RefuseFinite(const TomlNode& value) {
    return value.IsNumber() && std::isfinite(value.number) ? "" : "a number";
}

std::string RefuseText(const TomlNode& value) {
    return value.kind == Kind::kText && !value.text.empty() ? "" : "a text that is not empty";
}

std::string RefuseAnyText(const TomlNode& value) {
    return value.kind == Kind::kText ? "" : "a text";
}

std::string RefuseTruth(const TomlNode& value) {
    return value.kind == Kind::kTruth ? "" : "true or false";
}

std::string RefuseTexts(const TomlNode& value) {
    const bool isAllowed =
        value.kind == Kind::kList && !value.items.empty() &&
        std::all_of(value.items.begin(), value.items.end(), [](const TomlNode& item) {
            return item.kind == Kind::kText && !item.text.empty();
        });
    return isAllowed ? "" : "a list of texts that are not empty";
}

std::string RefuseName(const TomlNode& value) {
    constexpr const char* kLetters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    const bool isAllowed = value.kind == Kind::kText && !value.text.empty() &&
                           value.text.find_first_not_of(kLetters) == std::string::npos;
    return isAllowed ? "" : "a text of letters, digits, \".\", \"_\" and \"-\"";
}

Refuse OneOf(std::vector<std::string> texts) {
    return [texts = std::move(texts)](const TomlNode& value) {
        std::string allowed;
        for (const std::string& text : texts) {
            if (value.kind == Kind::kText && value.text == text) {
                return std::string();
            }
            allowed += (allowed.empty() ? "" : ", ") + text;
        }
        return "one of " + allowed;
    };
}

std::string RefuseAmplitude(const TomlNode& value) {
    const auto isAmplitude = [](const TomlNode& item) { return IsWithin(item, -10.0, 10.0); };
    const bool isList = value.kind == Kind::kList && value.items.size() == kOutputCount;
    return isAmplitude(value) ||
                   (isList && std::all_of(value.items.begin(), value.items.end(), isAmplitude))
               ? ""
               : "a number from -10 to 10, or a list of eight";
}

std::string RefuseMap(const TomlNode& value) {
    const bool isAllowed =
        value.kind == Kind::kTable &&
        std::all_of(value.entries.begin(), value.entries.end(), [](const TomlEntry& entry) {
            return entry.value.kind == Kind::kText && LeadFromName(entry.value.text);
        });
    return isAllowed ? "" : "a table SIGNAL = \"LEAD\" with the leads I, II, V1 to V6 and none";
}

// A factor for all leads or one for each.
std::string RefuseGain(const TomlNode& value) {
    const auto isFactor = [](const TomlNode& item) { return IsWithin(item, -1000.0, 1000.0); };
    const bool isTable =
        value.kind == Kind::kTable && !value.entries.empty() &&
        std::all_of(value.entries.begin(), value.entries.end(), [&](const TomlEntry& entry) {
            const auto lead = LeadFromName(entry.key);
            return lead && *lead != ECG_LEAD_NONE && isFactor(entry.value);
        });
    return isTable || isFactor(value)
               ? ""
               : "a number from -1000 to 1000, or a table LEAD = NUMBER with the leads I, II, V1 "
                 "to V6";
}

bool IsDigest(const TomlNode& value) {
    return value.kind == Kind::kText && value.text.size() == kDigestLength &&
           value.text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::string RefuseDigests(const TomlNode& value) {
    const bool isAllowed =
        value.kind == Kind::kTable && !value.entries.empty() &&
        std::all_of(value.entries.begin(), value.entries.end(),
                    [](const TomlEntry& entry) { return IsDigest(entry.value); });
    return isAllowed ? "" : "a table \"FILE\" = \"64 hexadecimal digits\"";
}

// ---- What they set ------------------------------------------------------------------------------

void SetMap(PlannedStep& step, const TomlNode& value) {
    step.play.material.map.clear();
    for (const TomlEntry& entry : value.entries) {
        step.play.material.map.push_back(entry.key + "=" + entry.value.text);
    }
}

void SetGain(PlannedStep& step, const TomlNode& value) {
    std::vector<std::string>& gain = step.play.material.gain;
    gain.clear();
    if (value.IsNumber()) {
        gain.push_back(Format("%.17g", value.number));
    }
    for (const TomlEntry& entry : value.entries) {
        gain.push_back(Format("%s=%.17g", entry.key.c_str(), entry.value.number));
    }
}

// The samples before a fractional start are left out when the material is loaded.
void SetStart(PlannedStep& step, const TomlNode& value) {
    const bool isWhole = value.number == std::floor(value.number);
    step.play.start = value.number;
    step.play.material.start = isWhole ? 0.0 : value.number;
}

void SetAmplitude(PlannedStep& step, const TomlNode& value) {
    step.play.material.amplitude.clear();
    if (value.IsNumber()) {
        step.play.material.amplitude.push_back(value.number);
    }
    for (const TomlNode& item : value.items) {
        step.play.material.amplitude.push_back(item.number);
    }
    step.play.material.waveformOptions.insert("--amplitude");
}

std::string RefuseScore(const TomlNode& value) {
    return ComplaintsOfScore(value).empty() ? "" : "a table of the fields of a score";
}

void SetDigests(PlannedStep& step, const TomlNode& value) {
    for (const TomlEntry& entry : value.entries) {
        step.sha256[entry.key] = LowerCase(entry.value.text);
    }
}

std::vector<std::string> TextsOf(const TomlNode& value) {
    std::vector<std::string> texts;
    for (const TomlNode& item : value.items) {
        texts.push_back(item.text);
    }
    return texts;
}

using Set = std::function<void(PlannedStep&, const TomlNode&)>;

using AddField = std::function<void(const char* name, Refuse refuse, Set set)>;

void SetNothing(PlannedStep& /*step*/, const TomlNode& /*value*/) {}

// ---- The table ----------------------------------------------------------------------------------

// The treatment of the leads of any material, and how to read files whose format leaves something
// open.
void AddTreatmentFields(const AddField& add) {
    add("gain", RefuseGain, SetGain);
    add("offset", Number(-1000.0, 1000.0),
        [](auto& step, auto& v) { step.play.material.offset = v.number; });
    add("noise", RefuseText, [](auto& step, auto& v) {
        step.play.material.builtinNoise = v.text == "none" ? "" : v.text;
    });
    add("missing", OneOf({"hold", "zero"}),
        [](auto& step, auto& v) { step.play.material.missing = v.text; });
    add("rate", Number(0.001, 1e6),
        [](auto& step, auto& v) { step.play.material.rate = v.number; });
    add("unit", OneOf({"mV", "uV"}), [](auto& step, auto& v) { step.play.material.unit = v.text; });
    add("as-edf", RefuseTruth, [](auto& step, auto& v) { step.play.material.asEdf = v.truth; });
}

void AddMaterialFields(std::vector<Field>& fields) {
    const AddField add = [&](const char* name, Refuse refuse, Set set) {
        fields.push_back({name, kMaterialOnly, std::move(refuse), std::move(set), true});
    };
    add("start", Number(0.0, 1e6), SetStart);
    add("seconds", Number(0.001, kLongest),
        [](auto& step, auto& v) { step.play.seconds = v.number; });
    add("loop", RefuseTruth, [](auto& step, auto& v) { step.play.loop = v.truth; });
    add("require-calibrated", RefuseTruth,
        [](auto& step, auto& v) { step.play.requireCalibrated = v.truth; });
    add("format", OneOf({"wfdb", "edf", "edf-4", "csv", "aha", "cse", "native"}),
        [](auto& step, auto& v) { step.play.material.format = v.text; });
    add("map", RefuseMap, SetMap);
    add("frequency", Number(0.01, 100.0), [](auto& step, auto& v) {
        step.play.material.frequency = v.number;
        step.play.material.waveformOptions.insert("--frequency");
    });
    add("amplitude", RefuseAmplitude, SetAmplitude);
    add("width", Whole(1.0, 100'000.0), [](auto& step, auto& v) {
        step.play.material.width = static_cast<int>(v.whole);
        step.play.material.waveformOptions.insert("--width");
    });
    add("noise-record", RefuseText, [](auto& step, auto& v) { step.play.material.noise = v.text; });
    add("snr", Number(-100.0, 100.0),
        [](auto& step, auto& v) { step.play.material.signalToNoise = v.number; });
    AddTreatmentFields(add);
}

std::vector<Field> MakeFields() {
    std::vector<Field> fields = {
        {"name", kEveryKind, RefuseName, SetNothing},
        {"pause", kEveryKind, Number(0.0, kLongest),
         [](auto& step, auto& v) { step.pause = v.number; }},
        {"repeat", kEveryKind, Whole(1.0, 1e6), SetNothing},
        {"matrix", kEveryKind, [](const TomlNode&) { return std::string(); }, SetNothing},
        {"material", kMaterialOnly, RefuseText,
         [](auto& step, auto& v) { step.material = v.text; }},
        {"sha256", kMaterialOnly, RefuseDigests, SetDigests},
        {"ask", kAskOnly, RefuseText, [](auto& step, auto& v) { step.question.text = v.text; }},
        {"unit", kAskOnly, RefuseAnyText, [](auto& step, auto& v) { step.question.unit = v.text; }},
        {"min", kAskOnly, RefuseFinite, [](auto& step, auto& v) { step.question.min = v.number; }},
        {"max", kAskOnly, RefuseFinite, [](auto& step, auto& v) { step.question.max = v.number; }},
        {"choices", kAskOnly, RefuseTexts,
         [](auto& step, auto& v) { step.question.choices = TextsOf(v); }},
        {"wait", kWaitOnly, Number(0.0, kLongest),
         [](auto& step, auto& v) { step.wait = v.number; }},
        {"hook", kHookOnly, RefuseTexts, [](auto& step, auto& v) { step.hook = TextsOf(v); }},
        {"score", kScoreOnly, RefuseScore, [](auto& step, auto& v) { step.score = ReadScore(v); }},
        {"timeout", kHookOnly, Number(0.1, kLongest),
         [](auto& step, auto& v) { step.timeout = v.number; }},
    };
    AddMaterialFields(fields);
    return fields;
}

const std::vector<Field>& AllFields() {
    static const std::vector<Field> fields = MakeFields();
    return fields;
}

} // namespace

const Field* FindField(const std::string& name, unsigned kinds) {
    const auto& fields = AllFields();
    const auto found = std::find_if(fields.begin(), fields.end(), [&](const Field& field) {
        return field.name == name && (field.kinds & kinds) != 0;
    });
    return found == fields.end() ? nullptr : &*found;
}

std::string FieldNames(unsigned kinds) {
    std::set<std::string> names;
    for (const Field& field : AllFields()) {
        if ((field.kinds & kinds) != 0) {
            names.insert(field.name);
        }
    }
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

const std::vector<std::pair<std::string, StepKind>>& KindFields() {
    static const std::vector<std::pair<std::string, StepKind>> kFields = {
        {"material", StepKind::kMaterial},
        {"ask", StepKind::kAsk},
        {"wait", StepKind::kWait},
        {"hook", StepKind::kHook},
        {"score", StepKind::kScore}};
    return kFields;
}

std::string KindNames() {
    std::string names;
    for (const auto& [name, kind] : KindFields()) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return names;
}

} // namespace lab
