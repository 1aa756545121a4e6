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

void TakeOption(lab::PlannedStep& step, const std::string& name, const json& given) {
    const TomlNode value = NodeOf(given);
    const lab::Field* field = lab::FindField(name, lab::MaskOf(lab::StepKind::kMaterial));
    if (field == nullptr || !field->isOption) {
        lab::Fail(lab::kUsage, name, "is not an option of material.",
                  "It takes the material options of `ravo play`.");
    }
    const std::string allowed = field->refuse(value);
    if (!allowed.empty()) {
        Refuse(name, value, allowed);
    }
    field->set(step, value);
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
