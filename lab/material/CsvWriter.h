#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace lab {

// Writes a CSV file: a column of seconds, then one for each signal, voltages in millivolts. Missing
// samples are empty fields. Fails, status 6, when it cannot be written.
class CsvWriter {
  public:
    CsvWriter(const std::string& path, const std::vector<std::string>& names, const Rate& rate);

    // Writes the next samples of each signal; the rows may differ in length.
    void Write(const Samples& rows);

    // Ends the file; shorter signals are padded with missing samples.
    void Finish();

  private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    void WriteLines(std::size_t count);
    [[noreturn]] void FailWriting() const;

    std::string m_path;
    Rate m_rate;
    std::unique_ptr<std::FILE, CloseFile> m_file;
    Samples m_waiting;
    int64_t m_lines = 0;
    std::string m_text;
};

} // namespace lab
