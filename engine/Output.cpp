#include "engine/Output.h"

#include "engine/Kinds.h"
#include "engine/Record.h"
#include "platform/ConstructionOrder.h"

#include <algorithm>
#include <cmath>
#include <limits>

unsigned long g_hPlayThread = 0;
unsigned long g_hReceiveThread = 0;
unsigned long g_hOutputThread = 0;

RAVO_CONSTRUCT_ENGINE CManualResetEvent g_hStopPlayEvent(false);
RAVO_CONSTRUCT_ENGINE CManualResetEvent g_hForceStopPlayEvent(false);
RAVO_CONSTRUCT_ENGINE CManualResetEvent g_hStopReceiveEvent(false);
RAVO_CONSTRUCT_ENGINE CAutoResetEvent g_hSendEvent(false);

int32_t g_bIsOutputting = 0;

OnceRun g_OnceRun;

namespace {

// Frames from the beginning to the end of the material.
uint64_t FramesOfMaterial() {
    const MaterialKind& kind = KindOf(g_WaveformType);
    if (kind.ending == Ending::kNever) {
        return UINT64_MAX;
    }
    if (kind.framesPerSecond == 0) {
        return g_nSampleCount;
    }
    return (g_nSampleCount * kind.framesPerSecond + g_nSampleRate - 1) / g_nSampleRate;
}

// The frames of `seconds`, at least one; a double holds that many exactly.
uint64_t FramesOf(double seconds) {
    constexpr double kMost = 9007199254740992.0;
    return static_cast<uint64_t>(std::clamp(std::round(seconds * FramesPerSecond()), 1.0, kMost));
}

} // namespace

bool IsSignalled(CEvent& event) {
    return event.WaitTimeout(0) == 0;
}

uint32_t FramesPerSecond() {
    return FramesPerSecondOf(KindOf(g_WaveformType), g_nSampleRate);
}

uint64_t FramesDueOnce(int startSecond, double seconds) {
    if (startSecond < 0 || !(seconds >= 0.0)) {
        return 0;
    }
    const uint64_t start = uint64_t{FramesPerSecond()} * static_cast<uint64_t>(startSecond);
    const uint64_t end = FramesOfMaterial();
    if (start >= end || start > std::numeric_limits<uint32_t>::max()) {
        return 0;
    }
    const uint64_t left = end == UINT64_MAX ? end : end - start;
    return seconds == 0.0 ? left : std::min(left, FramesOf(seconds));
}

uint32_t StartPosition(int second) {
    constexpr uint32_t kLastPosition = std::numeric_limits<uint32_t>::max();
    const int64_t position = int64_t{FramesPerSecond()} * second;
    const auto wrapped = static_cast<uint32_t>(position);
    return wrapped != position && wrapped < g_nSampleCount ? kLastPosition : wrapped;
}
