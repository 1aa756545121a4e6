#include "lab/material/Recognition.h"

#include "lab/common/Failure.h"
#include "lab/common/Suggestion.h"
#include "lab/material/Builtin.h"
#include "lab/material/Leads.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace lab {
namespace {

struct NamedKind {
    const char* name;
    MaterialKind kind;
};

constexpr std::array<NamedKind, 7> kFormats = {{
    {"wfdb", MaterialKind::kWfdb},
    {"aha", MaterialKind::kAha},
    {"cse", MaterialKind::kCse},
    {"native", MaterialKind::kNative},
    {"edf", MaterialKind::kEdf},
    {"edf-4", MaterialKind::kEdfFourChest},
    {"csv", MaterialKind::kCsv},
}};

constexpr std::array<const char*, 7> kWaveforms = {
    "sine", "triangle", "square", "rectangle-pulse", "triangle-pulse", "calibration", "staircase"};

constexpr std::size_t kTwelveLeads = 12;
constexpr std::size_t kTwoLeads = 2;

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r\n") == std::string::npos;
}

std::string Trimmed(const std::string& line) {
    const auto first = line.find_first_not_of(" \t\r\n");
    return IsBlank(line) ? "" : line.substr(first, line.find_last_not_of(" \t\r\n") - first + 1);
}

std::size_t CountFields(const std::string& line, const char* separators) {
    std::size_t count = 0;
    for (auto at = line.find_first_not_of(separators); at != std::string::npos; ++count) {
        at = line.find_first_not_of(separators, line.find_first_of(separators, at));
    }
    return count;
}

// The first lines that are not blank.
std::vector<std::string> FirstLines(const std::string& path, std::size_t count) {
    constexpr std::size_t kLongestHead = 16384;
    std::string head(kLongestHead, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(file.gcount()));

    std::vector<std::string> lines;
    for (std::size_t at = 0; at < head.size() && lines.size() < count;) {
        const auto end = head.find_first_of("\r\n", at);
        const auto line = head.substr(at, end == std::string::npos ? end : end - at);
        if (!IsBlank(line)) {
            lines.push_back(line);
        }
        at = end == std::string::npos ? head.size() : end + 1;
    }
    return lines;
}

std::optional<MaterialKind> RecogniseText(const std::string& path) {
    const auto lines = FirstLines(path, 3);
    if (lines.size() == 3 && LowerCase(Trimmed(lines[2])) == "start") {
        return MaterialKind::kNative;
    }
    if (!lines.empty() && CountFields(lines[0], " \t") >= kTwelveLeads) {
        return MaterialKind::kCse;
    }
    if (!lines.empty() && CountFields(lines[0], ", ") >= kTwoLeads) {
        return MaterialKind::kAha;
    }
    return std::nullopt;
}

std::optional<MaterialKind> RecogniseFile(const std::string& path) {
    const std::string extension = Extension(path);
    if (extension == ".hea") {
        return MaterialKind::kWfdb;
    }
    if (extension == ".ecg") {
        return MaterialKind::kAha;
    }
    if (extension == ".dcd") {
        return MaterialKind::kCse;
    }
    if (extension == ".edf" || extension == ".bdf") {
        return MaterialKind::kEdf;
    }
    if (extension == ".csv") {
        return MaterialKind::kCsv;
    }
    if (extension == ".txt") {
        RequireFile(path);
        return RecogniseText(path);
    }
    return ::access((path + ".hea").c_str(), F_OK) == 0 ? std::optional(MaterialKind::kWfdb)
                                                        : std::nullopt;
}

// A mistyped name of a waveform or a built-in record looks like a missing file.
std::string CureForMissing(const std::string& name) {
    std::vector<std::string> names = BuiltinNames();
    names.insert(names.end(), std::begin(kWaveforms), std::end(kWaveforms));
    const std::string hint = DidYouMean(Nearest(name, names));
    return hint.empty() ? "Check the path; a waveform is given by its name, such as sine." : hint;
}

// Fails when a record's signal or annotation file is given instead of its header.
void RequireNoPart(const std::string& name) {
    const std::string header = std::filesystem::path(name).replace_extension(".hea");
    if (::access(header.c_str(), F_OK) == 0) {
        Fail(kMaterial, name, "is a part of a WFDB record.",
             "The record is given by its header: " + Printable(header) + ".");
    }
}

} // namespace

const char* KindName(MaterialKind kind) {
    for (const NamedKind& format : kFormats) {
        if (format.kind == kind) {
            return format.name;
        }
    }
    return kind == MaterialKind::kBuiltin ? "builtin" : "waveform";
}

MaterialKind Recognise(const std::string& name, const std::string& format) {
    for (const char* waveform : kWaveforms) {
        if (name == waveform) {
            return MaterialKind::kWaveform;
        }
    }
    if (IsBuiltin(name)) {
        return MaterialKind::kBuiltin;
    }
    for (const NamedKind& named : kFormats) {
        if (format == named.name) {
            return named.kind;
        }
    }
    if (const auto kind = RecogniseFile(name)) {
        return *kind;
    }
    RequireFile(name, CureForMissing(name));
    RequireNoPart(name);
    Fail(kMaterial, name, "is in a format that neither its extension nor its first lines show.",
         "Known are .hea (WFDB), .edf, .bdf, .csv, .ecg and .txt (AHA), .dcd and .txt (CSE), .txt\n"
         "      (native); --format wfdb|edf|edf-4|csv|aha|cse|native says which one it is.");
}

} // namespace lab
