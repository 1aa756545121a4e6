#include "lab/material/Annotations.h"

#include "WFDB/wfdb.h"

#include <memory>

namespace lab {
namespace {

struct FreeHeader {
    void operator()(WFDB_HEADER* header) const { WFDBFreeHeader(header); }
};

// The published codes of beats; null for rhythm changes, noise and other remarks.
const char* BeatSymbol(int type) {
    switch (type) {
    case 1:
        return "N";
    case 2:
        return "L";
    case 3:
        return "R";
    case 4:
        return "a";
    case 5:
        return "V";
    case 6:
        return "F";
    case 7:
        return "J";
    case 8:
        return "A";
    case 9:
        return "S";
    case 10:
        return "E";
    case 11:
        return "j";
    case 12:
        return "/";
    case 13:
        return "Q";
    case 25:
        return "B";
    case 30:
        return "?";
    case 34:
        return "e";
    case 35:
        return "n";
    case 38:
        return "f";
    case 41:
        return "r";
    default:
        return nullptr;
    }
}

} // namespace

std::string AnnotationPathOf(const std::string& headerPath) {
    return headerPath.substr(0, headerPath.find_last_of('.')) + ".atr";
}

std::vector<Beat> ReadBeats(const std::string& headerPath, int* count) {
    std::vector<char> writable(headerPath.begin(), headerPath.end());
    writable.push_back('\0');
    const std::unique_ptr<WFDB_HEADER, FreeHeader> header(WFDBReadHeader(writable.data()));
    std::vector<Beat> beats;
    int all = 0;
    if (header && header->SamplingFrequency > 0 &&
        WFDBLoadAnnotation(AnnotationPathOf(headerPath).c_str(), header.get()) != 0) {
        WFDB_ANNOTATION annotation{};
        for (; WFDBNextAnnotation(header.get(), &annotation) != 0; ++all) {
            if (const char* symbol = BeatSymbol(annotation.Type)) {
                beats.push_back({static_cast<double>(annotation.Time) /
                                     static_cast<double>(header->SamplingFrequency),
                                 symbol});
            }
        }
    }
    if (count != nullptr) {
        *count = all;
    }
    return beats;
}

} // namespace lab
