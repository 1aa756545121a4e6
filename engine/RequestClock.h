#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The period of the simulator's requests, measured by the times at which they were read.
//
// A request is sent on the beat of the simulator's sample clock and read some time later, never
// earlier.  The clock therefore runs along the earliest reads: the estimate is the line below all
// of them that is closest to all of them together, an edge of their lower convex hull.  Reads that
// come late, however many and however late, do not move it.
//
// A pause of the outputs shifts the beat by a time that is not known.  The requests before and
// after it are measured apart, and the estimates are weighted by what each is worth.
//
// Not locked.
class RequestClock {
  public:
    // Forgets all requests.
    void Reset();

    // A request was read at `time`, in nanoseconds of any clock.  The first one after a reset or a
    // pause is left out: it is sent when a buffer has arrived, not on the beat.
    void AddRequest(int64_t time);

    // The outputs have paused.
    void Pause();

    // Nanoseconds; 0 while no stretch without pause has lasted for two seconds and five requests.
    double Period() const;

  private:
    struct Read {
        int64_t request; // number within the stretch
        int64_t time;    // since the first request of the stretch
    };
    struct Estimate {
        double period = 0.0;
        double weight = 0.0;
    };

    Estimate EstimateStretch() const;
    void Thin();

    // The hull of n reads has about log n corners; a clock that drifts has more, which are thinned.
    static constexpr size_t kCapacity = 64;

    std::array<Read, kCapacity> m_hull{};
    size_t m_corners = 0;
    bool m_isOnBeat = false;
    int64_t m_origin = 0;
    int64_t m_requests = 0; // of the stretch
    double m_sum = 0.0;     // of the earlier stretches' periods by their weights
    double m_weight = 0.0;
};
