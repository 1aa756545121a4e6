#include "lab/score/AlignSearch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

namespace lab::score {
namespace {

constexpr double kBin = 0.025;         // seconds of lag
constexpr double kLargestSlope = 6e-4; // a clock 600 ppm fast or slow
constexpr double kStretch = 1800.0;    // seconds of the test to find a place for
constexpr double kSegment = 120.0;     // over which no clock in question drifts by many bins
constexpr double kElsewhere = 0.2;     // lags that differ by more than this are different places
constexpr double kNeighbours = 0.1;    // lags that differ by less than this lead to the same fit
constexpr std::size_t kMostOthers = 16;
constexpr std::size_t kBlock = 8192; // bins that are summed while they are in the cache
constexpr std::size_t kBins = 37 * kBlock;
constexpr double kLargestLag = kBins * kBin / 2.0; // seconds either way: an hour and some room

using Histogram = std::vector<std::uint16_t>;

// How often each lag occurs between the beats of one segment of the test and all beats of the
// reference.
struct Segment {
    double centre = 0.0;
    Histogram lags; // kMargin more bins at both ends
};

constexpr std::size_t kMargin = 64; // more than any slope can shift a segment

double LagOf(std::size_t bin) {
    return (static_cast<double>(bin) + 0.5) * kBin - kLargestLag;
}

// Each lag counts in its bin and in both neighbours.
void CountLags(Segment& segment, const std::vector<double>& reference, double time) {
    auto beat = std::lower_bound(reference.begin(), reference.end(), time - kLargestLag);
    for (; beat != reference.end() && *beat < time + kLargestLag; ++beat) {
        const auto bin = static_cast<std::size_t>((*beat - time + kLargestLag) / kBin) + kMargin;
        ++segment.lags[bin - 1];
        ++segment.lags[bin];
        ++segment.lags[bin + 1];
    }
}

std::vector<Segment> Divide(const std::vector<double>& reference, const std::vector<double>& test,
                            double from, double to) {
    const double segments = std::max(1.0, std::ceil((to - from) / kSegment));
    const double length = (to - from) / segments;
    std::vector<Segment> all;
    auto beat = std::lower_bound(test.begin(), test.end(), from);
    for (double i = 0.0; i < segments; i += 1.0) {
        Segment segment{from + (i + 0.5) * length, Histogram(kBins + 2 * kMargin)};
        const double end = i + 1.0 < segments ? from + (i + 1.0) * length : to;
        for (; beat != test.end() && *beat <= end; ++beat) {
            CountLags(segment, reference, *beat);
        }
        all.push_back(std::move(segment));
    }
    return all;
}

// The best slope of each lag.
struct Peak {
    std::uint16_t count = 0;
    std::int16_t slope = 0;
};

class Search {
  public:
    Search(std::vector<Segment> segments, double centre, double halfLength)
        : m_segments(std::move(segments)), m_centre(centre),
          m_slopeStep(kBin / std::max(halfLength, 1.0)), m_peaks(kBins) {
        const int steps = static_cast<int>(std::ceil(kLargestSlope / m_slopeStep));
        for (std::size_t block = 0; block < kBins; block += kBlock) {
            for (int slope = -steps; slope <= steps; ++slope) {
                AddBlock(block, slope);
            }
        }
    }

    // The highest of the peaks that qualify; nothing where none does.
    template <typename Predicate>
    std::optional<Place> Highest(Predicate isWanted) const {
        std::uint16_t most = 0;
        std::optional<Place> highest;
        for (std::size_t bin = 0; bin < kBins; ++bin) {
            const Peak& peak = m_peaks[bin];
            const Place place = {LagOf(bin), m_slopeStep * peak.slope, m_centre};
            if (peak.count > most && isWanted(place)) {
                most = peak.count;
                highest = place;
            }
        }
        return highest;
    }

  private:
    void AddBlock(std::size_t block, int slope) {
        std::uint16_t sums[kBlock] = {};
        for (const Segment& segment : m_segments) {
            const double shift = slope * m_slopeStep * (segment.centre - m_centre) / kBin;
            const std::uint16_t* lags = segment.lags.data() +
                                        static_cast<std::ptrdiff_t>(block + kMargin) +
                                        std::lround(shift);
            for (std::size_t i = 0; i < kBlock; ++i) {
                sums[i] = static_cast<std::uint16_t>(sums[i] + lags[i]);
            }
        }
        for (std::size_t i = 0; i < kBlock; ++i) {
            Peak& peak = m_peaks[block + i];
            if (sums[i] > peak.count) {
                peak = {sums[i], static_cast<std::int16_t>(slope)};
            }
        }
    }

    std::vector<Segment> m_segments;
    double m_centre;
    double m_slopeStep; // shifts the outermost beats by one bin
    std::vector<Peak> m_peaks;
};

} // namespace

Candidates SearchPlaces(const std::vector<double>& reference, const std::vector<double>& test) {
    const double centre = (test.front() + test.back()) / 2.0;
    const double half = std::min(kStretch, test.back() - test.front()) / 2.0;
    Candidates candidates{{0.0, 0.0, centre}, {}, centre - half, centre + half};
    const Search search(Divide(reference, test, candidates.from, candidates.to), centre, half);
    candidates.best = search.Highest([](const Place&) { return true; }).value_or(candidates.best);
    std::vector<Place>& others = candidates.others;
    const auto isOther = [&](const Place& place) {
        return AreApart(place, candidates.best, candidates.from, candidates.to) &&
               std::none_of(others.begin(), others.end(), [&](const Place& other) {
                   return std::fabs(place.lag - other.lag) < kNeighbours;
               });
    };
    for (auto other = search.Highest(isOther); other && others.size() < kMostOthers;
         other = search.Highest(isOther)) {
        others.push_back(*other);
    }
    return candidates;
}

bool AreApart(const Place& one, const Place& other, double from, double to) {
    const auto lagAt = [](const Place& place, double time) {
        return place.lag + place.slope * (time - place.centre);
    };
    const double first = lagAt(one, from) - lagAt(other, from);
    const double last = lagAt(one, to) - lagAt(other, to);
    return std::min(first, last) > kElsewhere || std::max(first, last) < -kElsewhere;
}

} // namespace lab::score
