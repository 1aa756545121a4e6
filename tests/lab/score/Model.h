#pragma once

#include <map>
#include <string>
#include <vector>

// The rules of the comparison again, independent of the code under test: no sorting, no merging, no
// advancing pointers; every question is answered by examining everything.
namespace model {

__extension__ typedef __int128 Wide;

// A time as a fraction of seconds.
struct Time {
    Wide numerator = 0;
    Wide denominator = 1;
};

struct Mark {
    Time time;
    char symbol = 'N';
    int subtype = 0;
};
using Marks = std::vector<Mark>; // in order of time

struct Rules {
    Time learning;
    Time window;
};

// All counts by name, such as "Nn" and "v_couplet_reference"; durations in seconds.
struct Counts {
    std::map<std::string, long long> counts;
    std::map<std::string, double> seconds;
};

Counts Compare(const Marks& reference, const Marks& test, const Rules& rules);

} // namespace model
