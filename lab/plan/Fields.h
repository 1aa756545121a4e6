#pragma once

#include "lab/plan/Plan.h"

#include <functional>
#include <string>
#include <vector>

// The fields of a step: for which kinds they are, which values they take, and what they set.
namespace lab {

struct Field {
    std::string name;
    unsigned kinds; // MaskOf the kinds that have it
    // What is allowed, when the value is not; empty when it is.
    std::function<std::string(const TomlNode&)> refuse;
    // Carries a value that is allowed over.
    std::function<void(PlannedStep&, const TomlNode&)> set;
    bool isOption = false; // of material: a long option of `ravo play`
};

constexpr unsigned kEveryKind = ~0U;

constexpr unsigned MaskOf(StepKind kind) {
    return 1U << static_cast<unsigned>(kind);
}

// The field of that name that steps of one of these kinds have, null when there is none. Where
// kinds have different fields of one name, the one that defaults are for comes first.
const Field* FindField(const std::string& name, unsigned kinds = kEveryKind);

// "amplitude, format, ..." for steps of these kinds
std::string FieldNames(unsigned kinds);

// "material, ask, ..."
std::string KindNames();

// The fields that make a step what it is.
const std::vector<std::pair<std::string, StepKind>>& KindFields();

} // namespace lab
