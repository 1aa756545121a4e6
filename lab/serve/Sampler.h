#pragma once

#include "lab/common/Mutex.h"
#include "lab/serve/Playing.h"
#include "lab/serve/SamplesJson.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace lab::serve {

// Publishes the samples of the material to viewers as they leave the outputs. On a thread of its
// own, since reading them from the library may wait for a stop.
class Sampler {
  public:
    // `publish` gets the JSON of an event's samples; `hasViewers` tells whether there is a viewer.
    Sampler(double speedUp, std::function<void(std::string)> publish,
            std::function<bool()> hasViewers);
    ~Sampler();
    Sampler(const Sampler&) = delete;
    Sampler& operator=(const Sampler&) = delete;

    // A play has started; its material stays loaded until Finish.
    void Begin(std::shared_ptr<const Playing> playing);

    // The library's noise has been switched on or off from frame `frame` on.
    void SetNoise(bool isOn, int64_t frame);

    // The play is over after `frames` frames: publishes the remaining samples.
    void Finish(int64_t frames);

  private:
    void Work();
    void TellUpTo(int64_t frames) RAVO_REQUIRES(m_lock);
    void TellSamples(int64_t from, int64_t to) RAVO_REQUIRES(m_lock);
    const double* SampleAt(int64_t index) RAVO_REQUIRES(m_lock);
    double NoiseAt(int64_t frame) const RAVO_REQUIRES(m_lock);

    const double m_speedUp;
    const std::function<void(std::string)> m_publish;
    const std::function<bool()> m_hasViewers;

    Mutex m_lock;
    Condition m_changed;
    bool m_isEnding RAVO_GUARDED_BY(m_lock) = false;
    std::shared_ptr<const Playing> m_playing RAVO_GUARDED_BY(m_lock);
    int64_t m_told RAVO_GUARDED_BY(m_lock) = 0; // samples of this play
    std::vector<std::pair<int64_t, bool>>
        m_noise RAVO_GUARDED_BY(m_lock);           // on or off from this frame on
    int64_t m_second RAVO_GUARDED_BY(m_lock) = -1; // second of the loaded record that is in memory
    std::vector<std::array<double, kLeadCount>> m_samples RAVO_GUARDED_BY(m_lock); // of that second
    std::thread m_thread;
};

} // namespace lab::serve
