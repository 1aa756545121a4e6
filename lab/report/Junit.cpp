#include "lab/report/Sheet.h"

#include "lab/common/Failure.h"
#include "lab/report/Xml.h"

#include <algorithm>

// JUnit XML as continuous integration servers read it.
namespace lab {
namespace {

int64_t CountOf(const Sheet& sheet, const char* outcome) {
    return std::count_if(sheet.rows.begin(), sheet.rows.end(),
                         [&](const SheetRow& row) { return row.outcome == outcome; });
}

// The schema allows three decimals at most and no exponent.
std::string Seconds(double seconds) {
    return Format("%.3f", seconds);
}

std::string Verdict(const SheetRow& row) {
    const std::string message = Escaped(row.remark);
    if (row.outcome == "skipped") {
        return "      <skipped message=\"" + message + "\"/>\n";
    }
    const std::string element = row.outcome == "failed"  ? "failure"
                                : row.outcome == "error" ? "error"
                                                         : "";
    return element.empty() ? ""
                           : "      <" + element + " message=\"" + message + "\" type=\"" +
                                 element + "\">" + message + "</" + element + ">\n";
}

std::string TestCase(const Sheet& sheet, const SheetRow& row) {
    std::string said = row.done;
    for (const std::string& more : {row.value, row.how, "passes: " + row.limits, row.remark}) {
        said += more.empty() ? "" : "\n" + more;
    }
    return "    <testcase classname=\"" + Escaped(sheet.title) + "\" name=\"" + Escaped(row.name) +
           "\" time=\"" + Seconds(row.seconds) + "\">\n" + Verdict(row) + "      <system-out>" +
           Escaped(said) + "</system-out>\n    </testcase>\n";
}

std::string TablesText(const Sheet& sheet) {
    std::string text;
    for (const SheetTable& table : sheet.tables) {
        text += "\n" + table.caption + "\n";
        std::vector<std::vector<std::string>> rows = {table.head};
        rows.insert(rows.end(), table.rows.begin(), table.rows.end());
        for (const auto& row : rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                text += (i == 0 ? "" : "\t") + row[i];
            }
            text += "\n";
        }
    }
    return text;
}

} // namespace

std::string JunitXml(const Sheet& sheet) {
    double seconds = 0.0;
    for (const SheetRow& row : sheet.rows) {
        seconds += row.seconds;
    }
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
    xml += "  <testsuite name=\"" + Escaped(sheet.title) + "\"" +
           Format(" tests=\"%zu\" failures=\"%lld\" errors=\"%lld\" skipped=\"%lld\"",
                  sheet.rows.size(), static_cast<long long>(CountOf(sheet, "failed")),
                  static_cast<long long>(CountOf(sheet, "error")),
                  static_cast<long long>(CountOf(sheet, "skipped"))) +
           " time=\"" + Seconds(seconds) + "\" timestamp=\"" + Escaped(sheet.started) +
           "\" hostname=\"" + Escaped(sheet.host) + "\">\n";
    xml += "    <properties>\n";
    for (const auto& [name, value] : sheet.identity) {
        xml +=
            "      <property name=\"" + Escaped(name) + "\" value=\"" + Escaped(value) + "\"/>\n";
    }
    if (!sheet.mark.empty()) {
        xml += "      <property name=\"Stand-ins\" value=\"" + Escaped(sheet.mark) + "\"/>\n";
    }
    xml += "    </properties>\n";
    for (const SheetRow& row : sheet.rows) {
        xml += TestCase(sheet, row);
    }
    return xml + "    <system-out>" + Escaped(sheet.summary) + Escaped(TablesText(sheet)) +
           "</system-out>\n  </testsuite>\n</testsuites>\n";
}

} // namespace lab
