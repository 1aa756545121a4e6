#pragma once

#include "builtin/Catalogue.h"

#include <cstdint>
#include <vector>

// The contents of the database where its owner has given no licensed data: signals made from
// published definitions.  The same numbers on every machine: values are rounded to whole
// microvolts, and everything that looks random comes from a fixed seed.
namespace ctscse {

// Eight leads (I, II, V1 to V6), each one period of entry.samplesPerLead values in millivolts.
using Leads = std::vector<std::vector<double>>;

// A calibration record (CAL...) is a square wave, high half first, whose peak is the first two
// digits of its name in tenths of a millivolt.  An analytical record (ANE...) is a beat of
// half-sine waves with a QRS complex of 94 ms.  A multilead record (MA1_...) is a beat of the
// dipole model of tools/synthesis, varied from record to record.
Leads MakeRecord(const RecordEntry& entry);

// Ten seconds of noise in microvolts: mains sines of 25 uV, baseline wander of 0.3 Hz and 0.5 mV,
// high-frequency noise of the r.m.s. value in its name, or baseline wander with 15 uV r.m.s. of it
// (definitions: IEC 60601-2-51, annex on test signals).
std::vector<int32_t> MakeNoise(const std::string& name);

} // namespace ctscse
