#include "tools/worker/Options.h"

#include "lab/plan/Fields.h"

#include <algorithm>

namespace worker {
namespace {

using lab::TomlNode;
using nlohmann::json;
using Kind = TomlNode::Kind;

// The fields of plans say what is allowed; they read trees of TOML.
TomlNode NodeOf(const json& value) {
    TomlNode node;
    node.text = value.is_string() ? value.get<std::string>() : value.dump();
    if (value.is_string()) {
        node.kind = Kind::kText;
    } else if (value.is_boolean()) {
        node.kind = Kind::kTruth;
        node.truth = value.get<bool>();
    } else if (value.is_number()) {
        node.kind = value.is_number_integer() ? Kind::kWhole : Kind::kFraction;
        node.number = value.get<double>();
        node.whole = value.is_number_integer() ? value.get<int64_t>() : 0;
    } else if (value.is_array()) {
        node.kind = Kind::kList;
        std::transform(value.begin(), value.end(), std::back_inserter(node.items), NodeOf);
    } else {
        for (const auto& [key, entry] : value.items()) {
            node.entries.push_back({key, {}, NodeOf(entry)});
        }
    }
    return node;
}

[[noreturn]] void Refuse(const std::string& name, const TomlNode& value,
                         const std::string& allowed) {
    lab::Fail(lab::kUsage, name, "is " + lab::Described(value) + ".", "Give " + allowed + ".");
}

// ---- Options that plans do not have -------------------------------------------------------------

struct Option {
    const char* name;
    const char* allowed;
    bool (*take)(lab::MaterialRequest&, const TomlNode&); // false: not allowed
};

bool TakeGain(lab::MaterialRequest& material, const TomlNode& value) {
    if (value.IsNumber()) {
        material.gain = {value.text};
    }
    for (const lab::TomlEntry& entry : value.entries) {
        if (!entry.value.IsNumber()) {
            return false;
        }
        material.gain.push_back(entry.key + "=" + entry.value.text);
    }
    return value.IsNumber() || value.kind == Kind::kTable;
}

bool TakeOffset(lab::MaterialRequest& material, const TomlNode& value) {
    constexpr double kMost = 1000.0;
    material.offset = value.number;
    return value.IsNumber() && value.number >= -kMost && value.number <= kMost;
}

bool TakeRate(lab::MaterialRequest& material, const TomlNode& value) {
    material.rate = value.number;
    return value.IsNumber() && value.number >= 0.001 && value.number <= 1e6;
}

bool TakeUnit(lab::MaterialRequest& material, const TomlNode& value) {
    material.unit = value.text;
    return value.kind == Kind::kText && (value.text == "mV" || value.text == "uV");
}

bool TakeMissing(lab::MaterialRequest& material, const TomlNode& value) {
    material.missing = value.text;
    return value.kind == Kind::kText && (value.text == "hold" || value.text == "zero");
}

bool TakeAsEdf(lab::MaterialRequest& material, const TomlNode& value) {
    material.asEdf = value.truth;
    return value.kind == Kind::kTruth;
}

bool TakeCsvFormat(lab::MaterialRequest& material, const TomlNode& value) {
    material.format = value.text;
    return value.kind == Kind::kText;
}

constexpr Option kOptions[] = {
    {"gain", "a number, or numbers by lead", TakeGain},
    {"offset", "a number from -1000 to 1000", TakeOffset},
    {"rate", "a number from 0.001 to 1000000", TakeRate},
    {"unit", "mV or uV", TakeUnit},
    {"missing", "hold or zero", TakeMissing},
    {"as-edf", "true or false", TakeAsEdf},
};

// ---- All of them --------------------------------------------------------------------------------

void TakeOption(lab::PlannedStep& step, const std::string& name, const json& given) {
    const TomlNode value = NodeOf(given);
    if (name == "format" && value.text == "csv" && TakeCsvFormat(step.play.material, value)) {
        return;
    }
    const lab::Field* field = lab::FindField(name);
    if (field != nullptr && field->isOption) {
        const std::string allowed = field->refuse(value);
        if (!allowed.empty()) {
            Refuse(name, value, allowed);
        }
        field->set(step, value);
        return;
    }
    for (const Option& option : kOptions) {
        if (option.name == name) {
            if (!option.take(step.play.material, value)) {
                Refuse(name, value, option.allowed);
            }
            return;
        }
    }
    lab::Fail(lab::kUsage, name, "is no option of material.");
}

} // namespace

lab::PlayRequest PlayRequestOf(const std::string& material, const json& options) {
    lab::PlannedStep step;
    for (const auto& [name, value] : options.items()) {
        TakeOption(step, name, value);
    }
    step.play.material.name = material;
    step.play.material.start = step.play.start;
    return step.play;
}

} // namespace worker
