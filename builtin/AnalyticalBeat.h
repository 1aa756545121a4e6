#pragma once

#include "builtin/StandIns.h"

namespace ctscse {

// One analytical beat of `samples` milliseconds: P wave, QRS complex of exactly 94 ms and T wave,
// each a train of half sines of finite length, so that the values between the waves, and at both
// ends of the period, are exactly 0.
Leads MakeAnalyticalBeat(int samples);

} // namespace ctscse
