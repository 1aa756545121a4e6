#include "lab/score/Annotation.h"

#include <algorithm>

namespace lab::score {

void PutInOrder(AnnotationList& list) {
    const auto isEarlier = [](const Annotation& left, const Annotation& right) {
        return left.time < right.time;
    };
    auto& annotations = list.annotations;
    if (!std::is_sorted(annotations.begin(), annotations.end(), isEarlier)) {
        std::stable_sort(annotations.begin(), annotations.end(), isEarlier);
    }
}

} // namespace lab::score
