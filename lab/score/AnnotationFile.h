#pragma once

#include "lab/score/Annotation.h"

#include <optional>
#include <string>

// WFDB annotation files, read strictly: an incomplete file is refused.
namespace lab::score {

struct AnnotationContent {
    std::vector<Annotation> annotations; // times in samples, in the order of the file
    std::optional<Rational> rate;        // samples per second, if the file itself states them
    std::string remark;                  // a harmless oddity of the file, or empty
};

// `where` names the file in failures, which also state the byte.
AnnotationContent ParseAnnotations(const std::string& bytes, const std::string& where);

} // namespace lab::score
