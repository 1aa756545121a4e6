#include "lab/machine/CalibrationFile.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr int kLines = 4096;
constexpr int kNumbers = 8;
constexpr std::size_t kLongestLine = 254; // a longer line continues as the errors of the next code
constexpr const char* kShape = "4096 lines of 8 numbers, separated by commas or blanks";
constexpr const char* kCure = "Install the file that came with the simulator.";

bool IsNumber(const std::string& word) {
    char* end = nullptr;
    const double number = std::strtod(word.c_str(), &end);
    return end == word.c_str() + word.size() && std::isfinite(number);
}

// The first fault in one line; empty when there is none.
std::string FaultOf(const std::string& line) {
    constexpr const char* kSeparators = ", \r"; // a carriage return only ends lines
    if (line.size() > kLongestLine) {
        return Format("is longer than %zu characters", kLongestLine);
    }
    int numbers = 0;
    for (std::size_t at = line.find_first_not_of(kSeparators); at != std::string::npos;
         at = line.find_first_not_of(kSeparators, at)) {
        const std::size_t end = std::min(line.find_first_of(kSeparators, at), line.size());
        const std::string word = line.substr(at, end - at);
        if (!IsNumber(word)) {
            return "\"" + Printable(word) + "\" is not a number";
        }
        ++numbers;
        at = end;
    }
    return numbers == kNumbers ? "" : Format("holds %d numbers", numbers);
}

// Empty when the library can open the file; it opens ordinary files only.
std::string WhyUnreadable(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!error && !fs::is_regular_file(status)) {
        return "not an ordinary file";
    }
    return std::ifstream(path) ? "" : std::strerror(errno);
}

Finding Unusable(const char* code, const std::string& sentence) {
    return {State::kFailed, "calibration", code, sentence, kCure};
}

} // namespace

std::string WrongShape(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line;
    int count = 0;
    while (std::getline(file, line)) {
        if (++count > kLines) {
            return Format("goes on after line %d", kLines);
        }
        const std::string fault = FaultOf(line);
        if (!fault.empty()) {
            return Format("line %d %s", count, fault.c_str());
        }
    }
    return count == kLines ? "" : Format("ends after line %d", count);
}

Finding CheckCalibration(int dacBits, const std::string& file) {
    if (dacBits == 16) {
        return {State::kOk, "calibration", "not-needed", "16-bit converters need none", ""};
    }
    const std::string path = Printable(file);
    std::error_code ignored;
    if (fs::status(file, ignored).type() == fs::file_type::not_found) {
        return {State::kWarning, "calibration", "calibration-missing",
                path + " is missing: voltages stay uncorrected", kCure};
    }
    const std::string reason = WhyUnreadable(file);
    if (!reason.empty()) {
        return Unusable("calibration-unreadable", path + " cannot be read: " + reason);
    }
    const std::string fault = WrongShape(file);
    if (!fault.empty()) {
        return Unusable("calibration-shape", path + " " + fault + "; expected: " + kShape);
    }
    return {State::kOk, "calibration", "loaded", path, ""};
}

} // namespace lab
