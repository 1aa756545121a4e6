// The calibration file reader: whatever the file holds, only values inside the table are stored, at
// the place that their line and their position on it determine.
//
// Input: the calibration file.
#include "device/Calibration.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t kCodes = 4096;
constexpr size_t kErrors = 8 * kCodes;

const std::vector<double>& UntouchedTable() {
    static const std::vector<double> table(kErrors, -12345.0);
    return table;
}

// One line of at most 255 bytes; what follows a zero byte is lost.
std::string TakeLine(const std::string& file, size_t& position) {
    size_t end = position;
    while (end < file.size() && end - position < 255 && file[end] != '\n') {
        ++end;
    }
    std::string line = file.substr(position, end - position);
    position = end;
    if (line.size() < 255 && end < file.size()) {
        ++position;
        if (!line.empty() && line.back() == '\r' && line.find('\0') == std::string::npos) {
            line.pop_back();
        }
    }
    return line.substr(0, line.find('\0'));
}

std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> tokens(1);
    for (const char character : line) {
        if (character == ',' || character == ' ') {
            tokens.emplace_back();
        } else {
            tokens.back() += character;
        }
    }
    tokens.erase(std::remove(tokens.begin(), tokens.end(), std::string()), tokens.end());
    return tokens;
}

std::vector<double> ExpectedTable(const std::string& file) {
    std::vector<double> table = UntouchedTable();
    size_t position = 0;
    for (size_t code = 0; position < file.size(); ++code) {
        size_t index = code;
        for (const std::string& token : Split(TakeLine(file, position))) {
            if (index < kErrors) {
                table[index] = std::strtod(token.c_str(), nullptr);
            }
            index += kCodes;
        }
    }
    return table;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0; // fmemopen refuses an empty file
    }
    std::vector<uint8_t> copy(data, data + size);
    FILE* file = fmemopen(copy.data(), copy.size(), "rb");
    std::memcpy(g_DACError, UntouchedTable().data(), sizeof g_DACError);
    ReadDACErrors(file);
    fclose(file);

    const std::vector<double> expected = ExpectedTable(std::string(copy.begin(), copy.end()));
    const auto* const table = reinterpret_cast<const unsigned char*>(g_DACError);
    if (!std::equal(table, table + sizeof g_DACError,
                    reinterpret_cast<const unsigned char*>(expected.data()))) {
        std::abort();
    }
    return 0;
}
