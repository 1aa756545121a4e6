#include "lab/common/WallClock.h"

#include "lab/common/Failure.h"

#include <array>
#include <ctime>

namespace lab {
namespace {

constexpr int64_t kNanoseconds = 1'000'000'000;

int64_t Now(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * kNanoseconds + now.tv_nsec;
}

// "+0100" becomes "+01:00".
std::string WithColon(const std::string& offset) {
    return offset.substr(0, 3) + ":" + offset.substr(3);
}

std::string TextOf(int64_t realNanoseconds) {
    const time_t seconds = realNanoseconds / kNanoseconds;
    const auto milliseconds = static_cast<int>(realNanoseconds % kNanoseconds / 1'000'000);
    tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 32> time{};
    std::array<char, 8> offset{};
    std::strftime(time.data(), time.size(), "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(offset.data(), offset.size(), "%z", &local);
    return Format("%s.%03d%s", time.data(), milliseconds, WithColon(offset.data()).c_str());
}

} // namespace

std::string WallClockText(int64_t monotonicNanoseconds) {
    if (monotonicNanoseconds == 0) {
        return "";
    }
    return TextOf(Now(CLOCK_REALTIME) - (Now(CLOCK_MONOTONIC) - monotonicNanoseconds));
}

std::string WallClockNow() {
    return TextOf(Now(CLOCK_REALTIME));
}

} // namespace lab
