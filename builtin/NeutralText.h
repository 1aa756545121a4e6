#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The neutral text form in which the owner of the licensed databases hands them to the build: one
// file per record, <record name>.txt, and one per noise, NOISE_<noise name>.txt.
//
//   unit uV            or: unit mV
//   10 20 30 40 50 60 70 80
//   ...
//
// After the unit line comes one line per sample at 1000 samples per second: the eight leads I, II,
// V1 to V6 of a record, or the one value of a noise, separated by blanks, tabs, commas or
// semicolons.  Empty lines and lines that begin with "#" are skipped.
namespace ctscse {

struct Table {
    std::vector<std::vector<double>> columns; // millivolts
    std::vector<size_t> lines = {};           // of the file that it was read from, one per sample
};

// Reads `columns` columns of exactly `samples` samples.  Throws std::runtime_error with a sentence
// that names the file, the line and what was expected.
Table ReadNeutralText(const std::string& path, size_t columns, size_t samples);

// Writes a table in microvolts.
void WriteNeutralText(const std::string& path, const Table& table, const std::string& comment);

} // namespace ctscse
