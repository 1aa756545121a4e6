#include "lab/material/readers/CsvLines.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Numbers.h"

#include <algorithm>

namespace lab {
namespace {

constexpr std::size_t kBlock = 1U << 18U;
constexpr std::size_t kLongestLine = 1U << 20U;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Unquoted(std::string_view field) {
    field = Trim(field);
    const bool isQuoted = field.size() >= 2 && field.front() == '"' && field.back() == '"';
    return isQuoted ? Trim(field.substr(1, field.size() - 2)) : field;
}

} // namespace

void CsvLines::Rewind() {
    m_text.clear();
    m_at = 0;
    m_number = 0;
    m_position = 0;
    Fill();
    if (m_text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
        m_at = kByteOrderMark.size();
    }
}

// Appends a block to the text not yet consumed. False at the end of the file.
bool CsvLines::Fill() {
    m_text.erase(0, m_at);
    m_at = 0;
    const std::size_t kept = m_text.size();
    m_text.resize(kept + kBlock);
    const std::size_t read = m_file.ReadAt(m_position, m_text.data() + kept, kBlock);
    m_text.resize(kept + read);
    m_position += static_cast<int64_t>(read);
    return read > 0;
}

bool CsvLines::Next(std::string_view& line) {
    for (;;) {
        auto end = m_text.find('\n', m_at);
        while (end == std::string::npos && m_text.size() - m_at <= kLongestLine && Fill()) {
            end = m_text.find('\n', m_at);
        }
        if (m_text.size() - m_at > kLongestLine && end == std::string::npos) {
            Fail(kMaterial, m_file.Path(),
                 Format("line %lld is longer than a line of numbers.",
                        static_cast<long long>(m_number + 1)),
                 "Is it a text file with one line for each sample?");
        }
        if (m_at >= m_text.size()) {
            return false;
        }
        line = std::string_view(m_text).substr(m_at, end == std::string::npos ? end : end - m_at);
        m_at = end == std::string::npos ? m_text.size() : end + 1;
        ++m_number;
        if (!Trim(line).empty()) {
            return true;
        }
    }
}

char SeparatorOf(std::string_view line) {
    const bool hasSemicolon = line.find(';') != std::string_view::npos;
    const bool hasTab = line.find('\t') != std::string_view::npos;
    return hasSemicolon ? ';' : hasTab ? '\t' : ',';
}

void SplitCsv(std::string_view line, char separator, std::vector<std::string_view>& fields) {
    fields.clear();
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
        line.remove_suffix(1);
    }
    for (;;) {
        const auto end = line.find(separator);
        fields.push_back(Unquoted(line.substr(0, end)));
        if (end == std::string_view::npos) {
            return;
        }
        line.remove_prefix(end + 1);
    }
}

} // namespace lab
