#pragma once

#include "lab/material/readers/EdfHeader.h"
#include "lab/material/Record.h"

// The library's own kind of EDF material.
namespace lab {

// Fails when the library would play the file at a wrong speed or not to its end.
void RequireLibraryEdf(const std::string& path, const EdfHeader& header);

// Restricts the loaded signals to the leads that the outputs really carry, and warns about the
// others: lead I is on both limb outputs, and MATERIAL_EDF_FOUR_CHEST has nothing on V5 and V6.
void TakeEdfOutputs(Record& record, const EdfHeader& header, WaveformType type);

// Whether the library reads voltages in `unit` correctly: it takes units that begin with "u" for
// microvolts and all others for millivolts.
bool IsLibraryUnit(const std::string& unit);

} // namespace lab
