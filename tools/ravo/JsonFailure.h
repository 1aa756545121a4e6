#pragma once

#include "lab/common/Failure.h"
#include "lab/common/Json.h"

namespace cli {

// "error": {"status", "where", "problem", "cure"}, into an object that is open.
void WriteError(lab::Json& json, const lab::Failure& failure);

// The whole document of a command that has failed, on standard output.
void PrintJsonFailure(const lab::Failure& failure);

} // namespace cli
