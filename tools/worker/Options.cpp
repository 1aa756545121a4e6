#include "tools/worker/Options.h"

#include "lab/plan/Fields.h"
#include "lab/plan/JsonNode.h"

#include <algorithm>

namespace worker {
namespace {

using lab::TomlNode;
using nlohmann::json;

[[noreturn]] void Refuse(const std::string& name, const TomlNode& value,
                         const std::string& allowed) {
    const bool isTable = value.kind == TomlNode::Kind::kTable;
    const std::string found = isTable ? lab::Printable(value.text) : lab::Described(value);
    lab::Fail(lab::kUsage, name, "is " + found + ".", "Give " + allowed + ".");
}

// The long name of the option with this Python name, which has underscores.
std::string LongName(std::string name) {
    std::replace(name.begin(), name.end(), '_', '-');
    return name;
}

void TakeOption(lab::PlannedStep& step, const std::string& name, const json& given) {
    const TomlNode value = lab::NodeOfJson(given);
    const lab::Field* field = lab::FindField(LongName(name), lab::MaskOf(lab::StepKind::kMaterial));
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
