#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/Record.h"

namespace lab {

// Loads the material, or fails with a sentence about the file. Material that feeds no output
// loads all the same.
Record LoadRecord(const MaterialRequest& request);

} // namespace lab
