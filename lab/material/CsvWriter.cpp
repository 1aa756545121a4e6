#include "lab/material/CsvWriter.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

namespace lab {
namespace {

// Nine decimals resolve a thousandth of a nanovolt, and distinguish the times of samples at every
// rate.
constexpr int kDecimals = 9;

std::string Quoted(const std::string& name) {
    if (name.find_first_of(",;\t\"") == std::string::npos) {
        return name;
    }
    std::string quoted = name;
    std::replace(quoted.begin(), quoted.end(), '"', '\'');
    return "\"" + quoted + "\"";
}

void AppendNumber(std::string& text, double number) {
    std::array<char, 400> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number,
                                      std::chars_format::fixed, kDecimals);
    const char* end = result.ptr;
    while (end[-1] == '0') {
        --end;
    }
    end -= end[-1] == '.' ? 1 : 0;
    text.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
}

} // namespace

CsvWriter::CsvWriter(const std::string& path, const std::vector<std::string>& names,
                     const Rate& rate)
    : m_path(path), m_rate(rate), m_file(std::fopen(path.c_str(), "wbe")), m_waiting(names.size()) {
    if (m_file == nullptr) {
        FailWriting();
    }
    m_text = "seconds";
    for (const std::string& name : names) {
        m_text += "," + Quoted(name);
    }
    m_text += "\n";
}

void CsvWriter::FailWriting() const {
    Fail(kCannotWrite, m_path, Format("cannot be written: %s.", std::strerror(errno)),
         errno == ENOSPC ? "Make room on that disk." : "");
}

void CsvWriter::Write(const Samples& rows) {
    std::size_t count = SIZE_MAX;
    for (std::size_t i = 0; i < m_waiting.size(); ++i) {
        m_waiting[i].insert(m_waiting[i].end(), rows[i].begin(), rows[i].end());
        count = std::min(count, m_waiting[i].size());
    }
    WriteLines(count);
}

void CsvWriter::WriteLines(std::size_t count) {
    for (std::size_t line = 0; line < count; ++line, ++m_lines) {
        AppendNumber(m_text, static_cast<double>(m_lines) / m_rate.PerSecond());
        for (const std::vector<double>& row : m_waiting) {
            m_text += ',';
            if (!std::isnan(row[line])) {
                AppendNumber(m_text, row[line]);
            }
        }
        m_text += '\n';
    }
    for (std::vector<double>& row : m_waiting) {
        row.erase(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(count));
    }
    if (std::fwrite(m_text.data(), 1, m_text.size(), m_file.get()) != m_text.size()) {
        FailWriting();
    }
    m_text.clear();
}

void CsvWriter::Finish() {
    std::size_t longest = 0;
    for (const std::vector<double>& row : m_waiting) {
        longest = std::max(longest, row.size());
    }
    for (std::vector<double>& row : m_waiting) {
        row.resize(longest, std::nan(""));
    }
    WriteLines(longest);
    std::FILE* file = m_file.release();
    if (std::fclose(file) != 0) {
        FailWriting();
    }
}

} // namespace lab
