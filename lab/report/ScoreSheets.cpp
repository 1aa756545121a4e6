#include "lab/report/Sheet.h"

#include "lab/common/Failure.h"

#include <nlohmann/json.hpp>

#include <array>
#include <utility>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

std::string Percent(const json& fraction) {
    return fraction.is_number() ? Format("%.2f", fraction.get<double>() * 100.0) : "-";
}

std::string Count(const json& group, const char* field) {
    return group.contains(field) ? group[field].dump() : "";
}

// ---- Beats --------------------------------------------------------------------------------------

std::vector<std::string> BeatRow(const std::string& name, const json& figures) {
    std::vector<std::string> row = {name};
    for (const char* group : {"qrs", "veb", "sveb"}) {
        for (const char* fraction : {"se", "ppv", "fpr"}) {
            if (figures[group].contains(fraction)) {
                row.push_back(Percent(figures[group][fraction]));
            }
        }
    }
    for (const char* count : {"tp", "fn", "fp"}) {
        row.push_back(Count(figures["qrs"], count));
    }
    return row;
}

SheetTable BeatTable(const std::string& title, const json& score) {
    SheetTable table{title + ": beats, in percent",
                     {"Record", "QRS Se", "QRS +P", "VEB Se", "VEB +P", "VEB FPR", "SVEB Se",
                      "SVEB +P", "SVEB FPR", "TP", "FN", "FP"},
                     {}};
    for (const json& record : score["records"]) {
        table.rows.push_back(BeatRow(record.value("record", ""), record));
    }
    table.rows.push_back(BeatRow("Gross", score["gross"]));
    table.rows.push_back(BeatRow("Average", score["average"]));
    return table;
}

// ---- Runs and episodes --------------------------------------------------------------------------

std::vector<std::string> MatchRow(const std::string& name, const json& group,
                                  const char* detected) {
    return {name, Count(group, detected) + " of " + Count(group, "reference"), Percent(group["se"]),
            Count(group, "matchedTest") + " of " + Count(group, "test"), Percent(group["ppv"])};
}

SheetTable RunTable(const std::string& title, const json& gross) {
    constexpr std::array<std::pair<const char*, const char*>, 3> kBins = {
        {{"couplet", "couplets"}, {"short", "short runs"}, {"long", "long runs"}}};
    SheetTable table{title + ": runs and episodes of all records, in percent",
                     {"What", "Reference's found", "Se", "Test's confirmed", "+P"},
                     {}};
    for (const auto& [letter, name] : {std::pair("v", "VEB "), std::pair("s", "SVEB ")}) {
        for (const auto& [bin, words] : kBins) {
            table.rows.push_back(MatchRow(std::string(name) + words, gross["runs"][letter][bin],
                                          "matchedReference"));
        }
    }
    const json& episodes = gross["episodes"]["vf"];
    table.rows.push_back(MatchRow("Fibrillation, episodes", episodes, "detected"));
    table.rows.push_back({"Fibrillation, duration", "", Percent(episodes["durationSe"]), "",
                          Percent(episodes["durationPpv"])});
    return table;
}

// ---- Clocks that were found ---------------------------------------------------------------------

std::string InMilliseconds(const json& seconds) {
    return Format("%.1f", seconds.get<double>() * 1000.0);
}

SheetTable ClockTable(const std::string& title, const json& score) {
    SheetTable table{title + ": clocks found from the lists, each value with its standard error",
                     {"Record", "Offset, s", "at second 0, ms", "at the beats, ms", "Clock, ppm",
                      "Error, ppm", "Pairs", "Agree, %", "Next best, %"},
                     {}};
    for (const json& record : score["records"]) {
        const json& found = record["alignment"];
        table.rows.push_back(
            {record.value("record", ""), Format("%.4f", found["offset"].get<double>()),
             InMilliseconds(found["offsetError"]), InMilliseconds(found["placingError"]),
             Format("%.2f", found["clockPpm"].get<double>()),
             Format("%.2f", found["clockPpmError"].get<double>()), found["pairs"].dump(),
             Percent(found["agreement"]), Percent(found["nextBestAgreement"])});
    }
    return table;
}

std::string FoundClock(const json& records) {
    if (records.size() != 1) {
        return "offset and clock of each record found from the lists, as in the table of clocks";
    }
    const json& found = records[0]["alignment"];
    return Format("found from the lists: offset %.4f s (standard error %.1f ms), clock %.2f ppm "
                  "(%.2f ppm)",
                  found["offset"].get<double>(), found["offsetError"].get<double>() * 1000.0,
                  found["clockPpm"].get<double>(), found["clockPpmError"].get<double>());
}

// Which files of two folders were compared.
std::string Suffixes(const json& score) {
    const json& records = score["records"];
    const bool areFolders =
        records.empty() || records[0].value("reference", "") != score.value("reference", "");
    return areFolders ? ", suffixes " + score.value("referenceSuffix", "") + " and " +
                            score.value("testSuffix", "")
                      : "";
}

} // namespace

std::vector<SheetTable> ScoreSheets(const std::string& title, const json& score) {
    std::vector<SheetTable> tables = {BeatTable(title, score), RunTable(title, score["gross"])};
    if (score.value("align", false)) {
        tables.push_back(ClockTable(title, score));
    }
    return tables;
}

std::string ScoreConditions(const json& score) {
    return "learning " + score["learning"].dump() + " s, window " + score["window"].dump() + " ms" +
           Suffixes(score) + ", " +
           (score.value("align", false)
                ? FoundClock(score["records"])
                : "offset " + score.value("offset", json(0)).dump() + " s, clock " +
                      score.value("clockPpm", json(0)).dump() + " ppm");
}

} // namespace lab
