#include "lab/score/HeaderRate.h"

#include "lab/common/Failure.h"

#include <stdexcept>
#include <vector>

namespace lab::score {
namespace {

constexpr int kRateWhereNoneIsStated = 250;

std::vector<std::string> Fields(const std::string& line) {
    constexpr const char* kBlanks = " \t\r";
    std::vector<std::string> fields;
    for (std::size_t at = line.find_first_not_of(kBlanks); at != std::string::npos;) {
        const std::size_t end = line.find_first_of(kBlanks, at);
        fields.push_back(line.substr(at, end - at));
        at = line.find_first_not_of(kBlanks, end);
    }
    return fields;
}

Rational RateOf(const std::string& field, const std::string& where, int line) {
    const auto rate = ParseRate(std::string_view(field).substr(0, field.find('/')));
    if (!rate) {
        Fail(
            kMaterial, where,
            Format("line %d: \"%s\" is not a sampling frequency.", line, Printable(field).c_str()));
    }
    return *rate;
}

} // namespace

std::optional<Rational> ParseRate(std::string_view text) {
    try {
        const auto rate = ParseDecimal(text);
        return rate && rate->mantissa > 0 ? std::optional(Rational(*rate)) : std::nullopt;
    } catch (const std::overflow_error&) {
        return std::nullopt;
    }
}

Rational ParseHeaderRate(const std::string& header, const std::string& where) {
    std::size_t at = 0;
    for (int line = 1; at < header.size(); ++line) {
        const std::size_t end = std::min(header.find('\n', at), header.size());
        const auto fields = Fields(header.substr(at, end - at));
        at = end + 1;
        if (fields.empty() || fields[0].front() == '#') {
            continue;
        }
        if (fields.size() < 2) {
            Fail(kMaterial, where, Format("line %d: is not the record line of a header.", line));
        }
        return fields.size() < 3 ? Rational(kRateWhereNoneIsStated)
                                 : RateOf(fields[2], where, line);
    }
    Fail(kMaterial, where, "has no record line.");
}

} // namespace lab::score
