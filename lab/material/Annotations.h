#pragma once

#include "lab/material/OpenMaterial.h"

#include <string>
#include <vector>

namespace lab {

// An annotated beat.
struct Beat {
    double seconds;     // from the start of the record
    const char* symbol; // "N", "V", ...
};

// The annotation file beside a WFDB header; the path need not exist.
std::string AnnotationPathOf(const std::string& headerPath);

// The beats of the record, in order; none without annotations. Fails when the file is damaged.
// `count`, when not null, receives the number of all annotations, beats and others.
std::vector<Beat> ReadBeats(const std::string& headerPath, int* count);

// All annotations of the material, in the time of its frames: those of the annotation file beside
// a WFDB record, or those within an EDF file. Fails when the file is damaged.
std::vector<SourceAnnotation> ReadAnnotations(const OpenedMaterial& material);

} // namespace lab
