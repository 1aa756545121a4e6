#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/OpenMaterial.h"

namespace lab {

// Writes the signals that feed leads into a private record that the library reads exactly, at one
// rate that the simulator's clock can keep, loads it and completes `opened.record`.
void LoadStaged(OpenedMaterial& opened, const MaterialRequest& request);

} // namespace lab
