#include "lab/report/Sheet.h"

#include "lab/common/Failure.h"
#include "lab/paper/Drawing.h"
#include "lab/report/Strip.h"

#include <cairo-pdf.h>
#include <cairo.h>

#include <algorithm>
#include <vector>

// The report on A4 pages. They are laid out twice: once to count them, once to draw them.
namespace lab {
namespace {

constexpr double kPageWidth = 210.0; // in millimetres, like everything here
constexpr double kPageHeight = 297.0;
constexpr double kLeft = 20.0;
constexpr double kRight = 190.0;
constexpr double kTop = 24.0;
constexpr double kBottom = 277.0;
constexpr double kPadding = 1.2;

struct Style {
    double size; // of the letters
    bool isBold = false;
    bool isGrey = false;

    double LineHeight() const { return size * 1.35; }
};

constexpr Style kTitle{6.5, true};
constexpr Style kHeading{4.2, true};
constexpr Style kBody{3.1};
constexpr Style kBold{3.1, true};
constexpr Style kTable{2.6};
constexpr Style kTableBold{2.6, true};
constexpr Style kSmall{2.3, false, true};

// A cell's text in one style.
struct Passage {
    std::string text;
    Style style;
};

struct Column {
    double x;
    double width;
};

using Columns = std::vector<Column>;

const Columns& StepColumns() {
    static const Columns columns = {{20.0, 10.0},  {30.0, 31.0},  {61.0, 42.0},
                                    {103.0, 42.0}, {145.0, 20.0}, {165.0, 25.0}};
    return columns;
}

// A wide first column; the rest of the page is shared equally.
Columns EvenColumns(std::size_t count) {
    const double first = count > 6 ? 27.5 : 50.0;
    const double others = (kRight - kLeft - first) / static_cast<double>(count - 1);
    Columns columns = {{kLeft, first}};
    for (std::size_t i = 1; i < count; ++i) {
        columns.push_back({columns.back().x + columns.back().width, others});
    }
    return columns;
}

class PdfWriter {
  public:
    // `pages` is the total number of pages; 0 while counting them.
    PdfWriter(const Sheet& sheet, int pages) : m_sheet(sheet), m_pages(pages) {
        cairo_surface_t* surface = cairo_get_target(m_context);
        cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_TITLE, sheet.title.c_str());
        // Not today's date: the same journal always produces the same file.
        cairo_pdf_surface_set_metadata(surface, CAIRO_PDF_METADATA_CREATE_DATE,
                                       sheet.started.substr(0, 19).c_str());
        BeginPage();
    }

    // The file.
    std::string Write() {
        WriteHead();
        WriteSteps();
        WriteTables();
        WriteFigures();
        EndPage();
        return m_drawing.Finish();
    }

    int Pages() const { return m_page; }

  private:
    bool IsDrawn() const { return m_pages > 0; }

    // ---- Text -----------------------------------------------------------------------------------

    void Select(const Style& style) {
        cairo_select_font_face(m_context, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               style.isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(m_context, style.size);
        const double grey = style.isGrey ? 0.25 : 0.0;
        cairo_set_source_rgb(m_context, grey, grey, grey);
    }

    double WidthOf(const std::string& text) {
        cairo_text_extents_t extents;
        cairo_text_extents(m_context, text.c_str(), &extents);
        return extents.x_advance;
    }

    // The position at which a word that is wider than the line has to be broken.
    std::size_t LongestPart(const std::string& word, double room) {
        std::size_t fitting = 1;
        for (std::size_t end = 1; end <= word.size(); ++end) {
            if (end < word.size() && IsContinuation(word[end])) {
                continue;
            }
            if (WidthOf(word.substr(0, end)) > room) {
                break;
            }
            fitting = end;
        }
        return fitting;
    }

    // Lines that fit into the width, broken between words.
    std::vector<std::string> Wrap(const std::string& text, double room, const Style& style) {
        Select(style);
        std::vector<std::string> lines;
        std::string line;
        for (std::size_t at = 0; at < text.size();) {
            const auto blank = std::min(text.find(' ', at), text.size());
            std::string word = text.substr(at, blank - at);
            at = blank + 1;
            const std::string longer = line.empty() ? word : line + " " + word;
            if (WidthOf(longer) <= room) {
                line = longer;
                continue;
            }
            if (!line.empty()) {
                lines.push_back(line);
            }
            while (WidthOf(word) > room) {
                const std::size_t part = LongestPart(word, room);
                lines.push_back(word.substr(0, part));
                word.erase(0, part);
            }
            line = word;
        }
        if (!line.empty()) {
            lines.push_back(line);
        }
        return lines;
    }

    void Show(const std::string& text, double x, double y, const Style& style) {
        if (IsDrawn()) {
            Select(style);
            cairo_move_to(m_context, x, y);
            cairo_show_text(m_context, text.c_str());
        }
    }

    // A paragraph across the width of the page; begins new pages as needed.
    void WriteParagraph(const std::string& text, const Style& style, double x = kLeft,
                        double after = 1.0) {
        for (const std::string& line : Wrap(text, kRight - x, style)) {
            RequireRoom(style.LineHeight());
            m_y += style.LineHeight();
            Show(line, x, m_y, style);
        }
        m_y += after;
    }

    void DrawBox(double x, double y, double width, double height, double line) {
        if (IsDrawn()) {
            cairo_rectangle(m_context, x, y, width, height);
            cairo_set_source_rgb(m_context, 0.0, 0.0, 0.0);
            cairo_set_line_width(m_context, line);
            cairo_stroke(m_context);
        }
    }

    // ---- Pages ----------------------------------------------------------------------------------

    void BeginPage() {
        ++m_page;
        m_y = kTop;
    }

    void EndPage() {
        if (IsDrawn()) {
            Show(m_sheet.title, kLeft, 12.0, kSmall);
            const std::string number = Format("page %d of %d", m_page, m_pages);
            Select(kSmall);
            Show(number, kRight - WidthOf(number), 288.0, kSmall);
            Show(m_sheet.started, kLeft, 288.0, kSmall);
            ShowMark();
        }
        cairo_show_page(m_context);
    }

    void ShowMark() {
        if (m_sheet.mark.empty()) {
            return;
        }
        Select(kTableBold);
        const double width = WidthOf(m_sheet.mark);
        const double x = (kPageWidth - width) / 2.0;
        Show(m_sheet.mark, x, 18.4, kTableBold);
        DrawBox(x - 2.0, 15.0, width + 4.0, 5.0, 0.4);
    }

    void RequireRoom(double height) {
        if (m_y + height > kBottom) {
            EndPage();
            BeginPage();
        }
    }

    // ---- What it consists of --------------------------------------------------------------------

    void WriteHead() {
        WriteParagraph(m_sheet.title, kTitle);
        WriteParagraph("Test report", kBody, kLeft, 3.0);
        WriteVerdict();
        for (const auto& [name, value] : m_sheet.identity) {
            const double top = m_y;
            m_y += kBody.LineHeight();
            Show(name, kLeft, m_y, kBody);
            m_y = top;
            WriteParagraph(value, kBody, kLeft + 42.0, 0.3);
        }
        WriteHeading("Notes");
        for (const std::string& note : m_sheet.notes) {
            WriteParagraph(note, kBody);
        }
    }

    void WriteVerdict() {
        Select(kHeading);
        const double width = WidthOf(m_sheet.summary);
        DrawBox(kLeft, m_y, width + 6.0, 8.0, 0.5);
        Show(m_sheet.summary, kLeft + 3.0, m_y + 5.5, kHeading);
        m_y += 12.0;
    }

    void WriteHeading(const std::string& text) {
        RequireRoom(20.0);
        m_y += 5.0;
        WriteParagraph(text, kHeading, kLeft, 2.0);
    }

    using Cells = std::vector<std::vector<Passage>>; // one for each column

    void WriteSteps() {
        const Cells head = {
            {{"No.", kTableBold}},           {{"Step", kTableBold}},
            {{"What was done", kTableBold}}, {{"Value and how it came about", kTableBold}},
            {{"Passes", kTableBold}},        {{"Result", kTableBold}}};
        WriteHeading("Steps");
        WriteCells(StepColumns(), head, head);
        for (const SheetRow& row : m_sheet.rows) {
            const bool isBad = row.outcome == "failed" || row.outcome == "error";
            WriteCells(StepColumns(),
                       {{{row.number, kTable}},
                        {{row.name, kTable}, {row.time, kSmall}},
                        {{row.done, kTable}},
                        {{row.value, kTable}, {row.how, kSmall}},
                        {{row.limits, kTable}},
                        {{row.outcome, isBad ? kTableBold : kTable}, {row.remark, kSmall}}},
                       head);
        }
    }

    static Cells CellsOf(const std::vector<std::string>& texts, const Style& style) {
        Cells cells;
        for (const std::string& text : texts) {
            cells.push_back({{text, style}});
        }
        return cells;
    }

    void WriteTables() {
        if (!m_sheet.tables.empty()) {
            WriteHeading("Scores");
        }
        for (const SheetTable& table : m_sheet.tables) {
            const Columns columns = EvenColumns(table.head.size());
            const Cells head = CellsOf(table.head, kTableBold);
            constexpr std::size_t kTogether = 12; // rows that stay on one page
            RequireRoom(15.0 + 6.0 * static_cast<double>(std::min(table.rows.size(), kTogether)));
            WriteParagraph(table.caption, kBold);
            WriteCells(columns, head, head);
            for (const auto& row : table.rows) {
                WriteCells(columns, CellsOf(row, kTable), head);
            }
            m_y += 5.0;
        }
    }

    // One row of a table, kept on one page; a new page begins with the table's head.
    void WriteCells(const Columns& columns, const Cells& cells, const Cells& head) {
        struct Line {
            std::string text;
            double x;
            double down;
            Style style;
        };
        std::vector<Line> lines;
        double height = 0.0;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            double down = kPadding * 0.6;
            for (const Passage& passage : cells[i]) {
                for (const std::string& text :
                     Wrap(passage.text, columns[i].width - 2.0 * kPadding, passage.style)) {
                    down += passage.style.LineHeight();
                    lines.push_back({text, columns[i].x + kPadding, down, passage.style});
                }
            }
            height = std::max(height, down + kPadding);
        }
        const bool isNewPage = m_y + height > kBottom;
        RequireRoom(height);
        if (isNewPage && &cells != &head) {
            WriteCells(columns, head, head);
        }
        for (const Line& line : lines) {
            Show(line.text, line.x, m_y + line.down, line.style);
        }
        for (const Column& column : columns) {
            DrawBox(column.x, m_y, column.width, height, 0.15);
        }
        m_y += height;
    }

    void WriteFigures() {
        if (!m_sheet.figures.empty()) {
            WriteHeading("What was played");
        }
        for (const SheetFigure& figure : m_sheet.figures) {
            RequireRoom(kStripHeight + 8.0 + 6.0 * kSmall.LineHeight());
            WriteParagraph(figure.caption + " (" + ScaleText(figure) + ")", kBold);
            if (IsDrawn()) {
                DrawStrip(m_context, figure, kLeft, m_y);
            }
            m_y += kStripHeight + 0.5;
            for (const std::string& fact : figure.facts) {
                WriteParagraph(fact, kSmall, kLeft, 0.0);
            }
            m_y += 5.0;
        }
    }

    const Sheet& m_sheet;
    int m_pages;
    int m_page = 0;
    double m_y = kTop;
    Drawing m_drawing{Drawing::Format::kPdf, kPageWidth, kPageHeight};
    cairo_t* m_context = m_drawing.Context();
};

} // namespace

std::string PdfDocument(const Sheet& sheet) {
    PdfWriter counted(sheet, 0);
    counted.Write();
    return PdfWriter(sheet, counted.Pages()).Write();
}

} // namespace lab
