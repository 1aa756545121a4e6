// Annotations as text: a file is read or refused with a failure that names it, and what is read is
// in order of time.
#include "fuzz/Require.h"
#include "lab/common/Failure.h"
#include "lab/score/CsvAnnotations.h"

#include <algorithm>
#include <cstdint>
#include <string>

using namespace lab::score;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    try {
        const AnnotationList list = ParseCsv(text, "x.csv").list;
        Require(list.unit.Numerator() == 1);
        Require(std::is_sorted(list.annotations.begin(), list.annotations.end(),
                               [](const Annotation& left, const Annotation& right) {
                                   return left.time < right.time;
                               }));
        const auto lines = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
        Require(list.annotations.size() <= lines);
    } catch (const lab::Failure& failure) {
        Require(failure.Status() == lab::kMaterial);
        Require(std::string(failure.what()).compare(0, 5, "x.csv") == 0);
    }
    return 0;
}
