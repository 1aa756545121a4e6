#pragma once

#include "lab/score/Annotation.h"

#include <optional>
#include <string>

// WFDB annotation files, read strictly: an incomplete file is refused.
namespace lab::score {

struct AnnotationContent {
    std::vector<Annotation> annotations; // times in samples, in the file's order
    std::optional<Rational> rate;        // samples per second where the file itself states it
    std::string remark;                  // a harmless oddity of the file, or empty
};

// `where` is the file named in failures, which state the byte.
AnnotationContent ParseAnnotations(const std::string& bytes, const std::string& where);

} // namespace lab::score
