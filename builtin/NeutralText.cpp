#include "builtin/NeutralText.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ctscse {
namespace {

constexpr char kSeparators[] = " \t,;\r";

[[noreturn]] void Fail(const std::string& path, size_t line, const std::string& what) {
    throw std::runtime_error(path + ", line " + std::to_string(line) + ": " + what);
}

std::vector<std::string> SplitFields(const std::string& line) {
    std::vector<std::string> fields;
    size_t begin = line.find_first_not_of(kSeparators);
    while (begin != std::string::npos) {
        const size_t end = line.find_first_of(kSeparators, begin);
        fields.push_back(line.substr(begin, end == std::string::npos ? end : end - begin));
        begin = line.find_first_not_of(kSeparators, end);
    }
    return fields;
}

// The factor that turns the file's values into millivolts.
double ParseUnit(const std::vector<std::string>& fields, const std::string& path, size_t line) {
    if (fields.size() == 2 && fields[0] == "unit" && fields[1] == "uV") {
        return 1000.0;
    }
    if (fields.size() == 2 && fields[0] == "unit" && fields[1] == "mV") {
        return 1.0;
    }
    Fail(path, line, "expected \"unit uV\" or \"unit mV\" before the samples");
}

double ParseValue(const std::string& field, const std::string& path, size_t line) {
    char* end = nullptr;
    const double value = std::strtod(field.c_str(), &end);
    if (*end != '\0' || !std::isfinite(value)) {
        Fail(path, line, "\"" + field + "\" is not a number");
    }
    return value;
}

} // namespace

Table ReadNeutralText(const std::string& path, size_t columns, size_t samples) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    Table table;
    table.columns.resize(columns);
    double divisor = 0.0;
    size_t lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        const std::vector<std::string> fields = SplitFields(line);
        if (fields.empty() || fields[0][0] == '#') {
            continue;
        }
        if (divisor == 0.0) {
            divisor = ParseUnit(fields, path, lineNumber);
            continue;
        }
        if (fields.size() != columns) {
            Fail(path, lineNumber,
                 "expected " + std::to_string(columns) + " values, found " +
                     std::to_string(fields.size()));
        }
        for (size_t column = 0; column < columns; ++column) {
            table.columns[column].push_back(ParseValue(fields[column], path, lineNumber) / divisor);
        }
        table.lines.push_back(lineNumber);
    }
    if (table.columns[0].size() != samples) {
        Fail(path, lineNumber,
             "expected " + std::to_string(samples) + " samples, found " +
                 std::to_string(table.columns[0].size()));
    }
    return table;
}

void WriteNeutralText(const std::string& path, const Table& table, const std::string& comment) {
    std::ofstream file(path);
    file << "# " << comment << "\nunit uV\n";
    file.precision(12);
    for (size_t sample = 0; sample < table.columns[0].size(); ++sample) {
        for (size_t column = 0; column < table.columns.size(); ++column) {
            file << (column == 0 ? "" : " ") << table.columns[column][sample] * 1000.0;
        }
        file << '\n';
    }
    file.close();
    if (!file) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

} // namespace ctscse
