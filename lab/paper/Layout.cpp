#include "lab/paper/Layout.h"

#include <algorithm>
#include <cmath>

namespace lab {
namespace {

enum Lead : std::size_t { I, II, III, aVR, aVL, aVF, V1, V2, V3, V4, V5, V6 };

constexpr double kTallRow = 40.0;
constexpr double kStripRow = 30.0;
constexpr double kMiddleRow = 25.0;
constexpr double kLowRow = 15.0;

Row SplitRow(const std::vector<std::size_t>& leads, double seconds) {
    Row row{{}, 0.0, leads.size() == 1};
    const double share = seconds / static_cast<double>(leads.size());
    for (std::size_t i = 0; i < leads.size(); ++i) {
        const auto n = static_cast<double>(i);
        row.cells.push_back({leads[i], n * share, (n + 1.0) * share, i + 1 < leads.size()});
    }
    return row;
}

Layout ThreeByFour(double seconds) {
    return {{SplitRow({I, aVR, V1, V4}, seconds), SplitRow({II, aVL, V2, V5}, seconds),
             SplitRow({III, aVF, V3, V6}, seconds), SplitRow({II}, seconds)},
            kTallRow,
            seconds};
}

Layout SixByTwo(double seconds) {
    Layout layout{{}, kMiddleRow, seconds};
    for (std::size_t lead = I; lead <= aVF; ++lead) {
        layout.rows.push_back(SplitRow({lead, lead + V1}, seconds));
    }
    return layout;
}

Layout TwelveByOne(double seconds) {
    Layout layout{{}, kLowRow, seconds};
    for (std::size_t lead = I; lead <= V6; ++lead) {
        layout.rows.push_back(SplitRow({lead}, seconds));
    }
    return layout;
}

Layout Strip(double seconds, double stripSeconds, const std::vector<std::size_t>& leads) {
    Layout layout{{}, kStripRow, std::min(seconds, stripSeconds)};
    const auto lines = static_cast<int>(std::ceil(seconds / stripSeconds - 1e-9));
    for (int line = 0; line < lines; ++line) {
        const double from = line * stripSeconds;
        for (const std::size_t lead : leads) {
            const Cell cell{lead, from, std::min(from + stripSeconds, seconds)};
            layout.rows.push_back({{cell}, from, true});
        }
    }
    return layout;
}

} // namespace

Layout ArrangeLeads(const std::string& name, double seconds, double stripSeconds,
                    const std::vector<std::size_t>& stripLeads) {
    return name == "3x4"    ? ThreeByFour(seconds)
           : name == "6x2"  ? SixByTwo(seconds)
           : name == "12x1" ? TwelveByOne(seconds)
                            : Strip(seconds, stripSeconds, stripLeads);
}

} // namespace lab
