#pragma once

#include "lab/plan/Plan.h"

#include <functional>
#include <string>
#include <vector>

// The fields of a step: the kinds of step that have them, the values allowed, and their effect.
namespace lab {

struct Field {
    std::string name;
    unsigned kinds; // MaskOf the kinds that have it
    // Empty when the value is allowed, otherwise a description of the values that are.
    std::function<std::string(const TomlNode&)> refuse;
    // Sets the step by an allowed value.
    std::function<void(PlannedStep&, const TomlNode&)> set;
    bool isOption = false; // of material: named after an option of `ravo play`
};

constexpr unsigned kEveryKind = ~0U;

constexpr unsigned MaskOf(StepKind kind) {
    return 1U << static_cast<unsigned>(kind);
}

// The field of that name of steps of one of these kinds; null when there is none. Where kinds have
// different fields of one name, the one to which defaults apply comes first.
const Field* FindField(const std::string& name, unsigned kinds = kEveryKind);

// "amplitude, format, ..." for steps of these kinds
std::string FieldNames(unsigned kinds);

// "material, ask, ..."
std::string KindNames();

// The fields that determine the kind of a step.
const std::vector<std::pair<std::string, StepKind>>& KindFields();

} // namespace lab
