#include "lab/evidence/Times.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace lab {

double InstantOf(const std::string& isoTime) {
    std::tm utc{};
    int milliseconds = 0;
    char sign = 0;
    int hours = 0;
    int minutes = 0;
    if (std::sscanf(isoTime.c_str(), "%d-%d-%dT%d:%d:%d.%3d%c%2d:%2d", &utc.tm_year, &utc.tm_mon,
                    &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &milliseconds, &sign,
                    &hours, &minutes) != 10) {
        return 0.0;
    }
    utc.tm_year -= 1900;
    utc.tm_mon -= 1;
    const int offset = (hours * 60 + minutes) * 60 * (sign == '-' ? -1 : 1);
    return static_cast<double>(::timegm(&utc) - offset) + milliseconds / 1000.0;
}

double MonotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string DurationText(double seconds) {
    const auto whole = static_cast<long long>(std::llround(std::max(seconds, 0.0)));
    return whole >= 3600 ? Format("%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60)
                         : Format("%lld:%02lld", whole / 60, whole % 60);
}

} // namespace lab
