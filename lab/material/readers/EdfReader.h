#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <memory>
#include <optional>
#include <string>

namespace lab {

// Opens an EDF, EDF+ or BDF file. Annotation channels do not count as signals; gaps of a
// discontinuous file are missing samples. `unit`, when given, applies to signals whose own is not a
// voltage. Fails with a sentence that names the file and the signal.
std::unique_ptr<SourceReader> OpenEdf(const std::string& path,
                                      const std::optional<std::string>& unit);

} // namespace lab
