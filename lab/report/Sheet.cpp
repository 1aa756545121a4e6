#include "lab/report/Sheet.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Numbers.h"
#include "lab/evidence/Result.h"
#include "lab/evidence/Times.h"
#include "lab/report/Report.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

std::string Text(const json& value) {
    return value.is_null()           ? "unknown"
           : value.is_string()       ? value.get<std::string>()
           : value.is_boolean()      ? (value.get<bool>() ? "yes" : "no")
           : value.is_number_float() ? NumberText(value.get<double>())
                                     : value.dump();
}

std::string Joined(const json& table, const char* between) {
    std::string text;
    for (const auto& [name, value] : table.items()) {
        text += (text.empty() ? "" : ", ") + name + between + Text(value);
    }
    return text;
}

// "noise 50HZ, map (MLII = II, V5 = V5), seconds 20"
std::string OptionsText(const json& options) {
    std::string text;
    for (const auto& [name, value] : options.items()) {
        text += (text.empty() ? "" : ", ") + name + " " +
                (value.is_object() ? "(" + Joined(value, " = ") + ")" : Text(value));
    }
    return text;
}

// "I by MLII, II"
std::string LeadsText(const json& leads) {
    std::string text;
    for (const auto& [lead, signal] : leads.items()) {
        text += (text.empty() ? "" : ", ") + lead + (signal == lead ? "" : " by " + Text(signal));
    }
    return text;
}

// ---- The identity block -------------------------------------------------------------------------

std::string CalibrationText(const json& simulator) {
    const std::string state = Text(simulator["calibration"]);
    return state == "not-needed" ? "not needed"
           : state == "loaded"   ? "by " + Text(simulator["calibrationFile"]) + ", SHA-256 " +
                                     Text(simulator["calibrationSha256"])
                               : state;
}

void AddSimulator(Sheet& sheet, const json& simulator) {
    if (simulator.is_null()) {
        sheet.identity.emplace_back("Simulator", "none took part");
        return;
    }
    sheet.identity.emplace_back("Simulator", Text(simulator["model"]) + ", serial number " +
                                                 Text(simulator["serial"]));
    sheet.identity.emplace_back("Converters", Text(simulator["bits"]) + " bits, calibration: " +
                                                  CalibrationText(simulator));
}

void AddIdentity(Sheet& sheet, const json& result, const std::vector<json>& events) {
    sheet.identity = {
        {"Plan", Text(result["plan"])},
        {"SHA-256 of the plan", Text(result["planSha256"])},
        {"Operator", result["operator"].is_null() ? "not named" : Text(result["operator"])},
        {"Computer", Text(result["host"])},
        {"Software", "RAVO " + Text(result["version"])}};
    AddSimulator(sheet, result["simulator"]);
    const double speedUp = FirstEvent(events, "run")->value("speedUp", 1.0);
    if (speedUp != 1.0) {
        sheet.identity.emplace_back("Speed", NumberText(speedUp) +
                                                 " times real time, on an emulated simulator");
    }
    sheet.identity.emplace_back("Began", Text(result["started"]));
    sheet.identity.emplace_back("Ended", Text(result["ended"]));
}

// ---- The rows -----------------------------------------------------------------------------------

std::string LimitsText(const json& step) {
    const json min = step.value("min", json());
    const json max = step.value("max", json());
    const json choices = step.value("choices", json());
    if (!choices.is_null()) {
        std::string text;
        for (const json& choice : choices) {
            text += (text.empty() ? "" : ", ") + Text(choice);
        }
        return "one of " + text;
    }
    const std::string unit = step["unit"].is_null() ? "" : " " + Text(step["unit"]);
    return !min.is_null() && !max.is_null() ? Text(min) + " to " + Text(max) + unit
           : !min.is_null()                 ? "at least " + Text(min) + unit
           : !max.is_null()                 ? "at most " + Text(max) + unit
                                            : "none";
}

void DescribePlay(SheetRow& row, const json& step, const json& entry) {
    row.done = "played " + Text(step["material"]);
    const std::string options = OptionsText(step["options"]);
    row.done += options.empty() ? "" : "; " + options;
    if (step.contains("checked")) {
        row.done += Format("; figure %zu", step["checked"].get<std::size_t>() + 1);
    }
    row.limits = "every frame due";
    if (entry["framesDue"] == 0) {
        return;
    }
    row.value = Text(entry["framesPlayed"]) + " of " + Text(entry["framesDue"]) + " frames, " +
                Text(entry["seconds"]) + " s; " +
                Counted(entry["delays"].get<std::size_t>(), "delay");
    row.how = Counted(entry["requests"].get<std::size_t>(), "request") + " of the simulator; " +
              Text(entry["nominalRate"]) + " frames per second set, " +
              (entry["measuredRate"].is_null() ? "too short to measure the rate"
                                               : Text(entry["measuredRate"]) + " measured") +
              "; fed: " + LeadsText(entry["leads"]);
    const std::string clipped = Joined(entry["clipped"], " ");
    row.remark += clipped.empty() ? "" : "clipped, peak in mV: " + clipped + ".";
}

std::string LimitsOfScore(const json& limits) {
    std::string text;
    for (const auto& [name, value] : limits.items()) {
        const std::size_t ending = name.size() - 4; // "_min", "_max"
        text += (text.empty() ? "" : ", ") + name.substr(0, ending) +
                (name.substr(ending) == "_min" ? " at least " : " at most ") + Text(value);
    }
    return text.empty() ? "none" : text;
}

// The figures that have limits; without limits, the first ones.
std::string LimitedFigures(const json& entry) {
    constexpr std::array<const char*, 2> kFirst = {"qrs_se", "qrs_ppv"};
    std::vector<std::string> names(kFirst.begin(), kFirst.end());
    if (!entry["limits"].empty()) {
        names.clear();
    }
    for (const auto& [name, value] : entry["limits"].items()) {
        names.push_back(name.substr(0, name.size() - 4));
    }
    json shown = json::object();
    for (const std::string& name : names) {
        shown[name] = entry["values"].value(name, json());
    }
    std::string text;
    for (const auto& [name, value] : shown.items()) {
        text +=
            (text.empty() ? "" : ", ") + name + " " + (value.is_null() ? "undefined" : Text(value));
    }
    return text;
}

std::string DigestsOf(const json& files) {
    std::string text;
    for (const json& file : files) {
        text +=
            (text.empty() ? "" : ", ") + Text(file["path"]) + " SHA-256 " + Text(file["sha256"]);
    }
    return text;
}

void DescribeScore(SheetRow& row, const json& entry) {
    constexpr std::size_t kFewFiles = 2; // a folder's files are in the result
    row.done = "compared " + Text(entry["test"]) + " with " + Text(entry["reference"]);
    row.limits = LimitsOfScore(entry["limits"]);
    if (entry["score"].is_null()) {
        return;
    }
    row.value = LimitedFigures(entry);
    row.how = "beat by beat; " + ScoreConditions(entry["score"]);
    if (entry["files"].size() <= kFewFiles) {
        row.how += "; " + DigestsOf(entry["files"]);
    }
}

void DescribeOther(SheetRow& row, const json& step, const json& entry) {
    const std::string kind = Text(step["kind"]);
    if (kind == "wait") {
        row.done = "waited " + Text(step["wait"]) + " s";
        row.limits = "none";
        return;
    }
    if (kind == "ask") {
        const json& values = entry["values"];
        row.done = "asked: " + Text(step["ask"]);
        row.value = values.empty() ? "" : Text(values.front());
        row.value += values.empty() || step["unit"].is_null() ? "" : " " + Text(step["unit"]);
        row.how = values.empty() ? "" : "answered by the operator";
        row.limits = LimitsText(step);
        return;
    }
    row.done = "ran";
    for (const json& word : step.value("hook", json::array())) {
        row.done += " " + Text(word);
    }
    row.value = Joined(entry["values"], " = ");
    row.how = row.value.empty() ? "" : "printed by the program";
    if (entry.contains("score") && !entry["score"].is_null()) {
        const json& score = entry["score"];
        row.how += (row.how.empty() ? "" : "; ") + score.value("test", "") + " compared with " +
                   score.value("reference", "") + ", " + ScoreConditions(score);
    }
    row.limits = "the program's verdict";
    if (entry.contains("limits") && !entry["limits"].empty()) {
        row.limits += ", " + LimitsOfScore(entry["limits"]);
    }
}

void AddSentence(SheetRow& row, const std::string& text) {
    const bool isEnded = text.empty() || text.find_last_of(".!?") == text.size() - 1;
    row.remark += (row.remark.empty() || text.empty() ? "" : " ") + text + (isEnded ? "" : ".");
}

void AddRemarks(SheetRow& row, const json& entry, const std::vector<std::string>& losses) {
    AddSentence(row, Text(entry["message"]));
    if (entry.contains("score") && !entry["score"].is_null()) {
        for (const json& warning : entry["score"].value("warnings", json::array())) {
            AddSentence(row, "Warning: " + Text(warning));
        }
    }
    if (entry["attempts"] > 1) {
        AddSentence(row, Text(entry["attempts"]) + " attempts");
    }
    for (const std::string& loss : losses) {
        AddSentence(row, "Cut: " + loss);
    }
}

// "2026-11-22 05:07:17.250 +01:00", which may break into lines between its parts.
std::string SpacedTime(const json& time) {
    std::string text = time.is_null() ? "" : Text(time);
    constexpr std::size_t kLength = 29;
    if (text.size() == kLength) {
        text.insert(23, " ");
        text[10] = ' ';
    }
    return text;
}

void AddRows(Sheet& sheet, const json& result, const std::vector<json>& events) {
    std::map<std::string, std::vector<std::string>> losses;
    for (const json& event : events) {
        if (event.value("event", "") == "lost") {
            losses[event.value("step", "")].push_back(event.value("message", ""));
        }
    }
    const json& steps = FirstEvent(events, "run")->at("steps");
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const json& entry = result["steps"][i];
        SheetRow row;
        row.number = std::to_string(i + 1);
        row.name = Text(entry["name"]);
        row.outcome = Text(entry["outcome"]);
        row.time = SpacedTime(entry["started"]);
        row.seconds = entry["seconds"].get<double>();
        if (entry["kind"] == "material") {
            DescribePlay(row, steps[i], entry);
        } else if (entry["kind"] == "score") {
            DescribeScore(row, entry);
        } else {
            DescribeOther(row, steps[i], entry);
        }
        if (entry.contains("score") && !entry["score"].is_null()) {
            const auto tables = ScoreSheets(row.name, entry["score"]);
            sheet.tables.insert(sheet.tables.end(), tables.begin(), tables.end());
        }
        AddRemarks(row, entry, losses[row.name]);
        sheet.rows.push_back(row);
    }
}

// ---- Figures ------------------------------------------------------------------------------------

const char* SourceText(const std::string& source) {
    return source == "file"       ? "from files"
           : source == "licensed" ? "licensed record of the built-in database"
           : source == "stand-in"
               ? "STAND-IN for a licensed record, made from published definitions"
               : "computed waveform";
}

SheetFigure FigureOf(const json& event, std::size_t number) {
    const json& strip = event.at("strip");
    SheetFigure figure;
    figure.caption =
        Format("Figure %zu: %s, lead %s from %g s", number, Text(event["record"]).c_str(),
               Text(strip["lead"]).c_str(), strip.value("from", 0.0));
    figure.facts.push_back(std::string("Source: ") + SourceText(event.value("source", "")) + "; " +
                           Text(event["rate"]) + " samples per second.");
    if (!event.value("noise", json()).is_null()) {
        figure.facts.push_back("With the noise " + Text(event["noise"]) + ".");
    }
    for (const json& file : event["files"]) {
        figure.facts.push_back(Text(file["path"]) + ", " + Text(file["bytes"]) +
                               " bytes, SHA-256 " + Text(file["sha256"]) +
                               (file.contains("published") ? " (as published beside it)" : ""));
    }
    // The warning about a stand-in is already stated above.
    for (const json& warning : event["source"] == "stand-in" ? json() : event["warnings"]) {
        figure.facts.push_back(Text(warning) + ".");
    }
    if (!event["clipped"].empty()) {
        figure.facts.push_back(
            "Clipped by the outputs' range; peak in mV: " + Joined(event["clipped"], " ") + ".");
    }
    figure.lead = Text(strip["lead"]);
    figure.rate = strip.value("rate", 0.0);
    figure.microvolts = strip["microvolts"].get<std::vector<int>>();
    return figure;
}

// ---- Notes --------------------------------------------------------------------------------------

// Times with offsets compare as instants.
bool WasClockSetBack(const std::vector<json>& events) {
    double latest = 0.0;
    for (const json& event : events) {
        const double instant = InstantOf(event.value("time", ""));
        if (instant != 0.0 && instant < latest - 1.0) {
            return true;
        }
        latest = std::max(latest, instant);
    }
    return false;
}

void AddNotes(Sheet& sheet, const json& result, const std::vector<json>& events) {
    if (result["standIns"] == true) {
        sheet.mark = "Contains stand-ins for licensed records: no evidence for certification";
    }
    const auto resumed = std::count_if(events.begin(), events.end(), [](const json& event) {
        return event.value("event", "") == "resume";
    });
    if (resumed > 0) {
        sheet.notes.push_back("The run was resumed " +
                              Counted(static_cast<std::size_t>(resumed), "time") +
                              "; a play that had been cut was repeated whole.");
    }
    if (WasClockSetBack(events)) {
        sheet.notes.emplace_back("The computer's clock was set back during the run. Durations "
                                 "and rates are by the monotonic clock.");
    }
    sheet.notes.emplace_back(
        "A play passes when the simulator's own requests for data prove that every frame due has "
        "left its outputs. Limits count in; a verdict is taken on the number as it is printed.");
}

} // namespace

std::string SummaryLine(const json& result) {
    std::map<std::string, int> counts;
    for (const json& entry : result["steps"]) {
        ++counts[entry.value("outcome", "")];
    }
    std::string text = Format("%s: %d of %zu steps passed", result.value("outcome", "").c_str(),
                              counts["passed"], result["steps"].size());
    constexpr std::array<std::pair<const char*, const char*>, 3> kOthers = {
        {{"failed", "failed"}, {"error", "in error"}, {"skipped", "skipped"}}};
    for (const auto& [outcome, word] : kOthers) {
        text += counts[outcome] == 0 ? "" : Format(", %d %s", counts[outcome], word);
    }
    return text;
}

Sheet MakeSheet(const json& result, const std::vector<json>& events) {
    Sheet sheet;
    sheet.title = Text(result["title"]);
    sheet.outcome = Text(result["outcome"]);
    sheet.summary = SummaryLine(result);
    sheet.started = Text(result["started"]);
    sheet.host = Text(result["host"]);
    AddIdentity(sheet, result, events);
    AddNotes(sheet, result, events);
    AddRows(sheet, result, events);
    for (const json& event : events) {
        if (event.value("event", "") == "material") {
            sheet.figures.push_back(FigureOf(event, sheet.figures.size() + 1));
        }
    }
    return sheet;
}

void WriteReports(const RunFolder& folder, const std::vector<json>& events) {
    const json result = ResultOf(events);
    folder.Replace("result.json", result.dump(2) + "\n");
    const Sheet sheet = MakeSheet(result, events);
    folder.Replace("junit.xml", JunitXml(sheet));
    folder.Replace("report.html", HtmlPage(sheet));
    folder.Replace("report.pdf", PdfDocument(sheet));
}

} // namespace lab
