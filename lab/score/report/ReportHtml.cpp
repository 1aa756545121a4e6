#include "lab/score/report/ReportHtml.h"

#include "lab/score/report/Conditions.h"
#include "lab/score/report/ScoreTables.h"

namespace lab::score {
namespace {

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Beat detection</title>
<style>
:root { color-scheme: light dark; }
body { font: 15px/1.5 system-ui, sans-serif; max-width: 62rem; margin: 2rem auto; padding: 0 1rem; }
p, h2 { overflow-wrap: anywhere; }
h1 { font-size: 1.5rem; }
h2 { font-size: 1.1rem; margin-top: 2rem; }
div { overflow-x: auto; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: 0.25rem 0.7rem; text-align: right; white-space: nowrap; }
th:first-child, td:first-child { text-align: left; }
thead th { border-bottom: 1.5px solid; }
tbody tr { border-bottom: 1px solid #8884; }
tr.total { font-weight: 600; }
@media print { body { max-width: none; margin: 0; } h2, table { break-inside: avoid; } }
</style>
</head>
<body>
<h1>Beat detection compared with the reference</h1>
)";

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : Shown(text)) {
        escaped += c == '&'   ? "&amp;"
                   : c == '<' ? "&lt;"
                   : c == '>' ? "&gt;"
                   : c == '"' ? "&quot;"
                              : std::string(1, c);
    }
    return escaped;
}

std::string RowOf(const std::vector<std::string>& cells, const char* element,
                  const char* attributes) {
    std::string row = std::string("<tr") + attributes + ">";
    for (const std::string& cell : cells) {
        row += std::string("<") + element + ">" + Escaped(cell) + "</" + element + ">";
    }
    return row + "</tr>\n";
}

std::string Html(const Table& table) {
    std::string html = "<h2>" + Escaped(table.title) + "</h2>\n<div><table>\n<thead>" +
                       RowOf(table.head, "th", "") + "</thead>\n<tbody>\n";
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        const bool isTotal = i + table.totals >= table.rows.size();
        html += RowOf(table.rows[i], "td", isTotal ? " class=\"total\"" : "");
    }
    return html + "</tbody>\n</table></div>\n";
}

} // namespace

std::string HtmlOf(const ScoreResult& result) {
    std::string html = kHead;
    for (const std::string& condition : ConditionsOf(result)) {
        html += "<p>" + Escaped(condition) + "</p>\n";
    }
    for (const std::string& remark : result.remarks) {
        html += "<p>Warning: " + Escaped(remark) + "</p>\n";
    }
    for (const Table& table : TablesOf(result)) {
        html += Html(table);
    }
    return html + "</body>\n</html>\n";
}

} // namespace lab::score
