#pragma once

#include "lab/material/Annotations.h"
#include "lab/material/Outputs.h"
#include "lab/paper/Layout.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// An electrocardiogram on paper: heading, rows of traces with calibration pulses, footing.
namespace lab {

struct PictureOptions {
    std::string path;   // .png, .svg or .pdf
    double start = 0.0; // second of the material at the left edge of the first row
    double seconds = 0.0;
    double speed = 25.0; // millimetres per second
    // Millimetres per millivolt. Empty: 10, or less where a trace would need rows of more than
    // twice their usual height, which the footing states.
    std::optional<double> gain;
    std::string comparison; // the record's name in the legend, when it is drawn over the source
    bool isStandIn = false; // stated in the heading
    bool isPaged = false;   // sheets of A4, as many as the rows need; for .pdf only
};

// Twelve leads from second `from` of the source on.
struct Curves {
    int64_t rate = 0;
    double from = 0.0;
    Leads leads;
};

// Draws the picture and writes its file, or fails. Rows grow so that each trace stays within its
// own. Substitutes for missing samples are not drawn; the footing states gain, offset and noise.
void DrawPicture(const PictureOptions& options, const Record& record, const Layout& layout,
                 const Curves& source, const std::optional<Curves>& decoded,
                 const std::vector<Beat>& beats);

} // namespace lab
