#pragma once

#include "lab/evidence/RunFolder.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace lab {

// Writes result.json, junit.xml, report.html and report.pdf from the journal's events. The same
// events always produce the same bytes.
void WriteReports(const RunFolder& folder, const std::vector<nlohmann::ordered_json>& events);

// "failed: 3 of 5 steps passed, 1 failed, 1 skipped"
std::string SummaryLine(const nlohmann::ordered_json& result);

} // namespace lab
