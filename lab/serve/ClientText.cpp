#include "lab/serve/ClientText.h"

#include "lab/plan/Fields.h"

#include <algorithm>
#include <utility>

namespace lab::serve {
namespace {

constexpr const char* kMark = "--";
constexpr std::size_t kMarkLength = 2;

bool IsField(const std::string& name) {
    const Field* field = FindField(name, MaskOf(StepKind::kMaterial));
    return field != nullptr && field->isOption;
}

// The name of the option that begins at this mark.
std::string OptionAt(const std::string& text, std::size_t mark) {
    const std::size_t begin = mark + kMarkLength;
    const std::size_t end =
        std::min(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", begin), text.size());
    return text.substr(begin, end - begin);
}

// An option's value up to a blank or the end of its sentence.
std::string ValueAt(const std::string& text, std::size_t begin) {
    std::string value = text.substr(begin, text.find_first_of(" ;,", begin) - begin);
    value.erase(value.find_last_not_of('.') + 1);
    return value;
}

// The field that corresponds to the option; a map is an object there.
std::pair<std::string, std::size_t> FieldInPlace(const std::string& text, std::size_t mark,
                                                 const std::string& name) {
    const std::size_t end = mark + kMarkLength + name.size();
    const std::string value = text.compare(end, 1, " ") == 0 ? ValueAt(text, end + 1) : "";
    const std::size_t equals = value.find('=');
    if (name != "map" || equals == std::string::npos) {
        return {"\"" + name + "\"", end};
    }
    return {"\"map\": {\"" + value.substr(0, equals) + "\": \"" + value.substr(equals + 1) + "\"}",
            end + 1 + value.size()};
}

std::string WithFields(std::string text) {
    for (std::size_t mark = text.find(kMark); mark != std::string::npos;
         mark = text.find(kMark, mark)) {
        const std::string name = OptionAt(text, mark);
        if (!IsField(name)) {
            mark += kMarkLength;
            continue;
        }
        const auto [field, end] = FieldInPlace(text, mark, name);
        text.replace(mark, end - mark, field);
        mark += field.size();
    }
    return text;
}

// The command line breaks long cures and indents the rest.
std::string OnOneLine(std::string text) {
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n')) {
        const std::size_t next = std::min(text.find_first_not_of(" \n", at), text.size());
        text.replace(at, next - at, " ");
    }
    return text;
}

std::string Told(const std::string& text) {
    return WithFields(OnOneLine(text));
}

} // namespace

HttpFailure ForClient(const Failure& failure) {
    std::string where = OnOneLine(failure.Where());
    std::string problem = Told(failure.Problem());
    const std::string name = where.rfind(kMark, 0) == 0 ? OptionAt(where, 0) : "";
    if (IsField(name)) {
        problem = where.substr(std::min(kMarkLength + name.size() + 1, where.size())) +
                  (where.size() > kMarkLength + name.size() ? " " : "") + problem;
        where = name;
    }
    return {HttpStatusOf(failure), where, problem, Told(failure.Cure())};
}

} // namespace lab::serve
