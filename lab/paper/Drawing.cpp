#include "lab/paper/Drawing.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

#include <utility>

namespace lab {
namespace {

cairo_status_t AppendTo(void* file, const unsigned char* bytes, unsigned int count) {
    static_cast<std::string*>(file)->append(reinterpret_cast<const char*>(bytes), count);
    return CAIRO_STATUS_SUCCESS;
}

} // namespace

Drawing::Drawing(Format format, double width, double height) {
    const auto create = format == Format::kPdf ? cairo_pdf_surface_create_for_stream
                                               : cairo_svg_surface_create_for_stream;
    cairo_surface_t* surface =
        create(AppendTo, &m_file, width * kPointsPerMillimetre, height * kPointsPerMillimetre);
    m_context = cairo_create(surface);
    cairo_surface_destroy(surface); // the context keeps it
    cairo_scale(m_context, kPointsPerMillimetre, kPointsPerMillimetre);
}

Drawing::~Drawing() {
    cairo_destroy(m_context);
}

std::string Drawing::Finish() {
    cairo_surface_finish(cairo_get_target(m_context));
    return std::move(m_file);
}

} // namespace lab
