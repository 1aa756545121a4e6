#include "lab/material/NativeText.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/CsvLines.h"
#include "lab/material/readers/Numbers.h"

namespace lab {

std::vector<std::string> WarningsOfNativeText(const std::string& path) {
    constexpr int kHeaderLines = 3; // rate, number of values, "start"
    std::vector<std::string> warnings;
    CsvLines lines(path);
    std::string_view line;
    std::string lead;
    int64_t announced = 0;
    int64_t values = 0;
    const auto close = [&] {
        if (!lead.empty() && values < announced) {
            warnings.push_back(Format("%s: %s has %lld of %lld values, the rest is 0",
                                      Printable(path).c_str(), Printable(lead).c_str(),
                                      static_cast<long long>(values),
                                      static_cast<long long>(announced)));
        }
    };
    for (int header = 0; header < kHeaderLines && lines.Next(line); ++header) {
        announced = header == 1 ? LeadingWhole(line) : announced;
    }
    while (lines.Next(line)) {
        if (ParseNumber(line)) {
            ++values;
            continue;
        }
        close();
        lead = Trim(line.substr(0, 40));
        values = 0;
    }
    close();
    return warnings;
}

} // namespace lab
