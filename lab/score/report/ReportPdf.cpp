#include "lab/score/report/ReportPdf.h"

#include "lab/common/Failure.h"
#include "lab/paper/Drawing.h"
#include "lab/score/report/Conditions.h"
#include "lab/score/report/ScoreTables.h"

#include <cairo.h>

#include <algorithm>
#include <numeric>

namespace lab::score {
namespace {

constexpr double kPageWidth = 297.0; // in millimetres, like everything that follows
constexpr double kPageHeight = 210.0;
constexpr double kMargin = 15.0;
constexpr double kLine = 5.0;
constexpr double kTextHeight = 3.2;
constexpr double kTitleHeight = 4.2;
constexpr double kColumnGap = 5.0;
constexpr double kRounding = 1e-6;                    // rounding error of a sum of widths
constexpr double kWidth = kPageWidth - 2.0 * kMargin; // of the text

// The beginning of the character that ends before `end`.
std::size_t CharacterBefore(const std::string& text, std::size_t end) {
    do {
        --end;
    } while (end > 0 && IsContinuation(text[end]));
    return end;
}

// The beginning of the character after the one at `begin`.
std::size_t CharacterAfter(const std::string& text, std::size_t begin) {
    do {
        ++begin;
    } while (begin < text.size() && IsContinuation(text[begin]));
    return begin;
}

// Writes lines from the top of the page down and begins a new page where one is full.
class Pages {
  public:
    // Begins a new page unless this much space is left on the current one. True when it began one.
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
        cairo_show_text(m_context, Shown(text).c_str());
    }

    // As many lines as the text needs at the width of the page, broken at blanks where there are
    // any.
    void Paragraph(const std::string& text, double height, bool isBold) {
        for (std::string rest = Shown(text); !rest.empty();) {
            const std::size_t end = EndOfLine(rest, height, isBold);
            Reserve(kLine);
            Text(rest.substr(0, end), kMargin, height, isBold);
            Advance(kLine);
            rest.erase(0, std::min(rest.find_first_not_of(' ', end), rest.size()));
        }
    }

    // The text, or its beginning and its end with dots between them when it is too wide.
    std::string Shortened(const std::string& name, double width, bool isBold) {
        const std::string text = Shown(name);
        std::string shown = text;
        std::size_t end = CharacterAfter(text, text.size() / 2); // of the beginning
        std::size_t begin = end;                                 // of the end
        while (WidthOf(shown, kTextHeight, isBold) > width + kRounding && end > 0) {
            end = CharacterBefore(text, end);
            begin = begin < text.size() ? CharacterAfter(text, begin) : begin;
            shown = text.substr(0, end) + "..." + text.substr(begin);
        }
        return shown;
    }

    double WidthOf(const std::string& text, double height, bool isBold) {
        Choose(height, isBold);
        cairo_text_extents_t extents;
        cairo_text_extents(m_context, Shown(text).c_str(), &extents);
        return extents.x_advance;
    }

    void Rule(double width) {
        cairo_set_line_width(m_context, 0.25);
        cairo_move_to(m_context, kMargin, m_y);
        cairo_line_to(m_context, kMargin + width, m_y);
        cairo_stroke(m_context);
    }

    std::string Finish() { return m_drawing.Finish(); }

  private:
    // The last blank that fits on a line, or the last character.
    std::size_t EndOfLine(const std::string& text, double height, bool isBold) {
        std::size_t blank = 0;
        std::size_t fits = 0;
        while (fits < text.size()) {
            const std::size_t next = CharacterAfter(text, fits);
            if (fits > 0 && WidthOf(text.substr(0, next), height, isBold) > kWidth) {
                return blank > 0 ? blank : fits;
            }
            blank = text[fits] == ' ' ? fits : blank;
            fits = next;
        }
        return fits;
    }

    void Choose(double height, bool isBold) {
        cairo_select_font_face(m_context, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(m_context, height);
    }

    Drawing m_drawing{Drawing::Format::kPdf, kPageWidth, kPageHeight};
    cairo_t* m_context = m_drawing.Context();
    double m_y = kMargin;
};

// The column widths and the lines of one table.
class Sheet {
  public:
    Sheet(Pages& pages, const Table& table) : m_pages(pages), m_table(table) {
        m_widths.resize(table.head.size());
        Widen(table.head);
        std::for_each(table.rows.begin(), table.rows.end(),
                      [this](const std::vector<std::string>& row) { Widen(row); });
        const double others = std::accumulate(m_widths.begin() + 1, m_widths.end(), 0.0);
        m_widths[0] = std::min(m_widths[0], kWidth - others);
    }

    void Write() {
        constexpr double kFewestLines = 5.0; // space that must remain below a title
        m_pages.Reserve(kFewestLines * kLine);
        m_pages.Paragraph(m_table.title, kTitleHeight, true);
        m_pages.Advance(kLine * 0.4);
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
            m_widths[i] =
                std::max(m_widths[i], m_pages.WidthOf(cells[i], kTextHeight, true) + kColumnGap);
        }
    }

    void Head() {
        Line(m_table.head, true);
        m_pages.Rule(std::accumulate(m_widths.begin(), m_widths.end(), 0.0));
        m_pages.Advance(1.0);
    }

    // The first column is aligned left, the others right.
    void Line(const std::vector<std::string>& cells, bool isBold) {
        double x = kMargin;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const double room = m_widths[i] - (i == 0 ? kColumnGap : 0.0);
            const std::string cell = m_pages.Shortened(cells[i], room, isBold);
            const double shift = i == 0 ? 0.0 : room - m_pages.WidthOf(cell, kTextHeight, isBold);
            m_pages.Text(cell, x + shift, kTextHeight, isBold);
            x += m_widths[i];
        }
        m_pages.Advance(kLine);
    }

    Pages& m_pages;
    const Table& m_table;
    std::vector<double> m_widths;
};

} // namespace

std::string PdfOf(const ScoreResult& result) {
    Pages pages;
    pages.Text("Beat detection compared with the reference", kMargin, 6.0, true);
    pages.Advance(kLine * 2.0);
    for (const std::string& condition : ConditionsOf(result)) {
        pages.Paragraph(condition, kTextHeight, false);
    }
    for (const std::string& remark : result.remarks) {
        pages.Paragraph("Warning: " + remark, kTextHeight, false);
    }
    pages.Advance(kLine);
    for (const Table& table : TablesOf(result)) {
        Sheet(pages, table).Write();
    }
    return pages.Finish();
}

} // namespace lab::score
