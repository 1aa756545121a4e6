#include "lab/common/Failure.h"
#include "lab/material/Annotations.h"
#include "lab/material/Outputs.h"
#include "lab/paper/Layout.h"
#include "lab/paper/Paper.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/MaterialOptions.h"
#include "tools/ravo/commands/Validators.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>

namespace cli {

using namespace lab;

namespace {

constexpr Colour kInk = {0.08, 0.08, 0.11};
constexpr Colour kSourceInk = {0.38, 0.66, 0.93}; // below the decoded output
constexpr Colour kGrey = {0.40, 0.38, 0.37};
constexpr Colour kMark = {0.16, 0.35, 0.62};

constexpr double kTraceWidth = 0.3; // millimetres, as all that follows
constexpr double kUnderlayWidth = 0.95;
constexpr double kOverlayWidth = 0.22;
constexpr double kSideMargin = 16.0;
constexpr double kTopMargin = 26.0;
constexpr double kBottomMargin = 24.0;
constexpr double kPulseArea = 15.0; // in front of each row, for the calibration pulse
constexpr double kSquare = 5.0;     // between heavy lines
constexpr double kRowLength = 250.0;
constexpr double kLeastGrid = 165.0; // what heading and footing need beside each other
constexpr double kLeastCell = 12.0;  // what the name of a lead needs
constexpr double kTextGap = 5.0;
constexpr double kNominalGain = 10.0; // millimetres per millivolt that the rows are made for

struct PlotOptions {
    MaterialRequest material;
    std::string output;
    std::string compare;
    std::optional<int> start;
    std::optional<double> seconds;
    double speed = 25.0; // millimetres per second
    double gain = kNominalGain;
    std::string layout;
    std::vector<std::string> leads;
};

// Twelve leads from second `from` of the source on.
struct Curves {
    int64_t rate = 0;
    double from = 0.0;
    Leads leads;
};

// ---- What is to be drawn ------------------------------------------------------------------------

Curves ReadSource(const Record& record, int start, double seconds) {
    Curves curves{record.rate, static_cast<double>(start), {}};
    ForEachSample(start, static_cast<int>(std::ceil(seconds)), [&](const double* leads) {
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            curves.leads[i].push_back(leads[i]);
        }
    });
    return curves;
}

Curves ReadDecoded(const Outputs& outputs, const Record& record, int start) {
    return {outputs.rate, static_cast<double>(start), LeadsOf(outputs, record)};
}

bool HasTwelveLeads(const Record& record) {
    return std::all_of(record.supplied.begin(), record.supplied.end(), [](bool is) { return is; });
}

std::string LayoutName(const PlotOptions& options, const Record& record, double seconds) {
    if (!options.layout.empty()) {
        return options.layout;
    }
    if (!HasTwelveLeads(record) || !options.leads.empty()) {
        return "strip";
    }
    return seconds * options.speed >= 4.0 * kLeastCell ? "3x4" : "12x1";
}

void RequireStripForLeads(const PlotOptions& options) {
    if (!options.leads.empty() && !options.layout.empty() && options.layout != "strip") {
        Fail(kUsage, "--lead", "is for strips; the layout " + options.layout + " has all leads.");
    }
}

std::size_t LeadNumber(const std::string& name) {
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (LowerCase(name) == LowerCase(kLeadNames[i])) {
            return i;
        }
    }
    Fail(kUsage, "--lead " + name, "is no lead.", "Leads are I, II, III, aVR, aVL, aVF, V1 to V6.");
}

// For strips: the leads asked for, else lead II of twelve, else all that there are.
std::vector<std::size_t> StripLeads(const PlotOptions& options, const Record& record) {
    std::vector<std::size_t> leads;
    for (const std::string& name : options.leads) {
        leads.push_back(LeadNumber(name));
    }
    if (!leads.empty()) {
        return leads;
    }
    if (HasTwelveLeads(record)) {
        return {LeadNumber("II")};
    }
    for (std::size_t i = 0; i < kLeadCount; ++i) {
        if (record.supplied[i]) {
            leads.push_back(i);
        }
    }
    return leads;
}

// ---- One picture --------------------------------------------------------------------------------

class Picture {
  public:
    Picture(const PlotOptions& options, const Record& record, const Layout& layout, int start,
            double seconds)
        : m_options(options), m_record(record), m_layout(layout), m_start(start),
          m_seconds(seconds),
          m_rowHeight(layout.rowHeight * std::max(1.0, options.gain / kNominalGain)),
          m_grid{kSideMargin, kTopMargin, GridWidth(),
                 std::ceil(m_rowHeight * static_cast<double>(layout.rows.size()) / kSquare) *
                     kSquare},
          m_paper(options.output, m_grid.width + 2.0 * kSideMargin,
                  m_grid.height + kTopMargin + kBottomMargin) {}

    void Draw(const Curves& source, const std::optional<Curves>& decoded,
              const std::vector<Beat>& beats) {
        m_paper.DrawGrid(m_grid);
        DrawHeading();
        for (std::size_t i = 0; i < m_layout.rows.size(); ++i) {
            DrawRow(i, source, decoded, beats);
        }
        DrawFooting(decoded.has_value());
        m_paper.Finish();
    }

  private:
    double GridWidth() const {
        const double length = m_layout.rowSeconds * m_options.speed;
        return std::max(kLeastGrid, kPulseArea + std::ceil(length / kSquare - 1e-9) * kSquare);
    }

    // On a heavy line.
    double BaseLine(std::size_t row) const {
        const double centre = (static_cast<double>(row) + 0.5) * m_rowHeight;
        return m_grid.y + std::round(centre / kSquare) * kSquare;
    }

    double TimeToX(const Row& row, double second) const {
        return m_grid.x + kPulseArea + (second - row.from) * m_options.speed;
    }

    // Where the room for what belongs to a cell ends.
    double EndOf(const Row& row, const Cell& cell) const {
        const bool isLast = cell.to >= row.cells.back().to;
        return isLast ? m_grid.x + m_grid.width : TimeToX(row, cell.to);
    }

    void DrawPulse(double baseLine) {
        const double x = m_grid.x;
        const double top = baseLine - m_options.gain;
        m_paper.DrawTrace({{x + 2.5, baseLine},
                           {x + 5.0, baseLine},
                           {x + 5.0, top},
                           {x + 10.0, top},
                           {x + 10.0, baseLine},
                           {x + 12.5, baseLine}},
                          m_grid, kInk, kTraceWidth);
    }

    // A lead that lies far off its base line, with its middle and with its usual value, is shifted
    // back onto the paper; its label says by how much.
    double OffsetOf(const Curves& curves, const Cell& cell) const {
        std::vector<double> values = ValuesIn(curves, cell);
        if (values.empty()) {
            return 0.0;
        }
        const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
        const double middle = (*lowest + *highest) / 2.0;
        const auto median = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), median, values.end());
        const double limit = m_rowHeight / 2.0 / m_options.gain;
        return std::fabs(middle) > limit && std::fabs(*median) > limit ? *median : 0.0;
    }

    // The samples of a cell, with their times, counted from the window's start.
    void SamplesIn(const Curves& curves, const Cell& cell, std::size_t& first,
                   std::size_t& last) const {
        const double lead = m_start - curves.from; // the curve may begin before or after the window
        const auto size = static_cast<double>(curves.leads[cell.lead].size());
        const auto rate = static_cast<double>(curves.rate);
        const double begin = std::ceil((cell.from + lead) * rate - 1e-6);
        const double end = std::floor((cell.to + lead) * rate + 1e-6) + 1.0;
        first = static_cast<std::size_t>(std::clamp(begin, 0.0, size));
        last = static_cast<std::size_t>(std::clamp(end, 0.0, size));
    }

    std::vector<double> ValuesIn(const Curves& curves, const Cell& cell) const {
        std::size_t first = 0;
        std::size_t last = 0;
        SamplesIn(curves, cell, first, last);
        const auto& values = curves.leads[cell.lead];
        return {values.begin() + static_cast<std::ptrdiff_t>(first),
                values.begin() + static_cast<std::ptrdiff_t>(std::max(first, last))};
    }

    std::vector<Point> PointsOf(const Curves& curves, const Row& row, const Cell& cell,
                                double baseLine, double offset) const {
        std::size_t first = 0;
        std::size_t last = 0;
        SamplesIn(curves, cell, first, last);
        std::vector<Point> points;
        for (std::size_t n = first; n < last; ++n) {
            const double second =
                static_cast<double>(n) / static_cast<double>(curves.rate) + curves.from - m_start;
            const double millivolts = curves.leads[cell.lead][n] - offset;
            points.push_back({TimeToX(row, second), baseLine - millivolts * m_options.gain});
        }
        return points;
    }

    void DrawLabel(const Row& row, const Cell& cell, double baseLine, double offset) {
        const Point at = {TimeToX(row, cell.from) + 1.0, baseLine - m_rowHeight * 0.32};
        const bool isSupplied = m_record.supplied[cell.lead];
        std::string label = kLeadNames[cell.lead];
        m_paper.DrawText(label, at, {4.0, isSupplied ? kInk : kGrey, Align::kLeft, true, true});
        const Point behind = {at.x + 11.0, at.y};
        const TextStyle style = {2.8, kGrey, Align::kLeft, false, true};
        std::string remark;
        if (offset != 0.0) {
            remark = Format("shifted by %+.2f mV", -offset);
        } else if (isSupplied && row.from > 0.0) {
            remark = Format("from %g s", m_start + row.from);
        } else if (!isSupplied &&
                   behind.x + m_paper.TextWidth("not supplied", style) < EndOf(row, cell)) {
            remark = "not supplied"; // the footing says it too
        }
        m_paper.DrawText(remark, behind, style);
    }

    // Where one lead ends and the next begins on the same row.
    void DrawSeparator(double x, double baseLine) {
        m_paper.DrawTrace({{x, baseLine - 5.0}, {x, baseLine - 2.5}}, m_grid, kInk, kTraceWidth);
        m_paper.DrawTrace({{x, baseLine + 2.5}, {x, baseLine + 5.0}}, m_grid, kInk, kTraceWidth);
    }

    void DrawBeats(std::size_t number, const std::vector<Beat>& beats) {
        const Row& row = m_layout.rows[number];
        const double y = m_grid.y + static_cast<double>(number + 1) * m_rowHeight - 1.2;
        for (const Beat& beat : beats) {
            const double second = beat.seconds - m_start;
            if (second >= row.cells.front().from && second < row.cells.front().to) {
                m_paper.DrawText(beat.symbol, {TimeToX(row, second), y},
                                 {2.8, kMark, Align::kCentre, false, true});
            }
        }
    }

    // Beats are marked once for each stretch of time, on the first whole row that shows something.
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
            const double offset = m_record.supplied[cell.lead] ? OffsetOf(source, cell) : 0.0;
            DrawTraces(row, cell, baseLine, offset, source, decoded);
            DrawLabel(row, cell, baseLine, offset);
            if (cell.from > row.from) {
                DrawSeparator(TimeToX(row, cell.from), baseLine);
            }
        }
        if (MarksBeats(number)) {
            DrawBeats(number, beats);
        }
    }

    // The text at the left has the room that the one at the right leaves.
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
        DrawLine(13.0, m_record.name, {6.0, kInk, Align::kLeft, true},
                 Format("seconds %d to %g", m_start, m_start + m_seconds),
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

    void DrawFooting(bool isComparison) {
        const double y = m_grid.y + m_grid.height + 8.0;
        DrawLine(y, Format("%g mm/s    %g mm/mV    no filter", m_options.speed, m_options.gain),
                 {4.0, kInk}, MissingText(), {3.2, kGrey, Align::kRight});
        if (isComparison) {
            DrawKey(m_grid.x, y + 7.0, kSourceInk, kUnderlayWidth, "source");
            DrawKey(m_grid.x + 32.0, y + 7.0, kInk, kOverlayWidth,
                    "decoded from the simulator's outputs: " + Printable(m_options.compare));
        }
    }

    std::string MissingText() const {
        std::string text;
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            text +=
                m_record.supplied[i] ? "" : std::string(text.empty() ? "" : ", ") + kLeadNames[i];
        }
        return text.empty() ? "" : "not supplied: " + text;
    }

    const PlotOptions& m_options;
    const Record& m_record;
    const Layout& m_layout;
    int m_start;
    double m_seconds;
    double m_rowHeight;
    Rectangle m_grid;
    Paper m_paper;
};

double SecondsToPlot(const PlotOptions& options, const Record& record, int start,
                     double pageSeconds) {
    const double wanted = options.seconds ? *options.seconds : pageSeconds;
    return std::min(wanted, record.Seconds() - start);
}

int Plot(const PlotOptions& options) {
    RequireStripForLeads(options);
    const Record record = LoadRecord(options.material);
    for (const std::string& warning : record.warnings) {
        Warn(warning);
    }
    RequirePlayable(record);

    std::optional<Curves> decoded;
    int start = options.start ? *options.start : 0;
    if (!options.compare.empty()) {
        const Outputs outputs = ReadOutputs(options.compare);
        const int playedFrom = FindStart(record, outputs);
        decoded = ReadDecoded(outputs, record, playedFrom);
        start = options.start ? start : playedFrom;
    }
    RequireStart(record, start);

    const double pageSeconds = kRowLength / options.speed;
    const double seconds = SecondsToPlot(options, record, start, pageSeconds);
    const Layout layout = ArrangeLeads(LayoutName(options, record, seconds), seconds, pageSeconds,
                                       StripLeads(options, record));
    const std::string header = record.HeaderPath();
    Picture picture(options, record, layout, start, seconds);
    picture.Draw(ReadSource(record, start, seconds), decoded,
                 header.empty() ? std::vector<Beat>{} : ReadBeats(header, nullptr));
    std::printf("%s\n", options.output.c_str());
    return kDone;
}

} // namespace

void AddPlot(CLI::App& app, Action& action) {
    auto options = std::make_shared<PlotOptions>();
    CLI::App* command = app.add_subcommand("plot", "Draw a record on ECG paper");
    command->add_option("RECORD", options->material.name, "Record file, or a waveform's name")
        ->required();
    command->add_option("-o,--output", options->output, "Picture: .png, .svg or .pdf")->required();
    command->add_option("--compare", options->compare,
                        "Draw this record of the simulator's outputs over the source");
    command->add_option("--start", options->start, "Second to begin at")
        ->check(CLI::Range(0, 1'000'000));
    command->add_option("--seconds", options->seconds, "Seconds to draw; else 250 mm of paper")
        ->check(Between(0.1, 86'400.0));
    command->add_option("--speed", options->speed, "Paper speed in mm/s: 12.5, 25 or 50")
        ->check(CLI::IsMember({12.5, 25.0, 50.0}))
        ->capture_default_str();
    command->add_option("--gain", options->gain, "Gain in mm/mV: 5, 10 or 20")
        ->check(CLI::IsMember({5.0, 10.0, 20.0}))
        ->capture_default_str();
    command
        ->add_option(
            "--layout", options->layout,
            "3x4, 6x2, 12x1 or strip; else 3x4 for twelve leads, 12x1 when they are short, "
            "strip for fewer")
        ->check(CLI::IsMember({"3x4", "6x2", "12x1", "strip"}));
    command->add_option("--lead", options->leads, "Strips: lead to draw; may be repeated")
        ->allow_extra_args(false);
    AddMaterialOptions(*command, options->material);
    command->callback([options, &action] { action = [options] { return Plot(*options); }; });
}

} // namespace cli
