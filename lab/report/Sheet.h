#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <utility>
#include <vector>

namespace lab {

// The content of every report, in words and figures that are the same in all formats.
struct SheetRow {
    std::string number;
    std::string name;
    std::string done;    // what was played, asked or run
    std::string value;   // the result
    std::string how;     // how the value was obtained
    std::string limits;  // what passes
    std::string outcome; // "passed", "failed", "error", "skipped"
    std::string remark;
    std::string time; // when it began
    double seconds = 0.0;
};

// A strip of what was played.
struct SheetFigure {
    std::string caption;
    std::vector<std::string> facts; // files with their digests, clipped leads
    std::string lead;
    double rate = 0.0;
    std::vector<int> microvolts;
};

// The table of a score. The first column holds the headings of the rows.
struct SheetTable {
    std::string caption;
    std::vector<std::string> head;
    std::vector<std::vector<std::string>> rows;
};

struct Sheet {
    std::string title;
    std::string outcome;
    std::string summary;
    std::string started;
    std::string host;
    std::string mark; // printed on every page; empty without stand-ins
    std::vector<std::pair<std::string, std::string>> identity;
    std::vector<std::string> notes;
    std::vector<SheetRow> rows;
    std::vector<SheetTable> tables;
    std::vector<SheetFigure> figures;
};

// The tables of a result of `ravo score --json`; captions begin with `title`.
std::vector<SheetTable> ScoreSheets(const std::string& title, const nlohmann::ordered_json& score);

// The conditions under which its figures were obtained: "learning 300 s, window 150 ms, offset 0 s,
// ...".
std::string ScoreConditions(const nlohmann::ordered_json& score);

Sheet MakeSheet(const nlohmann::ordered_json& result,
                const std::vector<nlohmann::ordered_json>& events);

std::string JunitXml(const Sheet& sheet);
std::string HtmlPage(const Sheet& sheet);
std::string PdfDocument(const Sheet& sheet);

} // namespace lab
