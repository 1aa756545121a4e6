#pragma once

#include "api/ravo.h"

#include <string>

namespace lab {

// The output that a signal's description denotes, by the library's own table of names and by other
// names that recorders write, such as "Lead I", "EKG V1" and "ECG II-Ref", in any letter case.
// ECG_LEAD_NONE for others.
ECG_Lead LeadOfDescription(const std::string& description);

// Whether the description is that of a lead which the simulator computes: III, aVR, aVL, aVF.
bool IsDerivedLead(const std::string& description);

} // namespace lab
