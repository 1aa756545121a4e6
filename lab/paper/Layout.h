#pragma once

#include "lab/material/Leads.h"

#include <string>
#include <vector>

namespace lab {

// One lead over an interval of time. Seconds count from the start of the plotted window.
struct Cell {
    std::size_t lead;
    double from;
    double to;
    bool isFollowed = false; // whether another lead follows on the same row
};

// Cells side by side that share one time axis and one calibration pulse.
struct Row {
    std::vector<Cell> cells;
    double from;   // seconds at the left edge
    bool isRhythm; // a whole row of one lead, where beats are marked
};

struct Layout {
    std::vector<Row> rows;
    double rowHeight;  // millimetres
    double rowSeconds; // length of the time axis
};

// Arranges `seconds` of material as an electrocardiograph does: "3x4" with lead II below, "6x2",
// "12x1", or "strip": consecutive rows of `stripSeconds` of each of `stripLeads`.
Layout ArrangeLeads(const std::string& name, double seconds, double stripSeconds,
                    const std::vector<std::size_t>& stripLeads);

} // namespace lab
