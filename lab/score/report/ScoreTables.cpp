#include "lab/score/report/ScoreTables.h"

#include "lab/common/Failure.h"
#include "lab/score/report/Conditions.h"

#include <algorithm>

namespace lab::score {
namespace {

constexpr double kPercent = 100.0;

std::string Percent(const std::optional<double>& value, int decimals) {
    return value ? Format("%.*f", decimals, *value * kPercent) : "-";
}

std::string Count(std::int64_t count) {
    return std::to_string(count);
}

// ---- The matrix ---------------------------------------------------------------------------------

std::vector<std::string> MatrixRow(const Matrix& matrix, std::size_t row) {
    std::vector<std::string> cells = {std::string(1, kReferenceLetters[row])};
    for (std::size_t column = 0; column < kLabels; ++column) {
        const bool isPossible = row < kBeatClasses || column < kBeatClasses;
        cells.push_back(isPossible ? Count(matrix[row][column]) : "");
    }
    return cells;
}

Table MatrixTable(const ScoreResult& result) {
    const bool isSingle = result.records.size() == 1;
    Table table;
    table.title =
        "Beats of " +
        (isSingle ? "record " + Shown(result.records.front().input.record)
                  : Count(static_cast<std::int64_t>(result.records.size())) + " records") +
        ": rows by the reference, columns by the test";
    table.head = {""};
    for (const char letter : kTestLetters) {
        table.head.push_back(std::string(1, letter));
    }
    for (std::size_t row = 0; row < kLabels; ++row) {
        table.rows.push_back(MatrixRow(result.gross.matrix, row));
    }
    return table;
}

// ---- One line a record --------------------------------------------------------------------------

// A column of fractions: its headline and the name of its figure.
struct Column {
    const char* head;
    const char* figure;
};

const std::vector<Column> kBeatColumns = {{"QRS Se", "qrs_se"},    {"QRS +P", "qrs_ppv"},
                                          {"VEB Se", "veb_se"},    {"VEB +P", "veb_ppv"},
                                          {"VEB FPR", "veb_fpr"},  {"SVEB Se", "sveb_se"},
                                          {"SVEB +P", "sveb_ppv"}, {"SVEB FPR", "sveb_fpr"}};
const std::vector<Column> kVentricularRunColumns = {
    {"couplet Se", "v_couplet_se"}, {"couplet +P", "v_couplet_ppv"}, {"3-5 Se", "v_short_se"},
    {"3-5 +P", "v_short_ppv"},      {">5 Se", "v_long_se"},          {">5 +P", "v_long_ppv"}};
const std::vector<Column> kSupraventricularRunColumns = {
    {"couplet Se", "s_couplet_se"}, {"couplet +P", "s_couplet_ppv"}, {"3-5 Se", "s_short_se"},
    {"3-5 +P", "s_short_ppv"},      {">5 Se", "s_long_se"},          {">5 +P", "s_long_ppv"}};
const std::vector<Column> kFibrillationColumns = {{"episode Se", "vf_se"},
                                                  {"episode +P", "vf_ppv"},
                                                  {"duration Se", "vf_duration_se"},
                                                  {"duration +P", "vf_duration_ppv"}};

std::vector<std::string> Line(const std::string& name, const Fractions& fractions,
                              const std::vector<Column>& columns, int decimals) {
    std::vector<std::string> cells = {name};
    for (const Column& column : columns) {
        cells.push_back(Percent(Find(fractions, column.figure)->value, decimals));
    }
    return cells;
}

Table LineTable(const std::string& title, const ScoreResult& result,
                const std::vector<Column>& columns, int decimals) {
    Table table{title, {"record"}, {}, 2};
    for (const Column& column : columns) {
        table.head.emplace_back(column.head);
    }
    for (const RecordScore& record : result.records) {
        table.rows.push_back(
            Line(Shown(record.input.record), FractionsOf(record.figures), columns, decimals));
    }
    table.rows.push_back(Line("gross", FractionsOf(result.gross), columns, decimals));
    table.rows.push_back(Line("average", result.average, columns, decimals));
    return table;
}

// ---- Clocks that were found ---------------------------------------------------------------------

std::vector<std::string> ClockLine(const std::string& record, const Alignment& found) {
    return {record,
            Format("%.4f", found.offset.ToDouble()),
            Format("%.1f", found.offsetError * 1000.0),
            Format("%.1f", found.placingError * 1000.0),
            Format("%.2f", found.clockPpm.ToDouble()),
            Format("%.2f", found.clockError),
            Count(static_cast<std::int64_t>(found.pairs)),
            Percent(found.agreement, 0),
            Percent(found.nextBest, 0)};
}

Table ClockTable(const ScoreResult& result) {
    Table table{
        "Clocks found: each value with its standard error, the offset's at the test's second "
        "0 and, at most, at its beats; per cent of the beats that agree within 60 ms, and at "
        "the next best place",
        {"record", "offset s", "error ms", "at beats", "clock ppm", "error ppm", "pairs", "agree",
         "next best"},
        {},
        0};
    for (const RecordScore& record : result.records) {
        table.rows.push_back(ClockLine(Shown(record.input.record), *record.alignment));
    }
    return table;
}

// ---- Plain text ---------------------------------------------------------------------------------

// The width in characters, as a terminal shows them.
std::size_t WidthOf(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return !IsContinuation(c); }));
}

std::vector<std::size_t> WidthsOf(const Table& table) {
    std::vector<std::size_t> widths(table.head.size());
    const auto widen = [&](const std::vector<std::string>& cells) {
        for (std::size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], WidthOf(cells[i]));
        }
    };
    widen(table.head);
    std::for_each(table.rows.begin(), table.rows.end(), widen);
    return widths;
}

// The first column is aligned left, the others right.
std::string TextLine(const std::vector<std::string>& cells,
                     const std::vector<std::size_t>& widths) {
    std::string line = cells[0] + std::string(widths[0] - WidthOf(cells[0]), ' ');
    for (std::size_t i = 1; i < cells.size(); ++i) {
        line += "  " + std::string(widths[i] - WidthOf(cells[i]), ' ') + cells[i];
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

std::string TextOfTable(const Table& table) {
    const auto widths = WidthsOf(table);
    std::string text = table.title + "\n" + TextLine(table.head, widths);
    for (const auto& row : table.rows) {
        text += TextLine(row, widths);
    }
    return text;
}

} // namespace

std::vector<Table> TablesOf(const ScoreResult& result) {
    std::vector<Table> tables = {
        MatrixTable(result), LineTable("Beat detection, per cent", result, kBeatColumns, 2),
        LineTable("Runs of ventricular ectopic beats, per cent", result, kVentricularRunColumns, 1),
        LineTable("Runs of supraventricular ectopic beats, per cent", result,
                  kSupraventricularRunColumns, 1),
        LineTable("Ventricular fibrillation and flutter, per cent", result, kFibrillationColumns,
                  1)};
    if (result.request.aligns) {
        tables.push_back(ClockTable(result));
    }
    return tables;
}

std::string TextOf(const ScoreResult& result) {
    std::string text;
    for (const std::string& condition : ConditionsOf(result)) {
        text += Shown(condition) + "\n";
    }
    for (const Table& table : TablesOf(result)) {
        text += "\n" + TextOfTable(table);
    }
    return text;
}

} // namespace lab::score
