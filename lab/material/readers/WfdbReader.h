#pragma once

#include "lab/material/readers/SourceRecord.h"
#include "lab/material/readers/WfdbHeader.h"

#include <memory>
#include <string>

namespace lab {

// Opens a WFDB record of one or several segments by the path of its header. Fails with a sentence
// that names the file, the line or the signal.
std::unique_ptr<SourceReader> OpenWfdb(const std::string& headerPath);
std::unique_ptr<SourceReader> OpenWfdb(const WfdbHeader& header);

} // namespace lab
