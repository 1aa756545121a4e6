#include "lab/score/report/ReportPdf.h"

#include "lab/common/Failure.h"
#include "lab/score/report/ScoreTables.h"

#include <cairo-pdf.h>
#include <cairo.h>

#include <algorithm>

namespace lab::score {
namespace {

constexpr double kPointsPerMillimetre = 72.0 / 25.4;
constexpr double kPageWidth = 297.0; // millimetres, as all that follows
constexpr double kPageHeight = 210.0;
constexpr double kMargin = 15.0;
constexpr double kLine = 5.0;
constexpr double kTextHeight = 3.2;
constexpr double kTitleHeight = 4.2;
constexpr double kColumnGap = 5.0;

// Writes lines from the top of the page down and begins a new page where one is full.
class Pages {
  public:
    explicit Pages(const std::string& path)
        : m_surface(cairo_pdf_surface_create(path.c_str(), kPageWidth * kPointsPerMillimetre,
                                             kPageHeight * kPointsPerMillimetre)),
          m_context(cairo_create(m_surface)) {
        cairo_scale(m_context, kPointsPerMillimetre, kPointsPerMillimetre);
    }
    ~Pages() {
        cairo_destroy(m_context);
        cairo_surface_destroy(m_surface);
    }
    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;

    // Begins a new page unless this much is left on the current one. True when it did.
    bool Reserve(double height) {
        if (m_y + height <= kPageHeight - kMargin) {
            return false;
        }
        cairo_show_page(m_context);
        m_y = kMargin;
        return true;
    }

    void Advance(double height) { m_y += height; }

    void Text(const std::string& text, double x, double height, bool isBold) {
        Choose(height, isBold);
        cairo_move_to(m_context, x, m_y + kLine * 0.75);
        cairo_show_text(m_context, ToUtf8(Printable(text)).c_str());
    }

    double WidthOf(const std::string& text, bool isBold) {
        Choose(kTextHeight, isBold);
        cairo_text_extents_t extents;
        cairo_text_extents(m_context, ToUtf8(Printable(text)).c_str(), &extents);
        return extents.x_advance;
    }

    void Rule(double width) {
        cairo_set_line_width(m_context, 0.25);
        cairo_move_to(m_context, kMargin, m_y);
        cairo_line_to(m_context, kMargin + width, m_y);
        cairo_stroke(m_context);
    }

    cairo_status_t Finish() {
        cairo_surface_finish(m_surface);
        const cairo_status_t status = cairo_status(m_context);
        return status != CAIRO_STATUS_SUCCESS ? status : cairo_surface_status(m_surface);
    }

  private:
    void Choose(double height, bool isBold) {
        cairo_select_font_face(m_context, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(m_context, height);
    }

    cairo_surface_t* m_surface;
    cairo_t* m_context;
    double m_y = kMargin;
};

// The columns' widths and one table's lines.
class Sheet {
  public:
    Sheet(Pages& pages, const Table& table) : m_pages(pages), m_table(table) {
        m_widths.resize(table.head.size());
        Widen(table.head);
        std::for_each(table.rows.begin(), table.rows.end(),
                      [this](const std::vector<std::string>& row) { Widen(row); });
    }

    void Write() {
        constexpr double kFewestLines = 5.0; // that may stand below a title
        m_pages.Reserve(kFewestLines * kLine);
        m_pages.Text(m_table.title, kMargin, kTitleHeight, true);
        m_pages.Advance(kLine * 1.4);
        Head();
        for (std::size_t i = 0; i < m_table.rows.size(); ++i) {
            if (m_pages.Reserve(kLine)) {
                Head();
            }
            Line(m_table.rows[i], i + m_table.totals >= m_table.rows.size());
        }
        m_pages.Advance(kLine * 1.5);
    }

  private:
    void Widen(const std::vector<std::string>& cells) {
        for (std::size_t i = 0; i < cells.size(); ++i) {
            m_widths[i] = std::max(m_widths[i], m_pages.WidthOf(cells[i], true) + kColumnGap);
        }
    }

    void Head() {
        Line(m_table.head, true);
        double width = 0.0;
        for (const double each : m_widths) {
            width += each;
        }
        m_pages.Rule(width);
        m_pages.Advance(1.0);
    }

    // The first column to the left, the others to the right.
    void Line(const std::vector<std::string>& cells, bool isBold) {
        double x = kMargin;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const double shift = i == 0 ? 0.0 : m_widths[i] - m_pages.WidthOf(cells[i], isBold);
            m_pages.Text(cells[i], x + shift, kTextHeight, isBold);
            x += m_widths[i];
        }
        m_pages.Advance(kLine);
    }

    Pages& m_pages;
    const Table& m_table;
    std::vector<double> m_widths;
};

} // namespace

void WritePdf(const ScoreResult& result, const std::string& path) {
    Pages pages(path);
    pages.Text("Beat detection compared with the reference", kMargin, 6.0, true);
    pages.Advance(kLine * 2.0);
    for (const std::string& condition : ConditionsOf(result)) {
        pages.Text(condition, kMargin, kTextHeight, false);
        pages.Advance(kLine);
    }
    pages.Advance(kLine);
    for (const Table& table : TablesOf(result)) {
        Sheet(pages, table).Write();
    }
    const cairo_status_t status = pages.Finish();
    if (status != CAIRO_STATUS_SUCCESS) {
        Fail(kCannotWrite, path, Format("cannot be written: %s.", cairo_status_to_string(status)));
    }
}

} // namespace lab::score
