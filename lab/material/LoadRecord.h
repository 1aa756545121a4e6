#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/Record.h"

namespace lab {

// Loads the material, or fails with a sentence about the file. Material that does
// not feed any output loads, too.
Record LoadRecord(const MaterialRequest& request);

} // namespace lab
