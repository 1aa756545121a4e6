#include "lab/evidence/Times.h"

#include "lab/common/Failure.h"

#include <chrono>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace lab {

std::string IsoTime(const timespec& time) {
    std::tm local{};
    ::localtime_r(&time.tv_sec, &local);
    const long minutes = local.tm_gmtoff / 60;
    return Format("%04d-%02d-%02dT%02d:%02d:%02d.%03ld%c%02ld:%02ld", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  time.tv_nsec / 1'000'000, minutes < 0 ? '-' : '+', std::labs(minutes) / 60,
                  std::labs(minutes) % 60);
}

std::string IsoTimeNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return IsoTime(now);
}

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
    return whole >= 3600
               ? Format("%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60)
               : Format("%lld:%02lld", whole / 60, whole % 60);
}

} // namespace lab
