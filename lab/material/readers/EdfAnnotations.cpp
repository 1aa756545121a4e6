#include "lab/material/readers/EdfAnnotations.h"

#include "lab/material/readers/Numbers.h"

#include <algorithm>

namespace lab {
namespace {

constexpr char kDurationMark = '\x15';
constexpr char kTextMark = '\x14';

std::string_view CutAt(std::string_view& rest, char mark) {
    const std::string_view part = rest.substr(0, rest.find(mark));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    return part;
}

// "+12.5\x15" "2\x14text\x14other text\x14"
void ParseList(std::string_view list, std::vector<EdfAnnotation>& annotations,
               std::optional<double>* start) {
    std::string_view time = CutAt(list, kTextMark);
    const bool isSigned = !time.empty() && (time[0] == '+' || time[0] == '-');
    const auto onset = ParseNumber(CutAt(time, kDurationMark));
    if (!isSigned || !onset) {
        return;
    }
    if (start != nullptr && !*start && (list.empty() || list[0] == kTextMark)) {
        *start = onset;
    }
    while (!list.empty()) {
        const std::string_view text = CutAt(list, kTextMark);
        if (!text.empty()) {
            annotations.push_back({*onset, ParseNumber(time).value_or(0.0), std::string(text)});
        }
    }
}

} // namespace

std::vector<EdfAnnotation> ParseEdfAnnotations(std::string_view bytes,
                                               std::optional<double>* start) {
    std::vector<EdfAnnotation> annotations;
    while (!bytes.empty()) {
        const std::string_view list = CutAt(bytes, '\0');
        if (!list.empty()) {
            ParseList(list, annotations, start);
        }
    }
    return annotations;
}

} // namespace lab
