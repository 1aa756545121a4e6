// Annotation files read strictly: a file is read or refused with a failure that names it, and the
// result has no more annotations than words.
#include "fuzz/Require.h"
#include "lab/common/Failure.h"
#include "lab/score/AnnotationFile.h"

#include <cstdint>
#include <string>

using namespace lab::score;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(data, data + size);
    try {
        const AnnotationContent content = ParseAnnotations(bytes, "x.atr");
        Require(content.annotations.size() <= size / 2);
        Require(!content.rate || content.rate->Numerator() > 0);
        for (const Annotation& annotation : content.annotations) {
            Require(annotation.code < 59);
        }
    } catch (const lab::Failure& failure) {
        Require(failure.Status() == lab::kMaterial);
        Require(std::string(failure.what()).compare(0, 5, "x.atr") == 0);
    }
    return 0;
}
