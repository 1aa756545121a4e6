#include "lab/material/Annotations.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/AnnotationFile.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/WfdbHeader.h"

#include <unistd.h>

namespace lab {
namespace {

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
    std::vector<Beat> beats;
    int all = 0;
    if (::access(AnnotationPathOf(headerPath).c_str(), F_OK) == 0) {
        const Rate rate = ParseWfdbHeader(headerPath).rate;
        for (const SourceAnnotation& annotation :
             ReadAnnotationFile(AnnotationPathOf(headerPath), rate)) {
            ++all;
            if (const char* symbol = BeatSymbol(annotation.type)) {
                beats.push_back({annotation.seconds, symbol});
            }
        }
    }
    if (count != nullptr) {
        *count = all;
    }
    return beats;
}

std::vector<SourceAnnotation> ReadAnnotations(const OpenedMaterial& material) {
    if (material.record.format != "wfdb") {
        return material.reader->Annotations();
    }
    const std::string path = AnnotationPathOf(material.record.source);
    return ::access(path.c_str(), F_OK) == 0
               ? ReadAnnotationFile(path, material.reader->Record().frameRate)
               : std::vector<SourceAnnotation>();
}

} // namespace lab
