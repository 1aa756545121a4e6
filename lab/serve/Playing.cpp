#include "lab/serve/Playing.h"

#include "lab/material/LoadedSamples.h"
#include "lab/session/Due.h"

#include "api/ravo.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>

namespace lab::serve {
namespace {

constexpr double kNanoseconds = 1e9;

int64_t MonotonicNow() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

} // namespace

std::shared_ptr<Playing> MakePlaying(const std::string& material, const PlayRequest& request,
                                     const Record& record, std::size_t noiseIndex) {
    auto playing = std::make_shared<Playing>();
    playing->material = material;
    playing->request = request;
    playing->record = record;
    playing->framesDue = FramesDue(request, record);
    playing->libraryNoise = LibraryNoise();
    playing->noiseBegin = PlaysOnce(request, record) ? 0 : noiseIndex;
    return playing;
}

std::size_t NoiseIndexAfter(const Playing& playing, int64_t framesSent) {
    const bool isOnce = PlaysOnce(playing.request, playing.record);
    return playing.noiseBegin +
           static_cast<std::size_t>(isOnce ? std::min(framesSent, playing.framesDue) : framesSent);
}

SampleOrder::SampleOrder(const Playing& playing)
    : m_rate(static_cast<double>(playing.record.rate)),
      m_framesPerSecond(static_cast<double>(playing.record.FramesPerSecond())),
      m_skipped(playing.record.skippedSeconds),
      m_first(std::llround(StartInRecord(playing.request, playing.record) * m_rate)),
      m_end(playing.record.isEndless ? std::numeric_limits<int64_t>::max()
                                     : playing.record.samples),
      m_wrap(playing.record.type == MATERIAL_TARNWICK ? 0 : m_first) {}

int64_t SampleOrder::SamplesOf(int64_t frames) const {
    return m_rate == m_framesPerSecond
               ? frames
               : static_cast<int64_t>(static_cast<double>(frames) * m_rate / m_framesPerSecond);
}

int64_t SampleOrder::FrameOf(int64_t sample) const {
    return m_rate == m_framesPerSecond
               ? sample
               : static_cast<int64_t>(static_cast<double>(sample) * m_framesPerSecond / m_rate);
}

int64_t SampleOrder::IndexOf(int64_t number) const {
    const int64_t index = m_first + number;
    return index < m_end ? index : m_wrap + (index - m_end) % std::max<int64_t>(m_end - m_wrap, 1);
}

double SampleOrder::SecondsOf(int64_t number) const {
    return m_skipped + static_cast<double>(IndexOf(number)) / m_rate;
}

int64_t FramesByNow(double speedUp) {
    RAVO_OUTPUT_POSITION position{};
    RAVOGetOutputPosition(&position);
    if (position.Requests == 0) {
        return 0;
    }
    const double rate =
        position.MeasuredRate > 0.0 ? position.MeasuredRate : position.NominalRate * speedUp;
    const double since =
        static_cast<double>(MonotonicNow() - position.LastRequestTime) / kNanoseconds;
    const double ahead =
        std::clamp(since * rate, 0.0, static_cast<double>(position.FramesPerRequest));
    return static_cast<int64_t>(position.FramesPlayed) + static_cast<int64_t>(ahead);
}

bool HasStoppedAsking(double speedUp) {
    RAVO_OUTPUT_POSITION position{};
    RAVOGetOutputPosition(&position);
    if (position.NominalRate <= 0.0) {
        return false;
    }
    const double buffer = position.FramesPerRequest / (position.NominalRate * speedUp);
    const int64_t last = std::max(position.StartTime, position.LastRequestTime);
    return static_cast<double>(MonotonicNow() - last) / kNanoseconds > 1.0 + 3.0 * buffer;
}

} // namespace lab::serve
