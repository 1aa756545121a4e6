#include "lab/evidence/MaterialFiles.h"

#include "lab/material/Builtin.h"
#include "lab/material/WfdbFiles.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace lab {
namespace {

std::string Beside(const std::string& header, const std::string& name) {
    return header.substr(0, header.find_last_of('/') + 1) + name;
}

void Add(std::vector<std::string>& files, const std::string& path) {
    if (std::find(files.begin(), files.end(), path) == files.end()) {
        files.push_back(path);
    }
}

// Each line behind the first names a signal file or, where the first counts segments, a segment.
void AddRecord(std::vector<std::string>& files, const std::string& header) {
    Add(files, header);
    std::ifstream file(header);
    bool isFirst = true;
    bool hasSegments = false;
    for (std::string line; std::getline(file, line);) {
        std::string name;
        std::istringstream(line) >> name;
        if (name.empty() || name.front() == '#') {
            continue;
        }
        if (isFirst) {
            hasSegments = name.find('/') != std::string::npos;
            isFirst = false;
        } else if (!hasSegments) {
            Add(files, Beside(header, name));
        } else if (name != "~") {
            AddRecord(files, Beside(header, name + ".hea"));
        }
    }
}

} // namespace

std::vector<std::string> MaterialFiles(const Record& record, const MaterialRequest& request) {
    std::vector<std::string> files;
    if (record.format == "wfdb") {
        AddRecord(files, HeaderPathOf(request.name));
    } else if (record.format != "builtin" && record.format != "waveform") {
        Add(files, request.name);
    }
    if (!request.noise.empty()) {
        AddRecord(files, HeaderPathOf(request.noise));
    }
    return files;
}

std::string MaterialSource(const Record& record, const MaterialRequest& request) {
    if (record.format == "waveform") {
        return "waveform";
    }
    if (record.format != "builtin") {
        return "file";
    }
    RAVO_BUILTIN_RECORD information{};
    const int number = FindBuiltinRecord(request.name);
    return RAVOGetBuiltinRecord(number, &information) && information.Licensed != 0 ? "licensed"
                                                                                   : "stand-in";
}

} // namespace lab
