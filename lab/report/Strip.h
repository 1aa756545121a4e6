#pragma once

#include "lab/report/Sheet.h"

#include <string>

struct _cairo;

// Strips of ECG paper at 25 mm/s.
namespace lab {

constexpr double kStripWidth = 165.0; // millimetres: calibration pulse, then 6 s
constexpr double kStripHeight = 30.0;

// The largest of the usual gains at which the whole strip fits on the paper, and the voltage at the
// middle of the strip.
struct StripScale {
    double gain = 10.0;  // mm/mV
    double middle = 0.0; // mV
};
StripScale ScaleOf(const SheetFigure& figure);

// "25 mm/s, 10 mm/mV"
std::string ScaleText(const SheetFigure& figure);

// Draws the strip with its upper left corner at x, y; the context's unit is the millimetre.
void DrawStrip(_cairo* context, const SheetFigure& figure, double x, double y);

// The same as a picture to embed in a page.
std::string StripSvg(const SheetFigure& figure);

} // namespace lab
