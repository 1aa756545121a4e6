#include "lab/score/CsvAnnotations.h"

#include "lab/common/Failure.h"
#include "lab/score/Codes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace lab::score {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr const char* kCure = "The file begins with the line seconds,code; times are decimals.";

std::string_view Trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\r";
    const auto first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

class Parser {
  public:
    Parser(std::string_view text, const std::string& where) : m_text(text), m_where(where) {}

    AnnotationList Parse() {
        RequireHeader();
        while (NextLine()) {
            if (!Trimmed(m_current).empty()) {
                TakeLine();
            }
        }
        return InOneUnit();
    }

  private:
    using Columns = std::array<std::string_view, 3>;

    bool NextLine() {
        if (m_text.empty()) {
            return false;
        }
        const auto end = std::min(m_text.find('\n'), m_text.size());
        m_current = m_text.substr(0, end);
        m_text.remove_prefix(std::min(end + 1, m_text.size()));
        ++m_line;
        return true;
    }

    Columns Split() const {
        Columns columns;
        std::string_view rest = m_current;
        for (std::size_t i = 0;; ++i) {
            const auto comma = rest.find(',');
            if (i == m_columns) {
                FailLine("has more fields than the header.");
            }
            columns[i] = Trimmed(rest.substr(0, comma));
            if (comma == std::string_view::npos) {
                return columns;
            }
            rest.remove_prefix(comma + 1);
        }
    }

    void RequireHeader() {
        if (m_text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
            m_text.remove_prefix(kByteOrderMark.size());
        }
        m_line = NextLine() ? m_line : 1;
        const auto commas = std::count(m_current.begin(), m_current.end(), ',');
        m_columns = commas == 2 ? 3 : 2;
        const Columns names = commas > 2 ? Columns() : Split();
        if (names[0] != "seconds" || names[1] != "code" ||
            (m_columns == 3 && names[2] != "subtype")) {
            FailLine("is not the header seconds,code.");
        }
    }

    void TakeLine() {
        const Columns columns = Split();
        if (columns[1].empty()) {
            FailLine("has no code.");
        }
        Annotation annotation;
        annotation.code = CodeOfSymbol(columns[1]);
        annotation.subtype = Subtype(columns[2]);
        m_times.push_back(Time(columns[0]));
        m_finest = std::min(m_finest, m_times.back().exponent);
        m_annotations.push_back(annotation);
    }

    Decimal Time(std::string_view text) const {
        try {
            if (const auto time = ParseDecimal(text)) {
                return *time;
            }
        } catch (const std::overflow_error&) {
            FailLine("has a time with more digits than are kept exactly.");
        }
        FailLine("has \"" + Printable(std::string(text)) + "\" where a time belongs.");
    }

    std::int16_t Subtype(std::string_view text) const {
        std::int16_t subtype = 0;
        const auto end = text.data() + text.size();
        if (!text.empty() && std::from_chars(text.data(), end, subtype).ptr != end) {
            FailLine("has \"" + Printable(std::string(text)) + "\" where a subtype belongs.");
        }
        return static_cast<std::int8_t>(subtype & 0xFF);
    }

    // The unit is the last place that any time has.
    AnnotationList InOneUnit() {
        AnnotationList list;
        try {
            list.unit = Rational(1, PowerOfTen(-m_finest));
            for (std::size_t i = 0; i < m_times.size(); ++i) {
                m_annotations[i].time =
                    Multiply(m_times[i].mantissa, PowerOfTen(m_times[i].exponent - m_finest));
            }
        } catch (const std::overflow_error&) {
            Fail(kMaterial, m_where, "has times with more digits than are kept exactly together.");
        }
        list.annotations = std::move(m_annotations);
        PutInOrder(list);
        return list;
    }

    [[noreturn]] void FailLine(const std::string& problem) const {
        Fail(kMaterial, m_where, Format("line %d: ", m_line) + problem, kCure);
    }

    std::string_view m_text; // what is left of it
    const std::string& m_where;
    std::string_view m_current;
    int m_line = 0;
    std::size_t m_columns = 2;
    int m_finest = 0;
    std::vector<Decimal> m_times;
    std::vector<Annotation> m_annotations;
};

} // namespace

AnnotationList ParseCsv(const std::string& text, const std::string& where) {
    return Parser(text, where).Parse();
}

} // namespace lab::score
