#pragma once

#include "builtin/StandIns.h"

namespace ctscse {

// One beat of the dipole model at the rate that the record's period gives, with wave heights and
// widths drawn for this record within physiological ranges.  The values continue without a step
// where the period repeats.
Leads MakeMultileadBeat(const RecordEntry& entry);

} // namespace ctscse
