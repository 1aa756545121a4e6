#include "lab/paper/Paper.h"

#include "lab/common/Failure.h"
#include "lab/material/Recognition.h"
#include "lab/paper/Drawing.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace lab {
namespace {

constexpr double kDotsPerMillimetre = 8.0;
constexpr double kLargestImage = 32000.0; // in dots, a limit of the image format

constexpr Colour kSheet = {1.0, 0.995, 0.985};
constexpr Colour kFineLine = {0.976, 0.855, 0.835};
constexpr Colour kHeavyLine = {0.925, 0.675, 0.645};

// The width of one and of two dots of an image, so that the grid is crisp at every position.
constexpr double kFineWidth = 0.125;
constexpr double kHeavyWidth = 0.25;
constexpr double kHaloWidth = 1.2;
constexpr int kMillimetresPerHeavyLine = 5;

void SetColour(cairo_t* context, const Colour& colour) {
    cairo_set_source_rgb(context, colour.red, colour.green, colour.blue);
}

// Draws lines as filled bars whose edges lie on whole dots.
void FillVerticals(cairo_t* context, const Rectangle& area, int step, double width) {
    for (int x = 0; x <= std::lround(area.width); x += step) {
        cairo_rectangle(context, area.x + x - kFineWidth, area.y - kFineWidth, width,
                        area.height + kHeavyWidth);
    }
    cairo_fill(context);
}

void FillHorizontals(cairo_t* context, const Rectangle& area, int step, double width) {
    for (int y = 0; y <= std::lround(area.height); y += step) {
        cairo_rectangle(context, area.x - kFineWidth, area.y + y - kFineWidth,
                        area.width + kHeavyWidth, width);
    }
    cairo_fill(context);
}

// Cairo does not report why a file could not be opened or written.
std::string ReasonOf(const std::string& path, cairo_status_t status) {
    if (!std::ofstream(path, std::ios::app)) {
        return std::strerror(errno);
    }
    std::error_code unknown;
    const auto space = std::filesystem::space(path, unknown);
    return !unknown && space.available == 0 ? std::strerror(ENOSPC)
                                            : cairo_status_to_string(status);
}

// An incomplete picture is removed.
void RemoveFile(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) {
        std::filesystem::remove(path, ignored);
    }
}

} // namespace

Paper::Paper(const std::string& path, double width, double height)
    : m_path(path), m_isImage(Extension(path) == ".png") {
    const std::string extension = Extension(path);
    double scale = kPointsPerMillimetre;
    if (m_isImage) {
        scale = kDotsPerMillimetre;
        const double longest = std::max(width, height) * scale;
        if (longest > kLargestImage) {
            Fail(kUsage, path,
                 Format("would be %.0f dots long, more than an image holds.", longest),
                 "Plot fewer seconds, or write .svg or .pdf.");
        }
        m_surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                               static_cast<int>(std::lround(width * scale)),
                                               static_cast<int>(std::lround(height * scale)));
    } else if (extension == ".svg") {
        m_surface = cairo_svg_surface_create(path.c_str(), width * scale, height * scale);
    } else if (extension == ".pdf") {
        m_surface = cairo_pdf_surface_create(path.c_str(), width * scale, height * scale);
    } else {
        Fail(kUsage, path, "is not the name of a picture.", "It must end in .png, .svg or .pdf.");
    }
    m_context = cairo_create(m_surface);
    cairo_scale(m_context, scale, scale);
    PaintSheet();
    cairo_set_line_join(m_context, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(m_context, CAIRO_LINE_CAP_ROUND);
}

void Paper::PaintSheet() {
    SetColour(m_context, kSheet);
    cairo_paint(m_context);
}

void Paper::NextPage() {
    cairo_show_page(m_context);
    PaintSheet();
}

Paper::~Paper() {
    cairo_destroy(m_context);
    cairo_surface_destroy(m_surface);
}

void Paper::DrawGrid(const Rectangle& area) {
    SetColour(m_context, kFineLine);
    FillVerticals(m_context, area, 1, kFineWidth);
    FillHorizontals(m_context, area, 1, kFineWidth);
    SetColour(m_context, kHeavyLine);
    FillVerticals(m_context, area, kMillimetresPerHeavyLine, kHeavyWidth);
    FillHorizontals(m_context, area, kMillimetresPerHeavyLine, kHeavyWidth);
}

void Paper::DrawTrace(const std::vector<Point>& points, const Rectangle& clip, const Colour& colour,
                      double width) {
    cairo_save(m_context);
    cairo_rectangle(m_context, clip.x, clip.y, clip.width, clip.height);
    cairo_clip(m_context);
    SetColour(m_context, colour);
    cairo_set_line_width(m_context, width);
    for (const Point& point : points) {
        if (std::isnan(point.y)) {
            cairo_new_sub_path(m_context);
        } else {
            cairo_line_to(m_context, point.x, point.y);
        }
    }
    cairo_stroke(m_context);
    cairo_restore(m_context);
}

void Paper::DrawText(const std::string& text, const Point& at, const TextStyle& style) {
    const std::string shown = ToUtf8(text);
    const double width = TextWidth(shown, style);
    const double shift = style.align == Align::kLeft     ? 0.0
                         : style.align == Align::kCentre ? width / 2.0
                                                         : width;
    if (style.hasHalo) {
        cairo_move_to(m_context, at.x - shift, at.y);
        cairo_text_path(m_context, shown.c_str());
        SetColour(m_context, kSheet);
        cairo_set_line_width(m_context, kHaloWidth);
        cairo_stroke(m_context);
    }
    SetColour(m_context, style.colour);
    cairo_move_to(m_context, at.x - shift, at.y);
    cairo_show_text(m_context, shown.c_str());
    cairo_new_path(m_context);
}

double Paper::TextWidth(const std::string& text, const TextStyle& style) const {
    cairo_select_font_face(m_context, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           style.isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(m_context, style.height);
    cairo_text_extents_t extents;
    cairo_text_extents(m_context, ToUtf8(text).c_str(), &extents);
    return extents.x_advance;
}

std::string Paper::Fitted(const std::string& text, double room, const TextStyle& style) const {
    const std::string whole = ToUtf8(text);
    std::string shown = whole;
    for (std::size_t cut = 1; cut <= whole.size() && TextWidth(shown, style) > room; ++cut) {
        if (!IsContinuation(whole[cut])) {
            shown = "..." + whole.substr(cut);
        }
    }
    return shown;
}

void Paper::Finish() {
    cairo_status_t status = cairo_status(m_context);
    if (status == CAIRO_STATUS_SUCCESS && m_isImage) {
        status = cairo_surface_write_to_png(m_surface, m_path.c_str());
    }
    cairo_surface_finish(m_surface);
    if (status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_status(m_surface);
    }
    if (status != CAIRO_STATUS_SUCCESS) {
        const std::string reason = ReasonOf(m_path, status);
        RemoveFile(m_path);
        Fail(kCannotWrite, m_path, Format("cannot be written: %s.", reason.c_str()));
    }
}

} // namespace lab
