#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <memory>
#include <optional>
#include <string>

namespace lab {

// Opens an EDF, EDF+ or BDF file. Annotation channels are no signals; the gaps of a discontinuous
// file are missing samples. `unit`, when given, is that of signals whose own is no voltage. Fails
// with a sentence that names the file and the signal.
std::unique_ptr<SourceReader> OpenEdf(const std::string& path,
                                      const std::optional<std::string>& unit);

} // namespace lab
