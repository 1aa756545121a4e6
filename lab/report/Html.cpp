#include "lab/report/Sheet.h"

#include "lab/common/Failure.h"
#include "lab/report/Strip.h"
#include "lab/report/Xml.h"

// A self-contained page with its style and its pictures: no script, nothing loaded from elsewhere.
namespace lab {
namespace {

constexpr const char* kStyle = R"(
body { font: 10pt/1.4 "DejaVu Sans", "Liberation Sans", Arial, sans-serif; color: #000;
       background: #fff; max-width: 190mm; margin: 10mm auto; padding: 0 5mm; }
h1 { font-size: 17pt; margin: 0 0 1mm; }
h2 { font-size: 12pt; margin: 9mm 0 2mm; border-bottom: .3mm solid #000; }
.verdict { font-size: 12pt; font-weight: bold; border: .5mm solid #000; padding: 1.5mm 3mm;
           display: inline-block; margin: 2mm 0 4mm; }
.mark { border: .5mm solid #000; padding: 1mm 3mm; font-weight: bold; text-align: center; }
table { border-collapse: collapse; width: 100%; }
th { text-align: left; font-weight: bold; }
.identity th { width: 42mm; font-weight: normal; color: #333; }
.identity td, .identity th { padding: .4mm 2mm .4mm 0; vertical-align: top;
                             overflow-wrap: anywhere; }
.steps { font-size: 8.5pt; table-layout: fixed; }
.steps th, .steps td { border: .2mm solid #555; padding: 1mm 1.5mm; vertical-align: top;
                       overflow-wrap: anywhere; }
.steps thead { display: table-header-group; }
.steps tr { break-inside: avoid; }
.how, .time { color: #333; display: block; font-size: 7.5pt; }
.failed, .error { font-weight: bold; }
.score { font-size: 8.5pt; margin: 0 0 5mm; }
.score caption { text-align: left; font-weight: bold; margin-bottom: 1mm; }
.score th, .score td { border: .2mm solid #555; padding: .8mm 1.5mm; text-align: right; }
.score tbody th, .score th:first-child { text-align: left; font-weight: normal; }
.score tr { break-inside: avoid; }
figure { margin: 0 0 6mm; break-inside: avoid; }
figure svg { width: 100%; height: auto; display: block; }
figcaption { font-weight: bold; margin-bottom: 1mm; }
figure p { margin: .5mm 0; font-size: 8pt; overflow-wrap: anywhere; }
@media print { body { margin: 0; max-width: none; padding: 0; }
               figure svg { width: 166mm; height: 31mm; } } /* true to scale on paper */
@page { size: A4; margin: 18mm 15mm;
        @bottom-right { content: "page " counter(page) " of " counter(pages); font-size: 8pt; }
)";

std::string PageStyle(const Sheet& sheet) {
    const std::string mark = sheet.mark.empty() ? ""
                                                : "        @top-center { content: \"" + sheet.mark +
                                                      "\"; font-size: 8pt; font-weight: bold; }\n";
    return kStyle + mark + "}\n";
}

std::string IdentityTable(const Sheet& sheet) {
    std::string html = "<table class=\"identity\">\n";
    for (const auto& [name, value] : sheet.identity) {
        html += "<tr><th scope=\"row\">" + Escaped(name) + "</th><td>" + Escaped(value) +
                "</td></tr>\n";
    }
    return html + "</table>\n";
}

std::string Cell(const std::string& text, const std::string& more, const char* type) {
    return "<td>" + Escaped(text) +
           (more.empty()
                ? ""
                : std::string("<span class=\"") + type + "\">" + Escaped(more) + "</span>") +
           "</td>";
}

std::string StepsTable(const Sheet& sheet) {
    std::string html =
        "<table class=\"steps\">\n<colgroup><col style=\"width:7%\"><col style=\"width:17%\">"
        "<col style=\"width:25%\"><col style=\"width:24%\"><col style=\"width:12%\">"
        "<col style=\"width:15%\"></colgroup>\n<thead><tr><th>No.</th><th>Step</th>"
        "<th>What was done</th><th>Value and how it came about</th><th>Passes</th>"
        "<th>Result</th></tr></thead>\n<tbody>\n";
    for (const SheetRow& row : sheet.rows) {
        html +=
            "<tr><td>" + row.number + "</td>" + Cell(row.name, row.time, "time") +
            Cell(row.done, "", "") + Cell(row.value, row.how, "how") + Cell(row.limits, "", "") +
            "<td><span class=\"" + Escaped(row.outcome) + "\">" + Escaped(row.outcome) + "</span>" +
            (row.remark.empty() ? "" : "<span class=\"how\">" + Escaped(row.remark) + "</span>") +
            "</td></tr>\n";
    }
    return html + "</tbody>\n</table>\n";
}

std::string Tables(const Sheet& sheet) {
    std::string html = sheet.tables.empty() ? "" : "<h2>Scores</h2>\n";
    for (const SheetTable& table : sheet.tables) {
        html += "<table class=\"score\">\n<caption>" + Escaped(table.caption) +
                "</caption>\n<thead><tr>";
        for (const std::string& cell : table.head) {
            html += "<th scope=\"col\">" + Escaped(cell) + "</th>";
        }
        html += "</tr></thead>\n<tbody>\n";
        for (const auto& row : table.rows) {
            html += "<tr><th scope=\"row\">" + Escaped(row[0]) + "</th>";
            for (std::size_t i = 1; i < row.size(); ++i) {
                html += "<td>" + Escaped(row[i]) + "</td>";
            }
            html += "</tr>\n";
        }
        html += "</tbody>\n</table>\n";
    }
    return html;
}

std::string Figures(const Sheet& sheet) {
    std::string html = sheet.figures.empty() ? "" : "<h2>What was played</h2>\n";
    for (const SheetFigure& figure : sheet.figures) {
        html += "<figure>\n<figcaption>" + Escaped(figure.caption) + " (" +
                Escaped(ScaleText(figure)) + ")</figcaption>\n" + StripSvg(figure);
        for (const std::string& fact : figure.facts) {
            html += "<p>" + Escaped(fact) + "</p>\n";
        }
        html += "</figure>\n";
    }
    return html;
}

} // namespace

std::string HtmlPage(const Sheet& sheet) {
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width\">\n<title>" +
                       Escaped(sheet.title) + "</title>\n<style>" + PageStyle(sheet) +
                       "</style>\n</head>\n<body>\n";
    if (!sheet.mark.empty()) {
        html += "<p class=\"mark\">" + Escaped(sheet.mark) + "</p>\n";
    }
    html += "<h1>" + Escaped(sheet.title) + "</h1>\n<p>Test report</p>\n<p class=\"verdict\">" +
            Escaped(sheet.summary) + "</p>\n" + IdentityTable(sheet) + "<h2>Notes</h2>\n";
    for (const std::string& note : sheet.notes) {
        html += "<p>" + Escaped(note) + "</p>\n";
    }
    return html + "<h2>Steps</h2>\n" + StepsTable(sheet) + Tables(sheet) + Figures(sheet) +
           "</body>\n</html>\n";
}

} // namespace lab
