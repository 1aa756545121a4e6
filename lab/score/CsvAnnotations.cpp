#include "lab/score/CsvAnnotations.h"

#include "lab/common/Failure.h"
#include "lab/score/Codes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <system_error>

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

// The codes that are not known symbols: how many there are, and the first different ones.
class UnknownCodes {
  public:
    void Add(std::string_view code, int line) {
        m_line = m_count == 0 ? line : m_line;
        ++m_count;
        constexpr std::size_t kFirst = 3;
        const bool isNew = std::find(m_first.begin(), m_first.end(), code) == m_first.end();
        if (isNew && m_first.size() < kFirst) {
            m_first.emplace_back(code);
        }
    }

    // The remark for a file of `all` codes; empty when all are known.
    std::string Remark(std::size_t all) const {
        if (m_count == 0) {
            return "";
        }
        if (m_count == 1) {
            return (all == 1 ? "its one code is unknown"
                             : Format("1 of its %zu codes is unknown and counts as no beat", all)) +
                   Format(", that in line %d: ", m_line) + First();
        }
        const std::string what =
            m_count == all
                ? Format("none of its %zu codes is known", all)
                : Format("%zu of its %zu codes are unknown and count as no beats", m_count, all);
        return what + Format("; the first, from line %d on: ", m_line) + First();
    }

  private:
    std::string First() const {
        constexpr std::size_t kLongest = 20; // bytes of a code that are shown
        std::string text;
        for (const std::string& code : m_first) {
            std::size_t end = std::min(code.size(), kLongest);
            while (end < code.size() && IsContinuation(code[end])) {
                ++end;
            }
            const std::string shown = code.substr(0, end) + (end < code.size() ? "..." : "");
            text += (text.empty() ? "\"" : ", \"") + ToUtf8(Printable(shown)) + "\"";
        }
        return text;
    }

    std::size_t m_count = 0;
    int m_line = 0; // of the first
    std::vector<std::string> m_first;
};

class Parser {
  public:
    Parser(std::string_view text, const std::string& where) : m_text(text), m_where(where) {}

    CsvContent Parse() {
        RequireHeader();
        while (NextLine()) {
            if (!Trimmed(m_current).empty()) {
                TakeLine();
            }
        }
        const std::string remark = m_unknown.Remark(m_annotations.size());
        return {InOneUnit(), remark};
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
        if (annotation.code == 0) {
            m_unknown.Add(columns[1], m_line);
        }
        annotation.subtype = Subtype(columns[2]);
        m_times.push_back(Time(columns[0]));
        m_lines.push_back(m_line);
        m_finest = std::min(m_finest, m_times.back().exponent);
        m_annotations.push_back(annotation);
    }

    Decimal Time(std::string_view text) const {
        try {
            if (const auto time = ParseDecimal(text)) {
                RequireFitting(*time);
                return *time;
            }
        } catch (const std::overflow_error&) {
            FailLine("has a time with more digits than are kept exactly.");
        }
        FailLine("has \"" + Printable(std::string(text)) + "\" where a time belongs.");
    }

    // Throws std::overflow_error for a number that does not fit by itself.
    static void RequireFitting(const Decimal& time) {
        (void)Multiply(time.mantissa, PowerOfTen(time.exponent));
        (void)PowerOfTen(-time.exponent);
    }

    std::int16_t Subtype(std::string_view text) const {
        std::int16_t subtype = 0;
        const auto end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, subtype);
        if (!text.empty() && (read.ptr != end || read.ec != std::errc())) {
            FailLine("has \"" + Printable(std::string(text)) +
                     "\" where a subtype from -32768 to 32767 belongs.");
        }
        return static_cast<std::int8_t>(subtype & 0xFF);
    }

    // The unit is the last decimal place of any time.
    AnnotationList InOneUnit() {
        AnnotationList list;
        list.unit = Rational(1, PowerOfTen(-m_finest));
        for (std::size_t i = 0; i < m_times.size(); ++i) {
            try {
                m_annotations[i].time =
                    Multiply(m_times[i].mantissa, PowerOfTen(m_times[i].exponent - m_finest));
            } catch (const std::overflow_error&) {
                m_line = m_lines[i];
                FailLine("has a time that is not kept exactly together with the finest one, of " +
                         std::to_string(-m_finest) + " decimals.");
            }
        }
        list.annotations = std::move(m_annotations);
        PutInOrder(list);
        return list;
    }

    [[noreturn]] void FailLine(const std::string& problem) const {
        Fail(kMaterial, m_where, Format("line %d: ", m_line) + problem, kCure);
    }

    std::string_view m_text; // the remaining text
    const std::string& m_where;
    std::string_view m_current;
    int m_line = 0;
    std::size_t m_columns = 2;
    int m_finest = 0;
    std::vector<Decimal> m_times;
    std::vector<int> m_lines; // of the times
    std::vector<Annotation> m_annotations;
    UnknownCodes m_unknown;
};

} // namespace

CsvContent ParseCsv(const std::string& text, const std::string& where) {
    return Parser(text, where).Parse();
}

} // namespace lab::score
