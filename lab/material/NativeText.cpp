#include "lab/material/NativeText.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/CsvLines.h"
#include "lab/material/readers/Numbers.h"

#include <optional>
#include <strings.h>

namespace lab {
namespace {

constexpr int kHeaderLines = 3; // rate, number of values, "start"

// The lead that a line names, according to the library's own names.
std::optional<std::size_t> LeadOfLine(const std::string& line) {
    constexpr std::array<const char*, kOutputCount> kNames = {"Lead I", "Lead II", "V1", "V2",
                                                              "V3",     "V4",      "V5", "V6"};
    for (std::size_t lead = 0; lead < kOutputCount; ++lead) {
        if (::strcasecmp(line.c_str(), kNames[lead]) == 0) {
            return lead;
        }
    }
    return std::nullopt;
}

class Inspection {
  public:
    explicit Inspection(const std::string& path) : m_path(path), m_lines(path) {}

    NativeText Run() {
        std::string_view line;
        for (int header = 0; header < kHeaderLines && m_lines.Next(line); ++header) {
            m_announced = header == 1 ? LeadingWhole(line) : m_announced;
        }
        while (m_lines.Next(line)) {
            if (ParseNumber(line)) {
                ++m_values;
            } else {
                TakeName(std::string(Trim(line.substr(0, 40))));
            }
        }
        CloseLead();
        TellUnknown();
        return std::move(m_text);
    }

  private:
    void TakeName(const std::string& name) {
        CloseLead();
        m_lead = LeadOfLine(name);
        m_values = 0;
        m_name = name;
        if (!m_lead && m_unknown++ == 0) {
            m_firstUnknown = Format("line %lld \"%s\"", static_cast<long long>(m_lines.Number()),
                                    Printable(name).c_str());
        }
    }

    void CloseLead() {
        if (!m_lead) {
            return;
        }
        m_text.hasValues[*m_lead] = m_text.hasValues[*m_lead] || m_values > 0;
        if (m_values < m_announced) {
            m_text.cut[*m_lead] = m_announced - m_values;
            m_text.warnings.push_back(
                Format("%s: %s has %lld of %lld values, %s", Printable(m_path).c_str(),
                       Printable(m_name).c_str(), static_cast<long long>(m_values),
                       static_cast<long long>(m_announced),
                       m_values > 0 ? "the rest is 0" : "so it is not supplied"));
        }
    }

    void TellUnknown() {
        if (m_unknown > 0) {
            const std::string others =
                m_unknown == 1 ? ""
                               : Format(" and %lld more", static_cast<long long>(m_unknown - 1));
            m_text.warnings.push_back(
                Format("%s: %s%s: no such lead; the format's names are Lead I, Lead II, V1 to V6",
                       Printable(m_path).c_str(), m_firstUnknown.c_str(), others.c_str()));
        }
    }

    std::string m_path;
    CsvLines m_lines;
    NativeText m_text;
    int64_t m_announced = 0;
    std::optional<std::size_t> m_lead;
    std::string m_name; // as the file writes it
    int64_t m_values = 0;
    int64_t m_unknown = 0;
    std::string m_firstUnknown;
};

} // namespace

NativeText InspectNativeText(const std::string& path) {
    return Inspection(path).Run();
}

} // namespace lab
