#pragma once

#include "lab/material/readers/SourceRecord.h"

#include <string>
#include <vector>

// Annotation files of WFDB records, as described in annot(5) of the WFDB Applications Guide.
namespace lab {

// The usual symbol of an annotation code: "N" for 1, "[17]" for a code without a symbol.
std::string AnnotationSymbol(int type);

// All annotations of a file, in its order, with times by `frameRate`. Fails when the file ends
// within a word, a skip or a text.
std::vector<SourceAnnotation> ReadAnnotationFile(const std::string& path, const Rate& frameRate);

// The file of these annotations, in order of their samples.
std::string EncodeAnnotations(const std::vector<SourceAnnotation>& annotations);

} // namespace lab
