#include "lab/common/Suggestion.h"

#include <algorithm>
#include <numeric>

namespace lab {
namespace {

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return text;
}

// The number of letters to insert, delete, replace or swap with a neighbour that turn a into b.
std::size_t Distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> before(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(last.begin(), last.end(), 0U);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t k = 1; k <= b.size(); ++k) {
            const std::size_t replaced = last[k - 1] + (a[i - 1] == b[k - 1] ? 0 : 1);
            row[k] = std::min({last[k] + 1, row[k - 1] + 1, replaced});
            if (i > 1 && k > 1 && a[i - 1] == b[k - 2] && a[i - 2] == b[k - 1]) {
                row[k] = std::min(row[k], before[k - 2] + 1);
            }
        }
        before = last;
        last = row;
    }
    return last[b.size()];
}

// The largest distance of a candidate for a word of this length.
std::size_t Tolerance(std::size_t length) {
    return length < 3 ? 0 : length < 6 ? 1 : 2;
}

// `part` must be at least half of `whole`; otherwise "100" would match many names.
bool IsPart(const std::string& part, const std::string& whole) {
    return !part.empty() && 2 * part.size() >= whole.size() &&
           whole.find(part) != std::string::npos;
}

} // namespace

std::string Nearest(const std::string& word, const std::vector<std::string>& candidates) {
    const std::string wanted = Lower(word);
    std::string nearest;
    std::size_t least = Tolerance(wanted.size()) + 1;
    for (const std::string& candidate : candidates) {
        const std::size_t distance = Distance(wanted, Lower(candidate));
        if (distance < least) {
            least = distance;
            nearest = candidate;
        }
    }
    for (std::size_t i = 0; nearest.empty() && i < candidates.size(); ++i) {
        const std::string candidate = Lower(candidates[i]);
        if (IsPart(wanted, candidate) || IsPart(candidate, wanted)) {
            nearest = candidates[i];
        }
    }
    return nearest;
}

std::string DidYouMean(const std::string& nearest) {
    return nearest.empty() ? "" : "Did you mean " + nearest + "?";
}

} // namespace lab
