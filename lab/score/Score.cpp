#include "lab/score/Score.h"

#include "lab/common/Failure.h"
#include "lab/score/InputFile.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace lab::score {
namespace {

constexpr std::string_view kAverage = "average_";

// The request's rules, with the clock found from the lists where that is requested.
Rules RulesFor(RecordScore& record, const AnnotationList& reference, const AnnotationList& test,
               const ScoreRequest& request) {
    Rules rules = request.rules;
    if (!request.aligns) {
        return rules;
    }
    record.alignment = Align(reference, test);
    if (!record.alignment) {
        Fail(kMaterial, record.input.test,
             "does not resemble " + Printable(record.input.reference) +
                 " at one place alone, so they cannot be aligned.",
             "Are they of the same recording? --offset and --clock-ppm state the clock.");
    }
    rules.offset = record.alignment->offset;
    rules.clockPpm = record.alignment->clockPpm;
    return rules;
}

// An empty file is not a list without annotations but a damaged one.
void RequireBytes(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::file_size(path, ignored) == 0) {
        Fail(kMaterial, path, "is empty, so there is nothing to compare with.",
             "Copy the whole reference again.");
    }
}

bool HasBeats(const AnnotationList& list) {
    return std::any_of(
        list.annotations.begin(), list.annotations.end(),
        [](const Annotation& annotation) { return ClassOf(annotation.code) < kBeatClasses; });
}

void RemarkWhereWithoutBeats(const AnnotationList& list, const std::string& path,
                             const char* consequence, std::vector<std::string>& remarks) {
    if (!HasBeats(list)) {
        remarks.push_back(Printable(path) + ": holds no beat" + consequence);
    }
}

RecordScore ScoreRecord(const Input& input, const ScoreRequest& request,
                        std::vector<std::string>& remarks) {
    const ListFile referenceFile = {input.reference,
                                    HeaderOf(input.reference, request.referenceSuffix)};
    const ListFile testFile = {input.test, HeaderOf(input.test, request.testSuffix)};
    RequireBytes(input.reference);
    AnnotationList reference = ReadList(referenceFile, testFile, remarks);
    AnnotationList test = ReadList(testFile, referenceFile, remarks);
    RemarkWhereWithoutBeats(reference, input.reference, ", so every beat of the test is false",
                            remarks);
    RemarkWhereWithoutBeats(test, input.test, ", so every beat of the reference is missed",
                            remarks);
    RecordScore record;
    record.input = input;
    try {
        const Rules rules = RulesFor(record, reference, test, request);
        record.offset = rules.offset;
        record.clockPpm = rules.clockPpm;
        record.comparison = Compare(std::move(reference), std::move(test), rules);
    } catch (const std::overflow_error&) {
        Fail(kMaterial, input.test,
             "and its reference have times with more digits than are kept exactly together.",
             "Give fewer decimals of the times or of --offset, --clock-ppm, --window and "
             "--learning.");
    }
    record.figures = record.comparison.figures;
    if (!request.keepsComparisons) {
        record.comparison = {};
    }
    return record;
}

bool IsOfAverage(const std::string& name) {
    return name.compare(0, kAverage.size(), kAverage) == 0;
}

} // namespace

ScoreResult ScoreFiles(const ScoreRequest& request) {
    ScoreResult result;
    result.request = request;
    std::vector<Fractions> fractions;
    for (const Input& input :
         FindInputs({{}, request.reference, request.test}, request.referenceSuffix,
                    request.testSuffix, result.remarks)) {
        result.records.push_back(ScoreRecord(input, request, result.remarks));
        result.gross += result.records.back().figures;
        fractions.push_back(FractionsOf(result.records.back().figures));
    }
    result.average = AverageOf(fractions);
    return result;
}

std::optional<double> Figure(const ScoreResult& result, const std::string& name) {
    const bool isAverage = IsOfAverage(name);
    const Fractions gross = FractionsOf(result.gross);
    const NamedFraction* found =
        isAverage ? Find(result.average, name.substr(kAverage.size())) : Find(gross, name);
    return found == nullptr ? std::nullopt : found->value;
}

bool IsFigure(const std::string& name) {
    return Find(FractionsOf({}), IsOfAverage(name) ? name.substr(kAverage.size()) : name) !=
           nullptr;
}

std::optional<Limit> ParseLimit(const std::string& name) {
    const bool isLeast = EndsWith(name, "_min");
    if (!isLeast && !EndsWith(name, "_max")) {
        return std::nullopt;
    }
    const Limit limit{name.substr(0, name.size() - 4), isLeast};
    return IsFigure(limit.figure) ? std::optional(limit) : std::nullopt;
}

} // namespace lab::score
