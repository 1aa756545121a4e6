#pragma once

#include "lab/score/Annotation.h"

#include <string>

namespace lab::score {

struct CsvContent {
    AnnotationList list;
    std::string remark; // which codes are unknown; may be empty
};

// Annotations from text: a header line `seconds,code`, then one annotation a line. Times are taken
// exactly as written; codes are the usual symbols; any other text does not count as a beat. A third
// column, when the header names one, is `subtype`. Fails naming `where` and the line.
CsvContent ParseCsv(const std::string& text, const std::string& where);

} // namespace lab::score
