#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/readers/WfdbHeader.h"
#include "lab/material/Recognition.h"
#include "lab/material/Record.h"

namespace lab {

// Whether the library itself reads every sample of the WFDB record as it is.
bool IsLibraryRecord(const WfdbHeader& header);

// Loads material of a kind that the library has a loader for, without further treatment, and
// describes it in `record`, whose name, source and format are set.
void LoadByLibrary(Record& record, const MaterialRequest& request, MaterialKind kind);

// Loads the record of format 16 or 212 with this header, its signals by the library's own names.
void LoadWfdbFile(Record& record, const std::string& path);

} // namespace lab
