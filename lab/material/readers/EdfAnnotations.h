#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

struct EdfAnnotation {
    double onset = 0.0; // seconds from the file's start
    double duration = 0.0;
    std::string text;
};

// The time-stamped annotation lists that one data record holds in `bytes`; malformed lists are left
// out. `start`, when not null, receives the onset of the first list without text, which is the data
// record's own.
std::vector<EdfAnnotation> ParseEdfAnnotations(std::string_view bytes,
                                               std::optional<double>* start);

} // namespace lab
