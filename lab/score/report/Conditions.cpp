#include "lab/score/report/Conditions.h"

#include "lab/common/Text.h"

namespace lab::score {
namespace {

constexpr const char* kSums = "Gross figures are of all records' counts together; averages are the "
                              "mean over the records in which a figure is defined.";

// Whether two folders were compared, in which case the suffixes select the files.
bool AreFolders(const ScoreResult& result) {
    return result.records.empty() ||
           result.records.front().input.reference != result.request.reference;
}

std::string Side(const char* name, const std::string& path, const std::string& suffix,
                 bool isFolder) {
    return std::string(name) + ": " + Shown(path) +
           (isFolder ? " (files with the suffix " + Shown(suffix) + ")" : "");
}

std::string ClockSentence(const ScoreRequest& request) {
    if (request.aligns) {
        return "Offset and clock of the test were found from the lists, for each record by itself.";
    }
    return Format("Offset %.10g s and clock %.10g ppm, as given: a test time t counts as t + t x "
                  "clock / 10^6 + offset.",
                  request.rules.offset.ToDouble(), request.rules.clockPpm.ToDouble());
}

} // namespace

std::string Shown(const std::string& text) {
    return ToUtf8(Printable(text));
}

std::vector<std::string> ConditionsOf(const ScoreResult& result) {
    const ScoreRequest& request = result.request;
    const bool areFolders = AreFolders(result);
    return {
        Side("Reference", request.reference, request.referenceSuffix, areFolders),
        Side("Test", request.test, request.testSuffix, areFolders),
        ClockSentence(request),
        Format("Beats up to %.10g s are the learning period and are left out.",
               request.rules.learning.ToDouble()),
        Format("Beats are pairs when they are at most %.10g ms apart.",
               request.rules.window.ToDouble() * 1000.0),
        kSums,
        "Made by ravo " + request.version + ", by ANSI/AAMI EC57 and IEC 60601-2-47:2012.",
    };
}

} // namespace lab::score
