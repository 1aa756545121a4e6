#pragma once

#include <string>
#include <vector>

namespace lab {

// A beat that someone has annotated.
struct Beat {
    double seconds;     // from the start of the record
    const char* symbol; // "N", "V", ...
};

// The annotation file beside a WFDB header; the path need not exist.
std::string AnnotationPathOf(const std::string& headerPath);

// The beats of the record, in order; none without annotations. `count`, when not null, receives
// the number of all annotations, beats and others.
std::vector<Beat> ReadBeats(const std::string& headerPath, int* count);

} // namespace lab
