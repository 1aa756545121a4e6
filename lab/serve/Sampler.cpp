#include "lab/serve/Sampler.h"

#include "lab/material/LeadNoise.h"
#include "lab/material/LoadedSamples.h"

#include <algorithm>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;

// At most 40 events a second, however late a wake-up comes.
constexpr auto kInterval = 30ms;

// Limit for one event, so that a fast simulator does not produce one that is too large.
constexpr int64_t kMostSamples = 10'000;

// Shortest interval, in seconds of real time, at which the end of a loop also ends an event: five
// more events per second.
constexpr double kShortestLap = 0.2;

const std::array<double, kLeadCount> kSilence{};

// The library delivers whole seconds.
std::vector<std::array<double, kLeadCount>> SamplesOfSecond(int second) {
    std::vector<std::array<double, kLeadCount>> samples;
    ForEachCleanSample(second, 1, [&samples](const double* leads) {
        std::copy_n(leads, kLeadCount, samples.emplace_back().begin());
    });
    return samples;
}

} // namespace

Sampler::Sampler(double speedUp, std::function<void(std::string)> publish,
                 std::function<bool()> hasViewers)
    : m_speedUp(speedUp), m_publish(std::move(publish)), m_hasViewers(std::move(hasViewers)),
      m_thread([this] { Work(); }) {}

Sampler::~Sampler() {
    {
        const MutexGuard lock(m_lock);
        m_isEnding = true;
    }
    m_changed.NotifyAll();
    m_thread.join();
}

void Sampler::Work() {
    const MutexGuard lock(m_lock);
    auto next = std::chrono::steady_clock::now();
    while (!m_isEnding) {
        if (m_playing == nullptr) {
            m_changed.Wait(m_lock);
            continue;
        }
        if (!m_changed.WaitUntil(m_lock, next) && m_playing != nullptr) {
            TellUpTo(FramesByNow(m_speedUp));
            next = std::chrono::steady_clock::now() + kInterval;
        }
    }
}

void Sampler::Begin(std::shared_ptr<const Playing> playing) {
    {
        const MutexGuard lock(m_lock);
        m_playing = std::move(playing);
        m_told = 0;
        m_second = -1;
        m_noise = {{0, true}};
    }
    m_changed.NotifyAll();
}

void Sampler::SetNoise(bool isOn, int64_t frame) {
    const MutexGuard lock(m_lock);
    m_noise.emplace_back(frame, isOn);
}

void Sampler::Finish(int64_t frames) {
    const MutexGuard lock(m_lock);
    if (m_playing != nullptr) {
        TellUpTo(frames);
    }
    m_playing = nullptr;
}

void Sampler::TellUpTo(int64_t frames) {
    const int64_t due = m_playing->framesDue;
    const SampleOrder order(*m_playing);
    const int64_t end = order.SamplesOf(due > 0 ? std::min(frames, due) : frames);
    if (!m_hasViewers()) {
        m_told = std::max(m_told, end);
        return;
    }
    const bool isParted = order.LapSeconds() >= kShortestLap * m_speedUp;
    while (m_told < end) {
        const int64_t from = m_told;
        const int64_t most = std::min(end, from + kMostSamples);
        int64_t to = isParted ? from + 1 : most;
        while (to < most && order.IndexOf(to) == order.IndexOf(to - 1) + 1) {
            ++to;
        }
        TellSamples(from, to);
        m_told = to;
    }
}

void Sampler::TellSamples(int64_t from, int64_t to) {
    const SampleOrder order(*m_playing);
    LeadRows rows;
    for (std::vector<double>& row : rows) {
        row.reserve(static_cast<std::size_t>(to - from));
    }
    for (int64_t number = from; number < to; ++number) {
        std::array<double, kLeadCount> leads{};
        std::copy_n(SampleAt(order.IndexOf(number)), kLeadCount, leads.begin());
        AddNoiseToLeads(NoiseAt(order.FrameOf(number)), leads.data());
        for (std::size_t i = 0; i < kLeadCount; ++i) {
            rows[i].push_back(leads[i]);
        }
    }
    m_publish(SamplesJson(order.SecondsOf(from), order.Rate(), rows));
}

const double* Sampler::SampleAt(int64_t index) {
    const int64_t rate = std::max<int64_t>(m_playing->record.rate, 1);
    const int64_t second = index / rate;
    if (second != m_second) {
        m_second = second;
        m_samples = SamplesOfSecond(static_cast<int>(second));
    }
    const auto at = static_cast<std::size_t>(index % rate);
    return at < m_samples.size() ? m_samples[at].data() : kSilence.data();
}

double Sampler::NoiseAt(int64_t frame) const {
    const std::vector<double>& noise = m_playing->libraryNoise;
    const auto change = std::find_if(m_noise.rbegin(), m_noise.rend(),
                                     [frame](const auto& entry) { return entry.first <= frame; });
    if (noise.empty() || change == m_noise.rend() || !change->second) {
        return 0.0;
    }
    return noise[(m_playing->noiseBegin + static_cast<std::size_t>(frame)) % noise.size()];
}

} // namespace lab::serve
