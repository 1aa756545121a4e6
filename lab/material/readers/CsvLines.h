#pragma once

#include "lab/material/readers/Files.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

// The lines of a text file, read in blocks and returned one at a time.
class CsvLines {
  public:
    // Fails when the file cannot be read.
    explicit CsvLines(const std::string& path) : m_file(path) { Rewind(); }

    const std::string& Path() const { return m_file.Path(); }
    int64_t Number() const { return m_number; } // number of the line last read, from 1

    void Rewind();

    // The next line that is not blank, without its terminator; valid until the next call. False at
    // the end of the file. Fails for a line too long to hold numbers.
    bool Next(std::string_view& line);

  private:
    bool Fill();

    ByteFile m_file;
    std::string m_text;
    std::size_t m_at = 0;
    int64_t m_position = 0; // in the file, of the text after m_text
    int64_t m_number = 0;
};

// The separator used in a header line: ";" or tab where there is one, otherwise ",".
char SeparatorOf(std::string_view line);

// Splits a line at its separators and strips blanks and quotation marks from its fields.
void SplitCsv(std::string_view line, char separator, std::vector<std::string_view>& fields);

} // namespace lab
