#include "engine/OutputPosition.h"

#include "engine/RequestClock.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <mutex>

namespace {

constexpr size_t kWords = sizeof(OutputPosition) / sizeof(uint64_t);
static_assert(sizeof(OutputPosition) == kWords * sizeof(uint64_t), "copied as whole words");

// Two copies, of which a writer fills the one that is not current and then makes it so.  A reader
// reads again only when a new copy was published in the meantime, so no reader ever waits for a
// writer, not even for one that is interrupted halfway.
class PublishedPosition {
  public:
    // One writer at a time.
    void Publish(const OutputPosition& position) {
        uint64_t words[kWords];
        std::memcpy(words, &position, sizeof words);
        const uint64_t version = m_version.load(std::memory_order_relaxed) + 1;
        for (size_t i = 0; i < kWords; ++i) {
            m_copies[version % 2][i].store(words[i], std::memory_order_release);
        }
        m_version.store(version, std::memory_order_release);
    }

    // If a word of a later version is read here, the second check sees that version, too.
    OutputPosition Read() const {
        uint64_t words[kWords];
        uint64_t version = m_version.load(std::memory_order_acquire);
        for (uint64_t before = version + 1; before != version;) {
            before = version;
            for (size_t i = 0; i < kWords; ++i) {
                words[i] = m_copies[version % 2][i].load(std::memory_order_acquire);
            }
            version = m_version.load(std::memory_order_acquire);
        }
        OutputPosition position;
        std::memcpy(&position, words, sizeof position);
        return position;
    }

  private:
    std::atomic<uint64_t> m_version{0};
    std::atomic<uint64_t> m_copies[2][kWords] = {};
};

PublishedPosition s_published;

// Held by the writers alone: the play thread, the response reader and the thread that starts
// output.
std::mutex s_countLock;
OutputPosition s_position = {};
RequestClock s_clock;

// At its request number k the simulator has taken k buffers at least, the first without asking,
// and has room for another: k - 1 of them have left its outputs.
uint64_t FramesProved() {
    const uint64_t buffers = s_position.Requests > 0 ? s_position.Requests - 1 : 0;
    return std::min(buffers * s_position.FramesPerRequest, s_position.FramesSent);
}

double MeasuredRate() {
    const double period = s_clock.Period();
    return period > 0.0 ? s_position.FramesPerRequest * 1e9 / period : 0.0;
}

template <typename Change>
void Count(Change change) {
    const std::lock_guard<std::mutex> lock(s_countLock);
    if (s_position.StartTime != 0) {
        change();
        s_position.FramesPlayed = FramesProved();
        s_published.Publish(s_position);
    }
}

} // namespace

int64_t MonotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void BeginOutputPosition(int64_t time, double nominalRate, uint32_t framesPerRequest) {
    const std::lock_guard<std::mutex> lock(s_countLock);
    s_clock.Reset();
    s_position = OutputPosition();
    s_position.StartTime = time;
    s_position.NominalRate = nominalRate;
    s_position.FramesPerRequest = framesPerRequest;
    s_published.Publish(s_position);
}

void CountFramesSent(uint64_t frames) {
    Count([=] { s_position.FramesSent += frames; });
}

void CountRequest(int64_t time) {
    Count([=] {
        s_clock.AddRequest(time);
        ++s_position.Requests;
        s_position.LastRequestTime = time;
        if (s_position.Requests == 1) {
            s_position.FirstRequestTime = time;
        }
        s_position.MeasuredRate = MeasuredRate();
    });
}

void CountDelay(uint32_t delay) {
    Count([=] {
        s_clock.Pause();
        ++s_position.DelayReports;
        s_position.DelayTotal += delay;
    });
}

uint64_t EstimateFramesPlayed(const OutputPosition& position, int64_t now) {
    if (position.Requests == 0) {
        return 0;
    }
    const double rate = position.MeasuredRate > 0.0 ? position.MeasuredRate : position.NominalRate;
    const double since = static_cast<double>(now - position.LastRequestTime) * rate / 1e9;
    const double held = position.FramesPerRequest;
    return position.FramesPlayed + static_cast<uint64_t>(std::clamp(since, 0.0, held));
}

bool GetOutputPosition(OutputPosition& position) {
    position = s_published.Read();
    return position.StartTime != 0;
}
