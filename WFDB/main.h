#pragma once

#include "ravo/wfdb.h"

#include <ctime>

// Parses one signal line of a header file, which is cut into its fields in place, into `out`,
// which is zero beforehand.  A field that the line lacks keeps its default.
void ReadHeaderSignal(char* line, WFDB_SIGNAL* out);

// Base date and time of the record as local time; 1 January 1900 when it has no date, 0 when the
// calendar does not know the date.
time_t GetRecordTime(WFDB_HEADER* header);

// Greatest common divisor of two real numbers, within a thousandth of the smaller one.  `a` itself
// when either number is not finite or not above 0.
double gcd(double a, double b);
