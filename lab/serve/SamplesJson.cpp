#include "lab/serve/SamplesJson.h"

#include "lab/common/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace lab::serve {
namespace {

constexpr int64_t kMicrovolts = 1000; // to the millivolt
constexpr double kLargest = 1e12;

// "-0.125"; formatted by hand, because this takes most of the time of a server with many samples.
void AppendMillivolts(std::string& text, double millivolts) {
    const double bounded =
        std::isfinite(millivolts) ? std::clamp(millivolts, -kLargest, kLargest) : 0.0;
    const int64_t microvolts = std::llround(bounded * static_cast<double>(kMicrovolts));
    const int64_t size = std::abs(microvolts);
    std::array<char, 24> digits{};
    if (microvolts < 0) {
        text += '-';
    }
    const auto end = std::to_chars(digits.begin(), digits.end(), size / kMicrovolts).ptr;
    text.append(digits.data(), end);
    int64_t fraction = size % kMicrovolts;
    for (int64_t place = kMicrovolts / 10; fraction > 0; place /= 10) {
        text += place == kMicrovolts / 10 ? "." : "";
        text += static_cast<char>('0' + fraction / place);
        fraction %= place;
    }
}

} // namespace

std::string SamplesJson(double position, double rate, const LeadRows& leads) {
    std::string text = Format("{\"position\":%.10g,\"rate\":%.10g,\"leads\":[", position, rate);
    constexpr std::size_t kUsualLength = 7;
    text.reserve(text.size() + kLeadCount * (leads[0].size() + 1) * kUsualLength);
    for (std::size_t lead = 0; lead < kLeadCount; ++lead) {
        text += lead == 0 ? "[" : ",[";
        for (std::size_t i = 0; i < leads[lead].size(); ++i) {
            if (i > 0) {
                text += ',';
            }
            AppendMillivolts(text, leads[lead][i]);
        }
        text += ']';
    }
    return text + "]}";
}

} // namespace lab::serve
