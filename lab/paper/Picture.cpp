#include "lab/paper/Picture.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"
#include "lab/paper/Paper.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <utility>

namespace lab {
namespace {

constexpr Colour kInk = {0.08, 0.08, 0.11};
constexpr Colour kSourceInk = {0.38, 0.66, 0.93}; // below the decoded output
constexpr Colour kGrey = {0.40, 0.38, 0.37};
constexpr Colour kMark = {0.16, 0.35, 0.62};

constexpr double kTraceWidth = 0.3; // in millimetres, like everything that follows
constexpr double kUnderlayWidth = 0.95;
constexpr double kOverlayWidth = 0.22;
constexpr double kSideMargin = 16.0;
constexpr double kTopMargin = 26.0;
constexpr double kBottomMargin = 24.0;
constexpr double kPulseArea = 15.0;  // in front of each row, for the calibration pulse
constexpr double kSquare = 5.0;      // between heavy lines
constexpr double kLeastGrid = 165.0; // space needed by heading and footing side by side
constexpr double kA4Width = 297.0;   // landscape
constexpr double kA4Height = 210.0;
constexpr double kTextGap = 5.0;
constexpr double kNameHeight = 0.32;  // of names above the base line, in row heights
constexpr double kNominalGain = 10.0; // millimetres per millivolt for which the rows are made

// The rows' height and the gain at which no trace leaves its row.
struct Scale {
    double gain;
    double rowHeight;
    bool isReduced; // less than the nominal gain because the traces demand it
};

// The samples of a cell: the first, and one past the last. The sample at the end of the cell
// belongs to it where no other cell continues from there.
std::pair<std::size_t, std::size_t> SamplesIn(const Curves& curves, const Cell& cell,
                                              double start) {
    const double lead = start - curves.from; // the curve may begin before or after the window
    const auto size = static_cast<double>(curves.leads[cell.lead].size());
    const auto rate = static_cast<double>(curves.rate);
    const double begin = std::clamp(std::ceil((cell.from + lead) * rate - 1e-6), 0.0, size);
    const double at = (cell.to + lead) * rate;
    const double end = cell.isFollowed ? std::ceil(at - 1e-6) : std::floor(at + 1e-6) + 1.0;
    return {static_cast<std::size_t>(begin),
            static_cast<std::size_t>(std::clamp(end, begin, size))};
}

// The samples that are not missing.
std::vector<double> ValuesIn(const Curves& curves, const Cell& cell, double start) {
    const auto [first, last] = SamplesIn(curves, cell, start);
    const auto& values = curves.leads[cell.lead];
    std::vector<double> there;
    std::copy_if(values.begin() + static_cast<std::ptrdiff_t>(first),
                 values.begin() + static_cast<std::ptrdiff_t>(last), std::back_inserter(there),
                 [](double value) { return !std::isnan(value); });
    return there;
}

// Sets the samples from `begin` to before `end` of the material to NaN.
void Blank(std::vector<double>& lead, const Gap& gap, int64_t from) {
    const auto size = static_cast<int64_t>(lead.size());
    const auto begin = std::clamp<int64_t>(gap.begin - from, 0, size);
    const auto end = std::clamp<int64_t>(gap.end - from, begin, size);
    std::fill(lead.begin() + begin, lead.begin() + end, std::numeric_limits<double>::quiet_NaN());
}

// Substitutes for missing samples are played, but are not part of the record: they are not drawn,
// nor are the limb leads computed from them.
Curves WithoutSubstitutes(Curves curves, const Record& record) {
    constexpr std::size_t kFirstComputed = 2;
    constexpr std::size_t kLastComputed = 5;
    const auto from = std::llround(curves.from * static_cast<double>(curves.rate));
    for (const Signal& signal : record.signals) {
        const auto output = static_cast<std::size_t>(signal.lead);
        for (const Gap& gap : signal.gaps) {
            Blank(curves.leads[LeadOfOutput(output)], gap, from);
            for (std::size_t i = kFirstComputed; i <= kLastComputed && output < kFirstComputed;
                 ++i) {
                Blank(curves.leads[i], gap, from);
            }
        }
    }
    return curves;
}

// What was done to the record's own samples, for the footing.
std::string TreatmentText(const Record& record) {
    const auto& gain = record.gain;
    std::string text;
    const bool isOne =
        std::all_of(gain.begin(), gain.end(), [&](double g) { return g == gain[0]; });
    if (isOne && gain[0] != 1.0) {
        text += Format("    gain %g", gain[0]);
    }
    for (std::size_t i = 0; i < kOutputCount && !isOne; ++i) {
        text += gain[i] == 1.0 ? "" : Format("    gain %s %g", kOutputNames[i], gain[i]);
    }
    text += record.offset == 0.0 ? "" : Format("    offset %+g mV", record.offset);
    text += record.noise.empty() ? "" : "    noise " + Printable(StemOf(record.noise));
    return text;
}

// A lead whose middle and whose usual value both lie further than `limit` off its base line is
// shifted back onto the paper; its label says by how much.
double OffsetOf(std::vector<double> values, double limit) {
    if (values.empty()) {
        return 0.0;
    }
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    const double middle = (*lowest + *highest) / 2.0;
    const auto median = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), median, values.end());
    return std::fabs(middle) > limit && std::fabs(*median) > limit ? *median : 0.0;
}

// The largest offset without a shift: what a row of the layout shows.
double OffsetLimit(const Layout& layout) {
    return layout.rowHeight / 2.0 / kNominalGain;
}

// The largest voltage of any trace off its base line, in millivolts.
double Reach(const PictureOptions& options, const Record& record, const Layout& layout,
             const Curves& curves) {
    double reach = 0.0;
    for (const Row& row : layout.rows) {
        for (const Cell& cell : row.cells) {
            if (!record.supplied[cell.lead]) {
                continue;
            }
            const std::vector<double> values = ValuesIn(curves, cell, options.start);
            const double offset = OffsetOf(values, OffsetLimit(layout));
            for (const double value : values) {
                reach = std::max(reach, std::fabs(value - offset));
            }
        }
    }
    return reach;
}

// Traces of neighbouring rows do not touch.
double RowHeightFor(double reach, double gain, const Layout& layout) {
    constexpr double kGap = 2.0;
    const double usual = layout.rowHeight * std::max(1.0, gain / kNominalGain);
    const double needed = 2.0 * reach * gain;
    return needed + kGap <= usual ? usual : std::ceil((needed + kSquare) / kSquare) * kSquare;
}

// Rows grow to twice their usual height before the gain goes down, unless the gain was requested.
Scale FittingScale(const PictureOptions& options, const Layout& layout, double reach) {
    const std::array<double, 3> smaller = {5.0, 2.5, 1.0};
    double gain = options.gain.value_or(kNominalGain);
    for (const double next : smaller) {
        const bool fits = RowHeightFor(reach, gain, layout) <= 2.0 * layout.rowHeight;
        if (options.gain || fits) {
            break;
        }
        gain = next;
    }
    return {gain, RowHeightFor(reach, gain, layout), !options.gain && gain != kNominalGain};
}

class Picture {
  public:
    Picture(const PictureOptions& options, const Record& record, const Layout& layout,
            const Scale& scale)
        : m_options(options), m_record(record), m_layout(layout), m_scale(scale),
          m_rowsPerPage(RowsPerPage()),
          m_pages((layout.rows.size() + m_rowsPerPage - 1) / m_rowsPerPage), m_grid{kSideMargin,
                                                                                    kTopMargin,
                                                                                    GridWidth(),
                                                                                    GridHeight()},
          m_paper(options.path, SheetLength(m_grid.width + 2.0 * kSideMargin, kA4Width),
                  SheetLength(m_grid.height + kTopMargin + kBottomMargin, kA4Height)) {}

    void Draw(const Curves& source, const std::optional<Curves>& decoded,
              const std::vector<Beat>& beats) {
        for (m_page = 0; m_page < m_pages; ++m_page) {
            if (m_page > 0) {
                m_paper.NextPage();
            }
            m_paper.DrawGrid(m_grid);
            DrawHeading();
            const std::size_t first = m_page * m_rowsPerPage;
            const std::size_t last = std::min(first + m_rowsPerPage, m_layout.rows.size());
            for (std::size_t i = first; i < last; ++i) {
                DrawRow(i, source, decoded, beats);
            }
            DrawFooting(decoded.has_value());
        }
        m_paper.Finish();
    }

  private:
    // Documents consist of A4 sheets, or of larger ones where not even one row fits; an image is
    // one sheet of the size of its contents.
    double SheetLength(double needed, double a4) const {
        return m_options.isPaged ? std::max(needed, a4) : needed;
    }

    // Rows of one stretch of time stay together, or are shared out evenly where a sheet is too
    // small for them.
    std::size_t RowsPerPage() const {
        const std::vector<Row>& rows = m_layout.rows;
        const auto fitting = static_cast<std::size_t>(
            std::max((kA4Height - kTopMargin - kBottomMargin) / m_scale.rowHeight, 1.0));
        if (!m_options.isPaged || rows.size() <= fitting) {
            return rows.size();
        }
        const auto isOfFirst = [&](const Row& row) { return row.from == rows[0].from; };
        const auto together =
            static_cast<std::size_t>(std::count_if(rows.begin(), rows.end(), isOfFirst));
        if (together <= fitting) {
            return fitting - fitting % together;
        }
        const std::size_t pages = (together + fitting - 1) / fitting;
        return (together + pages - 1) / pages;
    }

    double GridHeight() const {
        const double height = m_scale.rowHeight * static_cast<double>(m_rowsPerPage);
        return std::ceil(height / kSquare) * kSquare;
    }

    double GridWidth() const {
        const double length = m_layout.rowSeconds * m_options.speed;
        return std::max(kLeastGrid, kPulseArea + std::ceil(length / kSquare - 1e-9) * kSquare);
    }

    double RowOnPage(std::size_t row) const {
        return static_cast<double>(row - m_page * m_rowsPerPage);
    }

    // On a heavy line.
    double BaseLine(std::size_t row) const {
        const double centre = (RowOnPage(row) + 0.5) * m_scale.rowHeight;
        return m_grid.y + std::round(centre / kSquare) * kSquare;
    }

    double TimeToX(const Row& row, double second) const {
        return m_grid.x + kPulseArea + (second - row.from) * m_options.speed;
    }

    // The right edge of the space that belongs to a cell.
    double EndOf(const Row& row, const Cell& cell) const {
        const bool isLast = cell.to >= row.cells.back().to;
        return isLast ? m_grid.x + m_grid.width : TimeToX(row, cell.to);
    }

    void DrawPulse(double baseLine) {
        const double x = m_grid.x;
        const double top = baseLine - m_scale.gain;
        m_paper.DrawTrace({{x + 2.5, baseLine},
                           {x + 5.0, baseLine},
                           {x + 5.0, top},
                           {x + 10.0, top},
                           {x + 10.0, baseLine},
                           {x + 12.5, baseLine}},
                          m_grid, kInk, kTraceWidth);
    }

    std::vector<Point> PointsOf(const Curves& curves, const Row& row, const Cell& cell,
                                double baseLine, double offset) const {
        const auto [first, last] = SamplesIn(curves, cell, m_options.start);
        std::vector<Point> points;
        for (std::size_t n = first; n < last; ++n) {
            const double second = static_cast<double>(n) / static_cast<double>(curves.rate) +
                                  curves.from - m_options.start;
            const double millivolts = curves.leads[cell.lead][n] - offset;
            points.push_back({TimeToX(row, second), baseLine - millivolts * m_scale.gain});
        }
        return points;
    }

    // Properties of a supplied lead that its trace does not show by itself.
    std::string RemarkOn(const Row& row, double offset, bool isThere) const {
        if (offset != 0.0) {
            return Format("shifted by %+.2f mV", -offset);
        }
        const std::string from =
            row.from > 0.0 ? Format("from %g s", m_options.start + row.from) : "";
        return isThere ? from : from + (from.empty() ? "" : ": ") + "missing";
    }

    // The first name of a row stands below the pulse, the others where their traces begin. None of
    // the lead's samples `isThere` where the record misses them all.
    void DrawLabel(const Row& row, const Cell& cell, double baseLine, double offset, bool isThere) {
        const bool isFirst = cell.from == row.from;
        const Point start = {TimeToX(row, cell.from) + 1.0,
                             baseLine - m_scale.rowHeight * kNameHeight};
        const Point at = isFirst ? Point{m_grid.x + 2.0, baseLine + 4.3} : start;
        const bool isSupplied = m_record.supplied[cell.lead];
        std::string label = kLeadNames[cell.lead];
        m_paper.DrawText(label, at, {4.0, isSupplied ? kInk : kGrey, Align::kLeft, true, true});
        const Point behind = {isFirst ? start.x : start.x + 11.0, start.y};
        const TextStyle style = {2.8, kGrey, Align::kLeft, false, true};
        const double room = EndOf(row, cell) - behind.x;
        const std::string remark = isSupplied ? RemarkOn(row, offset, isThere) : "not supplied";
        // Where there is no room, the footing says which leads are not supplied.
        const bool fits = isSupplied || m_paper.TextWidth(remark, style) < room;
        m_paper.DrawText(fits ? remark : "", behind, style);
    }

    // Where one lead ends and the next begins on the same row: a bar in front of its name, away
    // from the base line, where it would look like a piece of the trace.
    void DrawSeparator(double x, double baseLine) {
        const double foot = baseLine - m_scale.rowHeight * kNameHeight;
        m_paper.DrawTrace({{x, foot - 3.2}, {x, foot + 0.2}}, m_grid, kGrey, kTraceWidth);
    }

    void DrawBeats(std::size_t number, const std::vector<Beat>& beats) {
        const Row& row = m_layout.rows[number];
        const double y = m_grid.y + (RowOnPage(number) + 1.0) * m_scale.rowHeight - 1.2;
        for (const Beat& beat : beats) {
            const double second = beat.seconds - m_options.start;
            if (second >= row.cells.front().from && second < row.cells.front().to) {
                m_paper.DrawText(beat.symbol, {TimeToX(row, second), y},
                                 {2.8, kMark, Align::kCentre, false, true});
            }
        }
    }

    // Beats are marked once for each interval of time, on the first whole row that has a trace.
    bool MarksBeats(std::size_t number) const {
        const auto shows = [this](const Row& row) {
            return row.isRhythm && m_record.supplied[row.cells.front().lead];
        };
        const Row& row = m_layout.rows[number];
        const auto before = m_layout.rows.begin() + static_cast<std::ptrdiff_t>(number);
        return shows(row) && std::none_of(m_layout.rows.begin(), before, [&](const Row& other) {
                   return shows(other) && other.from == row.from;
               });
    }

    void DrawTraces(const Row& row, const Cell& cell, double baseLine, double offset,
                    const Curves& source, const std::optional<Curves>& decoded) {
        if (!m_record.supplied[cell.lead]) {
            return;
        }
        m_paper.DrawTrace(PointsOf(source, row, cell, baseLine, offset), m_grid,
                          decoded ? kSourceInk : kInk, decoded ? kUnderlayWidth : kTraceWidth);
        if (decoded) {
            m_paper.DrawTrace(PointsOf(*decoded, row, cell, baseLine, offset), m_grid, kInk,
                              kOverlayWidth);
        }
    }

    void DrawRow(std::size_t number, const Curves& source, const std::optional<Curves>& decoded,
                 const std::vector<Beat>& beats) {
        const Row& row = m_layout.rows[number];
        const double baseLine = BaseLine(number);
        DrawPulse(baseLine);
        for (const Cell& cell : row.cells) {
            const std::vector<double> values = m_record.supplied[cell.lead]
                                                   ? ValuesIn(source, cell, m_options.start)
                                                   : std::vector<double>();
            const double offset = OffsetOf(values, OffsetLimit(m_layout));
            DrawLabel(row, cell, baseLine, offset, !values.empty()); // no text hides a trace
            DrawTraces(row, cell, baseLine, offset, source, decoded);
            if (cell.from > row.from) {
                DrawSeparator(TimeToX(row, cell.from), baseLine);
            }
        }
        if (MarksBeats(number)) {
            DrawBeats(number, beats);
        }
    }

    // The text on the left gets the space that the text on the right leaves.
    void DrawLine(double y, const std::string& left, const TextStyle& leftStyle,
                  const std::string& right, const TextStyle& rightStyle) {
        const double room = m_grid.width - kTextGap - m_paper.TextWidth(right, rightStyle);
        m_paper.DrawText(m_paper.Fitted(Printable(left), room, leftStyle), {m_grid.x, y},
                         leftStyle);
        m_paper.DrawText(right, {m_grid.x + m_grid.width, y}, rightStyle);
    }

    void DrawHeading() {
        const std::string rate =
            Format("%lld samples per second", static_cast<long long>(m_record.rate));
        DrawLine(13.0, m_record.name + (m_options.isStandIn ? "  (stand-in)" : ""),
                 {6.0, kInk, Align::kLeft, true},
                 Format("seconds %g to %g", m_options.start, m_options.start + m_options.seconds),
                 {4.0, kInk, Align::kRight});
        DrawLine(20.0, m_record.source, {3.2, kGrey},
                 m_record.date.empty() ? rate : m_record.date + "   " + rate,
                 {3.2, kGrey, Align::kRight});
    }

    void DrawKey(double x, double y, const Colour& colour, double width, const std::string& text) {
        const Rectangle everywhere = {0.0, 0.0, m_grid.width + 2.0 * kSideMargin, y + 10.0};
        m_paper.DrawTrace({{x, y - 1.0}, {x + 10.0, y - 1.0}}, everywhere, colour, width);
        const TextStyle style = {3.2, kGrey};
        const double room = m_grid.x + m_grid.width - x - 12.0;
        m_paper.DrawText(m_paper.Fitted(text, room, style), {x + 12.0, y}, style);
    }

    // The scale is printed in full, even when there is no room for anything else.
    void DrawFooting(bool isComparison) {
        const double y = m_grid.y + m_grid.height + 8.0;
        const TextStyle style = {4.0, kInk};
        const TextStyle small = {3.2, kGrey, Align::kRight};
        const std::string scale = Format("%g mm/s    %g mm/mV%s    no filter", m_options.speed,
                                         m_scale.gain, m_scale.isReduced ? " (automatic)" : "");
        const double left = m_grid.width - kTextGap - m_paper.TextWidth(scale, style);
        const std::string missing = m_paper.Fitted(MissingText(), left, small);
        const double room = left - m_paper.TextWidth(missing, small);
        m_paper.DrawText(scale + m_paper.Fitted(TreatmentText(m_record) + PageText(), room, style),
                         {m_grid.x, y}, style);
        m_paper.DrawText(missing, {m_grid.x + m_grid.width, y}, small);
        if (isComparison) {
            DrawKey(m_grid.x, y + 7.0, kSourceInk, kUnderlayWidth, "source");
            DrawKey(m_grid.x + 32.0, y + 7.0, kInk, kOverlayWidth,
                    "decoded from the simulator's outputs: " + Printable(m_options.comparison));
        }
    }

    std::string PageText() const {
        return m_pages == 1 ? "" : Format("    page %zu of %zu", m_page + 1, m_pages);
    }

    std::string MissingText() const {
        std::string text;
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            text +=
                m_record.supplied[i] ? "" : std::string(text.empty() ? "" : ", ") + kLeadNames[i];
        }
        return text.empty() ? "" : "not supplied: " + text;
    }

    const PictureOptions& m_options;
    const Record& m_record;
    const Layout& m_layout;
    const Scale m_scale;
    const std::size_t m_rowsPerPage;
    const std::size_t m_pages;
    const Rectangle m_grid;
    Paper m_paper;
    std::size_t m_page = 0;
};

} // namespace

void DrawPicture(const PictureOptions& options, const Record& record, const Layout& layout,
                 const Curves& source, const std::optional<Curves>& decoded,
                 const std::vector<Beat>& beats) {
    const Curves drawn = WithoutSubstitutes(source, record);
    const double reach = Reach(options, record, layout, drawn);
    Picture picture(options, record, layout, FittingScale(options, layout, reach));
    picture.Draw(drawn, decoded, beats);
}

} // namespace lab
