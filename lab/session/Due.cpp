#include "lab/session/Due.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace lab {
namespace {

constexpr double kEndless = std::numeric_limits<double>::infinity();

} // namespace

double StartInRecord(const PlayRequest& request, const Record& record) {
    return request.start - record.skippedSeconds;
}

double SecondsDue(const PlayRequest& request, const Record& record) {
    const double wanted = request.seconds > 0.0 ? request.seconds : kEndless;
    return request.loop ? wanted
                        : std::min(wanted, record.Seconds() - StartInRecord(request, record));
}

int64_t FramesDue(const PlayRequest& request, const Record& record) {
    const double frames =
        SecondsDue(request, record) * static_cast<double>(record.FramesPerSecond());
    return std::isfinite(frames) ? std::max<int64_t>(std::llround(frames), 1) : 0;
}

double PositionAfter(const Record& record, double start, double played) {
    const double end = record.Seconds();
    if (start + played <= end) {
        return start + played;
    }
    return record.type == MATERIAL_TARNWICK ? std::fmod(start + played, end)
                                            : start + std::fmod(played, end - start);
}

bool PlaysOnce(const PlayRequest& request, const Record& record) {
    return !request.loop && FramesDue(request, record) != 0;
}

bool StartOutput(const PlayRequest& request, const Record& record, RAVO_DELAY delay) {
    const int start = static_cast<int>(StartInRecord(request, record));
    if (PlaysOnce(request, record)) {
        return RAVOOutputOnce(start, request.seconds, nullptr, delay);
    }
    RAVOEnableLoop(true);
    return RAVOOutputWaveform(start, nullptr, delay);
}

} // namespace lab
