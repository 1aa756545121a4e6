#include "lab/material/readers/CsvReader.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/CsvLines.h"
#include "lab/material/readers/Units.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace lab {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kMostColumns = 4096;
constexpr std::size_t kRowsPerBlock = 4096;

std::string LowerCased(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return lower;
}

// "I [mV]" is the signal "I" in mV; text without brackets is a name without a unit.
std::pair<std::string, std::string> NameAndUnit(std::string_view field) {
    const auto open = field.find_last_of("([");
    if (open == std::string_view::npos || field.empty() ||
        (field.back() != ')' && field.back() != ']')) {
        return {std::string(field), ""};
    }
    return {std::string(Trim(field.substr(0, open))),
            std::string(Trim(field.substr(open + 1, field.size() - open - 2)))};
}

// How many units of a time column make one second; nothing when the column does not hold times.
std::optional<double> TimesPerSecond(std::string_view field) {
    const auto [name, unit] = NameAndUnit(field);
    const std::string lower = LowerCased(name);
    const std::string lowerUnit = LowerCased(unit);
    constexpr std::array<const char*, 7> kSeconds = {"time",    "t",      "s",     "sec",
                                                     "seconds", "second", "time_s"};
    constexpr std::array<const char*, 4> kMilliseconds = {"ms", "milliseconds", "msec", "time_ms"};
    if (std::find(kMilliseconds.begin(), kMilliseconds.end(), lower) != kMilliseconds.end()) {
        return 1000.0;
    }
    if (std::find(kSeconds.begin(), kSeconds.end(), lower) == kSeconds.end()) {
        return std::nullopt;
    }
    return lowerUnit == "ms" ? 1000.0 : 1.0;
}

class CsvReader : public SourceReader {
  public:
    CsvReader(const std::string& path, const CsvOptions& options) : m_lines(path) {
        ReadHeader(options);
        const Rate rate = ReadRows(options);
        m_record.path = path;
        m_record.name = StemOf(path);
        m_record.files.push_back(path);
        m_record.frameRate = rate;
        for (SourceSignal& signal : m_record.signals) {
            signal.rate = rate;
            signal.samples = m_rows;
        }
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_wanted = signals;
        m_lines.Rewind();
        std::string_view header;
        m_lines.Next(header);
    }

    bool Read(Samples& block) override {
        block.resize(m_wanted.size());
        for (std::vector<double>& row : block) {
            row.clear();
        }
        std::size_t count = 0;
        for (; count < kRowsPerBlock && NextRow(); ++count) {
            for (std::size_t i = 0; i < m_wanted.size(); ++i) {
                const std::size_t column = m_wanted[i] + FirstSignal();
                block[i].push_back(NumberIn(column) / m_perMillivolt[m_wanted[i]]);
            }
        }
        return count > 0;
    }

  private:
    std::size_t FirstSignal() const { return m_timesPerSecond ? 1 : 0; }

    // ---- Opening ----------------------------------------------------------------------------

    void ReadHeader(const CsvOptions& options) {
        std::string_view line;
        if (!m_lines.Next(line)) {
            Fail(kMaterial, m_lines.Path(), "is empty.");
        }
        m_separator = SeparatorOf(line);
        SplitCsv(line, m_separator, m_fields);
        const bool isText = std::any_of(m_fields.begin(), m_fields.end(), [](auto field) {
            return !field.empty() && !ParseNumber(field);
        });
        if (!isText || line.find('\0') != std::string_view::npos) {
            Fail(kMaterial, m_lines.Path(), "does not begin with a line of names.",
                 "Its first line must name the leads, as in: seconds,I,II,V1");
        }
        m_timesPerSecond = TimesPerSecond(m_fields[0]);
        m_columns = m_fields.size();
        if (m_columns > kMostColumns || m_columns <= FirstSignal()) {
            Fail(kMaterial, m_lines.Path(), Format("has %zu columns.", m_columns),
                 "Each lead is a column; a column of times alone is not a record.");
        }
        for (std::size_t i = FirstSignal(); i < m_columns; ++i) {
            AddSignal(m_fields[i], options);
        }
    }

    void AddSignal(std::string_view field, const CsvOptions& options) {
        auto [name, unit] = NameAndUnit(field);
        SourceSignal signal;
        const bool isTold = UnitsPerMillivolt(unit).has_value();
        signal.unit = isTold ? unit : options.unit.value_or(unit.empty() ? "mV" : unit);
        const auto units = UnitsPerMillivolt(signal.unit);
        signal.description = name;
        signal.isVoltage = units.has_value();
        m_perMillivolt.push_back(units.value_or(1.0));
        m_record.signals.push_back(signal);
    }

    // Checks every row once: the fields must be numbers and the times equidistant.
    Rate ReadRows(const CsvOptions& options) {
        double first = 0.0;
        double last = 0.0;
        while (NextRow()) {
            for (std::size_t i = 0; i < m_columns; ++i) {
                const double number = NumberIn(i);
                if (i == 0 && m_timesPerSecond && !options.rate) {
                    TakeTime(number, first, last);
                }
            }
            ++m_rows;
        }
        if (m_rows < 1) {
            Fail(kMaterial, m_lines.Path(), "has names and no numbers.");
        }
        if (options.rate) {
            return RateFrom(*options.rate);
        }
        if (!m_timesPerSecond || m_rows < 2) {
            Fail(kMaterial, m_lines.Path(), "does not say how many samples a second it has.",
                 "Give --rate, or make the first column one of times: seconds or ms.");
        }
        return RateOfTimes(first, last);
    }

    void TakeTime(double time, double& first, double& last) {
        if (m_rows == 0) {
            first = time;
        } else {
            const double step = time - last;
            if (m_rows == 1 || step < m_smallest) {
                m_smallest = step;
                m_smallestLine = m_lines.Number();
            }
            if (m_rows == 1 || step > m_largest) {
                m_largest = step;
                m_largestLine = m_lines.Number();
            }
        }
        if (!std::isfinite(time) || (m_rows > 0 && time <= last)) {
            FailAt(0, "is not after the time before it");
        }
        last = time;
    }

    Rate RateOfTimes(double first, double last) const {
        constexpr double kTolerance = 0.01;
        const double step = (last - first) / static_cast<double>(m_rows - 1);
        const bool isShort = step - m_smallest > m_largest - step;
        const double worst = isShort ? m_smallest : m_largest;
        // Slightly more than the tolerance: the times are decimal numbers, so their differences are
        // not exact.
        if (std::fabs(worst - step) > step * (kTolerance + 1e-6)) {
            Fail(kMaterial, m_lines.Path(),
                 Format("line %lld is %g s after the line before it; the average is %g s.",
                        static_cast<long long>(isShort ? m_smallestLine : m_largestLine),
                        worst / *m_timesPerSecond, step / *m_timesPerSecond),
                 "Its times must be equally spaced within 1 %; with --rate they are ignored.");
        }
        return RateFrom(*m_timesPerSecond / step);
    }

    // Times that are rounded to some decimals give a rate that is almost whole.
    Rate RateFrom(double rate) const {
        constexpr double kNearlyWhole = 1e-4;
        const double whole = std::nearbyint(rate);
        if (whole >= 1.0 && std::fabs(rate - whole) <= kNearlyWhole * rate) {
            return MakeRate(static_cast<int64_t>(std::min(whole, 1e9)), 1);
        }
        constexpr int64_t kParts = 1'000'000;
        return MakeRate(std::max<int64_t>(std::llround(std::min(rate, 1e9) * kParts), 1), kParts);
    }

    // ---- Rows -------------------------------------------------------------------------------

    bool NextRow() {
        std::string_view line;
        if (!m_lines.Next(line)) {
            return false;
        }
        SplitCsv(line, m_separator, m_fields);
        if (m_fields.size() != m_columns) {
            Fail(kMaterial, m_lines.Path(),
                 Format("line %lld has %zu columns, the first line %zu.",
                        static_cast<long long>(m_lines.Number()), m_fields.size(), m_columns),
                 "Each line needs as many as the first; decimal commas need semicolons between "
                 "columns.");
        }
        return true;
    }

    double NumberIn(std::size_t column) {
        const std::string_view field = m_fields[column];
        if (const auto number = ParseNumber(field)) {
            return Bounded(column, *number);
        }
        if (field.empty() || LowerCased(field) == "nan") {
            return kMissing;
        }
        if (m_separator != ',' && field.find(',') != std::string_view::npos) {
            m_decimal.assign(field);
            std::replace(m_decimal.begin(), m_decimal.end(), ',', '.');
            if (const auto number = ParseNumber(m_decimal)) {
                return Bounded(column, *number);
            }
        }
        FailAt(column, "is not a number");
    }

    // Fails for larger numbers; next to one of these, no other sample would be resolved.
    double Bounded(std::size_t column, double number) const {
        constexpr double kMost = 1e15;
        if (std::fabs(number) > kMost) {
            FailAt(column, "is beyond 1e15");
        }
        return number;
    }

    [[noreturn]] void FailAt(std::size_t column, const char* problem) const {
        Fail(kMaterial, m_lines.Path(),
             Format("line %lld, column %zu: \"%s\" %s.", static_cast<long long>(m_lines.Number()),
                    column + 1, Printable(std::string(m_fields[column].substr(0, 40))).c_str(),
                    problem),
             "Correct it; an empty field is a missing sample.");
    }

    CsvLines m_lines;
    char m_separator = ',';
    std::size_t m_columns = 0;
    std::optional<double> m_timesPerSecond; // of the first column, when it holds times
    std::vector<double> m_perMillivolt;
    int64_t m_rows = 0;
    double m_smallest = 0.0; // time steps, and where they were found
    double m_largest = 0.0;
    int64_t m_smallestLine = 0;
    int64_t m_largestLine = 0;

    std::vector<std::size_t> m_wanted;
    std::vector<std::string_view> m_fields;
    std::string m_decimal;
};

} // namespace

std::unique_ptr<SourceReader> OpenCsv(const std::string& path, const CsvOptions& options) {
    return std::make_unique<CsvReader>(path, options);
}

} // namespace lab
