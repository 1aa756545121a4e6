#pragma once

#include "lab/material/MaterialRequest.h"
#include "lab/material/readers/SourceRecord.h"
#include "lab/material/Recognition.h"
#include "lab/material/Record.h"
#include "lab/material/Treatment.h"

#include <memory>
#include <vector>

namespace lab {

// Any material as samples that can be read, with what was asked for done to it.
struct OpenedMaterial {
    Record record; // its name, source, signals with their leads, warnings
    Treatment treatment;
    std::unique_ptr<SourceReader> reader; // of the same signals

    std::vector<ECG_Lead> Leads() const;
};

// Opens the material without bringing it into the library, except where the library alone reads it
// or makes it: built-in records, waveforms, AHA, CSE and native files. Waveforms without end last
// 100 s, which is a whole number of their periods and of the built-in noises'.
OpenedMaterial OpenMaterial(const MaterialRequest& request);

// Whether the library plays just what was asked for without help.
bool IsForLibrary(const MaterialRequest& request, MaterialKind kind);

// Fails when an option means nothing for this kind of material: one that is ignored would show a
// misunderstanding.
void RequireFittingOptions(const MaterialRequest& request, MaterialKind kind);

// What the request alone says of the record.
Record NewRecord(const MaterialRequest& request, MaterialKind kind);

} // namespace lab
