#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <memory>
#include <optional>
#include <string>

namespace lab {

struct CsvOptions {
    std::optional<double> rate;      // samples per second; without it a time column is needed
    std::optional<std::string> unit; // "mV" or "uV"; mV by default
};

// Opens a text file of numbers: a header line with the signals' names, optionally a first column of
// times, separated by commas, semicolons or tabs. Empty fields and "nan" are missing samples. Fails
// with a sentence that names the file, the line and the column.
std::unique_ptr<SourceReader> OpenCsv(const std::string& path, const CsvOptions& options);

} // namespace lab
