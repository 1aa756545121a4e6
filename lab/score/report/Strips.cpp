#include "lab/score/report/Strips.h"

#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/paper/Paper.h"
#include "lab/score/Codes.h"
#include "lab/score/InputFile.h"
#include "lab/score/report/StripSamples.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

namespace lab::score {
namespace {

constexpr double kSeconds = 6.0; // of paper
constexpr double kSpeed = 25.0;  // millimetres per second
constexpr double kGain = 10.0;   // millimetres per millivolt
constexpr double kSideMargin = 16.0;
constexpr double kTopMargin = 20.0;
constexpr double kBottomMargin = 14.0;
constexpr double kMarkRow = 10.0; // row for the marks of one side
constexpr double kTraceRow = 35.0;
constexpr double kInkWidth = 0.3;

constexpr Colour kInk = {0.08, 0.08, 0.11};
constexpr Colour kGrey = {0.40, 0.38, 0.37};
constexpr Colour kReferenceInk = {0.16, 0.35, 0.62};
constexpr Colour kTestInk = {0.55, 0.25, 0.55};
constexpr Colour kAlarm = {0.78, 0.10, 0.10};

// One disagreement, with its times in seconds of the reference's clock.
struct Disagreement {
    std::string cell; // "Vn"
    std::optional<double> reference;
    std::optional<double> test;
    double Time() const { return reference ? *reference : *test; }
};

std::vector<Disagreement> DisagreementsOf(const Comparison& comparison) {
    std::vector<Disagreement> all;
    const auto secondsOf = [&](const Beats& beats, std::uint32_t at) {
        return at == kNone ? std::nullopt
                           : std::optional(comparison.timeline.Seconds(beats.Time(at)));
    };
    for (const Judgement& judgement : comparison.judgements) {
        if (judgement.IsDisagreement()) {
            all.push_back({{kReferenceLetters[judgement.row], kTestLetters[judgement.column]},
                           secondsOf(comparison.ReferenceBeats(), judgement.pair.reference),
                           secondsOf(comparison.TestBeats(), judgement.pair.test)});
        }
    }
    return all;
}

// ---- One picture --------------------------------------------------------------------------------

class Picture {
  public:
    Picture(const std::string& path, const Disagreement& disagreement,
            const std::vector<Trace>& traces)
        : m_disagreement(disagreement), m_traces(traces),
          m_from(disagreement.Time() - kSeconds / 2.0),
          m_grid{kSideMargin, kTopMargin, kSeconds * kSpeed,
                 2.0 * kMarkRow +
                     kTraceRow * static_cast<double>(std::max<std::size_t>(1, traces.size()))},
          m_paper(path, m_grid.width + 2.0 * kSideMargin,
                  m_grid.height + kTopMargin + kBottomMargin) {}

    void Draw(const std::string& record, const Timeline& timeline) {
        m_paper.DrawGrid(m_grid);
        DrawHeading(record);
        for (std::size_t i = 0; i < m_traces.size(); ++i) {
            DrawTrace(i);
        }
        DrawMarks(timeline, timeline.reference, kReferenceLetters, true);
        DrawMarks(timeline, timeline.test, kTestLetters, false);
        m_paper.Finish();
    }

  private:
    double TimeToX(double second) const { return m_grid.x + (second - m_from) * kSpeed; }

    void DrawHeading(const std::string& record) {
        const std::string& cell = m_disagreement.cell;
        m_paper.DrawText(Format("Record %s, %.3f s: %s", Printable(record).c_str(),
                                m_disagreement.Time(), cell.c_str()),
                         {m_grid.x, 9.0}, {4.5, kInk, lab::Align::kLeft, true});
        m_paper.DrawText("reference above, test below; o, O: no counterpart, x, X: none because "
                         "the other side is shut down",
                         {m_grid.x, 15.0}, {2.8, kGrey});
        m_paper.DrawText(Format("25 mm/s  10 mm/mV%s", m_traces.empty() ? "  no signals" : ""),
                         {m_grid.x, m_grid.y + m_grid.height + 6.0}, {2.8, kGrey});
        m_paper.DrawText(Format("%.3f s to %.3f s", m_from, m_from + kSeconds),
                         {m_grid.x + m_grid.width, m_grid.y + m_grid.height + 6.0},
                         {2.8, kGrey, lab::Align::kRight});
    }

    // Centred on its usual value, the baseline.
    void DrawTrace(std::size_t number) {
        const Trace& trace = m_traces[number];
        const double middle = m_grid.y + kMarkRow + (static_cast<double>(number) + 0.5) * kTraceRow;
        std::vector<double> sorted = trace.millivolts;
        std::sort(sorted.begin(), sorted.end());
        const double usual = sorted.empty() ? 0.0 : sorted[sorted.size() / 2];
        std::vector<Point> points;
        for (std::size_t i = 0; i < trace.seconds.size(); ++i) {
            points.push_back(
                {TimeToX(trace.seconds[i]), middle + 5.0 - (trace.millivolts[i] - usual) * kGain});
        }
        m_paper.DrawTrace(points, m_grid, kInk, kInkWidth);
        m_paper.DrawText(trace.name, {m_grid.x + 1.0, middle - kTraceRow / 2.0 + 4.0},
                         {3.2, kInk, lab::Align::kLeft, true, true});
    }

    // The letter of a beat, or the symbol of an annotation that separates beats or shuts a side
    // down; nothing for others.
    static std::string MarkOf(const Event& event, const std::array<char, kLabels>& letters) {
        const Class type = ClassOf(event.code);
        if (type < kBeatClasses) {
            return std::string(1, letters[type]);
        }
        const bool isShown = event.code == kFibrillationBegin || event.code == kFibrillationEnd ||
                             event.code == kNoise;
        return isShown ? SymbolOfCode(event.code) : std::string();
    }

    void DrawMarks(const Timeline& timeline, const std::vector<Event>& events,
                   const std::array<char, kLabels>& letters, bool isReference) {
        const auto concerned = isReference ? m_disagreement.reference : m_disagreement.test;
        for (const Event& event : events) {
            const double second = timeline.Seconds(event.time);
            const std::string mark = MarkOf(event, letters);
            if (!mark.empty() && second >= m_from && second <= m_from + kSeconds) {
                DrawMark(mark, second, isReference,
                         concerned && second == *concerned && ClassOf(event.code) < kBeatClasses);
            }
        }
    }

    void DrawMark(const std::string& mark, double second, bool isReference, bool isConcerned) {
        const double x = TimeToX(second);
        const double edge = isReference ? m_grid.y : m_grid.y + m_grid.height;
        const double inward = isReference ? 1.0 : -1.0;
        const Colour& colour = isConcerned ? kAlarm : isReference ? kReferenceInk : kTestInk;
        m_paper.DrawTrace({{x, edge + inward * 5.5}, {x, edge + inward * kMarkRow}}, m_grid, colour,
                          kInkWidth);
        m_paper.DrawText(mark, {x, isReference ? edge + 4.5 : edge - 2.0},
                         {isConcerned ? 4.5 : 3.5, colour, lab::Align::kCentre, isConcerned, true});
    }

    const Disagreement& m_disagreement;
    const std::vector<Trace>& m_traces;
    double m_from;
    Rectangle m_grid;
    Paper m_paper;
};

// ---- The list -----------------------------------------------------------------------------------

void WriteTime(Json& json, const char* key, const std::optional<double>& time) {
    json.Key(key);
    time ? json.Value(*time) : json.Null();
}

std::string LineOf(const std::string& record, const Disagreement& disagreement,
                   const std::string& picture) {
    Json json;
    json.BeginObject().Field("record", record).Field("cell", disagreement.cell);
    WriteTime(json, "reference", disagreement.reference);
    WriteTime(json, "test", disagreement.test);
    json.Key("strip");
    picture.empty() ? json.Null() : json.Value(picture);
    json.EndObject();
    return json.Text() + "\n";
}

// What a picture's name takes from the record's name, limited so that the whole is a valid file
// name.
std::string NameOf(const RecordScore& record, std::size_t number) {
    constexpr std::size_t kLongest = 200; // in bytes, of the 255 of a file's name
    const std::string& name = record.input.record;
    std::size_t end = std::min(name.size(), kLongest);
    while (end < name.size() && end > 0 && IsContinuation(name[end])) {
        --end;
    }
    // Names that begin alike are distinguished by the record's number in the result.
    return end == name.size() ? name : name.substr(0, end) + Format("~%zu", number);
}

class Drawer {
  public:
    Drawer(const StripOptions& options, std::string referenceSuffix,
           std::vector<std::string>& remarks)
        : m_options(options), m_referenceSuffix(std::move(referenceSuffix)), m_remarks(remarks) {
        std::error_code error;
        std::filesystem::create_directories(options.directory, error);
        m_list.open(ListPath(), std::ios::trunc);
        if (!m_list) {
            Fail(kCannotWrite, ListPath(), "cannot be written.", "Name another folder.");
        }
    }

    void Draw(const RecordScore& record) {
        const std::string recordName = NameOf(record, ++m_records);
        const auto disagreements = DisagreementsOf(record.comparison);
        std::optional<StripSamples> samples;
        for (std::size_t i = 0; i < disagreements.size(); ++i) {
            std::string name;
            if (m_drawn < m_options.most) {
                if (!samples) {
                    samples.emplace(HeaderOf(record.input.reference, m_referenceSuffix));
                    Remark(samples->Remark());
                }
                name = Format("%s_%04zu_%s.png", recordName.c_str(), i + 1,
                              disagreements[i].cell.c_str());
                DrawOne(record, disagreements[i], *samples, name);
            }
            m_list << LineOf(record.input.record, disagreements[i], name);
            m_left += name.empty() ? 1U : 0U;
        }
    }

    void Finish() {
        m_list.close();
        if (!m_list) {
            Fail(kCannotWrite, ListPath(), "cannot be written.");
        }
        if (m_left > 0) {
            Remark(Format("%zu more disagreements are listed but not drawn; --max-strips draws "
                          "more",
                          m_left));
        }
    }

  private:
    std::string ListPath() const { return m_options.directory + "/strips.jsonl"; }

    void Remark(const std::string& remark) {
        if (!remark.empty()) {
            m_remarks.push_back(remark);
        }
    }

    void DrawOne(const RecordScore& record, const Disagreement& disagreement,
                 const StripSamples& samples, const std::string& name) {
        const double time = disagreement.Time();
        const auto traces = samples.Read(time - kSeconds / 2.0, time + kSeconds / 2.0);
        Picture(m_options.directory + "/" + name, disagreement, traces)
            .Draw(record.input.record, record.comparison.timeline);
        ++m_drawn;
    }

    const StripOptions& m_options;
    const std::string m_referenceSuffix;
    std::vector<std::string>& m_remarks;
    std::ofstream m_list;
    std::size_t m_records = 0;
    std::size_t m_drawn = 0;
    std::size_t m_left = 0;
};

} // namespace

void DrawStrips(const ScoreResult& result, const StripOptions& options,
                std::vector<std::string>& remarks) {
    Drawer drawer(options, result.request.referenceSuffix, remarks);
    for (const RecordScore& record : result.records) {
        drawer.Draw(record);
    }
    drawer.Finish();
}

} // namespace lab::score
