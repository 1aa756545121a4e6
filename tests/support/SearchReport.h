#pragma once

#include "ravo/search.h"

#include <string>

// What the library's search found on each port, a line each: for the failure message of a test that
// waited for a simulator in vain.
inline std::string SearchReportText() {
    std::string text;
    RAVO_SEARCH_ENTRY entry{};
    for (int index = 0; RAVOGetSearchReport(index, &entry); ++index) {
        text += std::string(entry.Text) + "\n";
    }
    return text.empty() ? "the search has met with no port\n" : text;
}
