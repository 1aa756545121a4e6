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

} // namespace

std::vector<SheetTable> ScoreSheets(const std::string& title, const json& score) {
    return {BeatTable(title, score), RunTable(title, score["gross"])};
}

} // namespace lab
