#include "lab/report/Strip.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Numbers.h"
#include "lab/paper/Drawing.h"

#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace lab {
namespace {

constexpr double kSpeed = 25.0;      // mm/s
constexpr double kPulseWidth = 15.0; // of the calibration pulse with its run-in and run-out
constexpr double kMargin = 0.5;

void DrawLines(cairo_t* context, double x, double y, double step, double grey, double width) {
    for (double at = 0.0; at <= kStripWidth; at += step) {
        cairo_move_to(context, x + at, y);
        cairo_line_to(context, x + at, y + kStripHeight);
    }
    for (double at = 0.0; at <= kStripHeight; at += step) {
        cairo_move_to(context, x, y + at);
        cairo_line_to(context, x + kStripWidth, y + at);
    }
    cairo_set_source_rgb(context, 1.0, grey, grey);
    cairo_set_line_width(context, width);
    cairo_stroke(context);
}

// 1 mV, 5 mm wide.
void DrawPulse(cairo_t* context, double x, double baseLine, double gain) {
    const double top = baseLine - gain;
    cairo_move_to(context, x + 2.5, baseLine);
    cairo_line_to(context, x + 5.0, baseLine);
    cairo_line_to(context, x + 5.0, top);
    cairo_line_to(context, x + 10.0, top);
    cairo_line_to(context, x + 10.0, baseLine);
    cairo_line_to(context, x + 12.5, baseLine);
}

void DrawTrace(cairo_t* context, const SheetFigure& figure, const StripScale& scale, double x,
               double y) {
    cairo_new_sub_path(context);
    for (std::size_t n = 0; n < figure.microvolts.size(); ++n) {
        const double millivolts = figure.microvolts[n] / 1000.0 - scale.middle;
        const double down =
            std::clamp(kStripHeight / 2.0 - millivolts * scale.gain, 0.0, kStripHeight);
        const double right = static_cast<double>(n) / figure.rate * kSpeed;
        if (kPulseWidth + right <= kStripWidth) {
            cairo_line_to(context, x + kPulseWidth + right, y + down);
        }
    }
}

} // namespace

StripScale ScaleOf(const SheetFigure& figure) {
    StripScale scale;
    if (figure.microvolts.empty()) {
        return scale;
    }
    const auto [least, most] =
        std::minmax_element(figure.microvolts.begin(), figure.microvolts.end());
    const double low = *least / 1000.0;
    const double high = *most / 1000.0;
    for (const double gain : {10.0, 5.0, 2.5, 1.25}) {
        const double room = kStripHeight / 2.0 / gain;
        // Whole half millivolts, so that the line of 0 mV stays on the paper's own lines.
        scale = {gain, low >= -room && high <= room ? 0.0 : std::round(low + high) / 2.0};
        if (low - scale.middle >= -room && high - scale.middle <= room) {
            break;
        }
    }
    return scale;
}

std::string ScaleText(const SheetFigure& figure) {
    const StripScale scale = ScaleOf(figure);
    return "25 mm/s, " + NumberText(scale.gain) + " mm/mV" +
           (scale.middle == 0.0 ? "" : ", middle line at " + NumberText(scale.middle) + " mV");
}

void DrawStrip(cairo_t* context, const SheetFigure& figure, double x, double y) {
    const StripScale scale = ScaleOf(figure);
    DrawLines(context, x, y, 1.0, 0.88, 0.08);
    DrawLines(context, x, y, 5.0, 0.68, 0.16);
    cairo_set_line_join(context, CAIRO_LINE_JOIN_ROUND);
    DrawPulse(context, x, y + std::min(kStripHeight / 2.0 + scale.gain / 2.0, 25.0), scale.gain);
    DrawTrace(context, figure, scale, x, y);
    cairo_set_source_rgb(context, 0.0, 0.0, 0.0);
    cairo_set_line_width(context, 0.28);
    cairo_stroke(context);
}

std::string StripSvg(const SheetFigure& figure) {
    Drawing drawing(Drawing::Format::kSvg, kStripWidth + 2.0 * kMargin,
                    kStripHeight + 2.0 * kMargin);
    DrawStrip(drawing.Context(), figure, kMargin, kMargin);
    const std::string svg = drawing.Finish();
    return svg.substr(std::min(svg.find("<svg"), svg.size()));
}

} // namespace lab
