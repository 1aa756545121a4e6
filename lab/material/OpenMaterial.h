#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/readers/SourceRecord.h"
#include "lab/material/Recognition.h"
#include "lab/material/Record.h"
#include "lab/material/Treatment.h"

#include <memory>
#include <vector>

namespace lab {

// Any material as readable samples, treated as requested.
struct OpenedMaterial {
    Record record; // its name, source, signals with their leads, warnings
    Treatment treatment;
    std::unique_ptr<SourceReader> reader; // of the same signals

    std::vector<ECG_Lead> Leads() const;
};

// Opens the material without loading it into the library, except where only the library can read or
// produce it: built-in records, waveforms, AHA, CSE and native files. Waveforms without end last
// 100 s, which is a whole number of their periods and of the built-in noises'.
OpenedMaterial OpenMaterial(const MaterialRequest& request);

// Whether the library alone plays the material as requested.
bool IsForLibrary(const MaterialRequest& request, MaterialKind kind);

// Fails when an option does not apply to this kind of material, rather than ignore it.
void RequireFittingOptions(const MaterialRequest& request, MaterialKind kind);

// The record as far as the request alone describes it.
Record NewRecord(const MaterialRequest& request, MaterialKind kind);

} // namespace lab
