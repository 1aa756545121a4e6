#include "lab/material/MixCheck.h"

#include "lab/common/Failure.h"
#include "lab/common/Text.h"
#include "lab/material/readers/WfdbReader.h"

#include <cmath>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace lab {
namespace {

constexpr double kLowest = -2048.0; // of 12 bits; the reader takes this value for a missing sample
constexpr double kHalfRange = 2048.0;

// The samples of one signal in converter units, one at a time.
class Units {
  public:
    Units(const std::string& path, std::size_t signal, bool hasBaseline)
        : m_reader(OpenWfdb(path)), m_gain(m_reader->Record().signals[signal].gain),
          m_baseline(hasBaseline ? m_reader->Record().signals[signal].baseline : 0.0) {
        m_reader->Begin({signal});
    }

    // Empty at the end; NaN for a missing sample.
    std::optional<double> Next() {
        if (m_at == m_block.size()) {
            Samples block;
            if (!m_reader->Read(block) || block[0].empty()) {
                return std::nullopt;
            }
            m_block = std::move(block[0]);
            m_at = 0;
        }
        return m_block[m_at++] * m_gain + m_baseline;
    }

  private:
    std::unique_ptr<SourceReader> m_reader;
    const double m_gain;
    const double m_baseline;
    std::vector<double> m_block;
    std::size_t m_at = 0;
};

// The first sample at which the mix leaves the signal by half the range in one step, as it does
// where it wraps; noise does not. The mix begins with the signal without its baseline.
std::optional<int64_t> FirstWrap(const std::string& signal, const std::string& mix,
                                 std::size_t number) {
    Units before(signal, number, false);
    Units after(mix, number, true);
    double difference = 0.0;
    for (int64_t sample = 0;; ++sample) {
        const std::optional<double> original = before.Next();
        const std::optional<double> mixed = after.Next();
        if (!original || !mixed) {
            return std::nullopt;
        }
        if (std::isnan(*original)) {
            continue;
        }
        const double now = (std::isnan(*mixed) ? kLowest : *mixed) - *original;
        if (std::fabs(now - difference) > kHalfRange) {
            return sample;
        }
        difference = now;
    }
}

} // namespace

void WarnOfWrappedSamples(const std::string& signal, const std::string& mix) {
    const SourceRecord before = OpenWfdb(signal)->Record();
    const SourceRecord after = OpenWfdb(mix)->Record();
    for (std::size_t number = 0; number < after.signals.size(); ++number) {
        // The mix has one sample per frame.
        if (before.signals[number].rate.PerSecond() != before.frameRate.PerSecond()) {
            continue;
        }
        if (const auto sample = FirstWrap(signal, mix, number)) {
            Warn(Format("%s: signal %zu needs more than 12 bits: its samples wrap around, first at "
                        "%.3f s",
                        Printable(mix).c_str(), number,
                        static_cast<double>(*sample) / after.frameRate.PerSecond()));
        }
    }
}

} // namespace lab
