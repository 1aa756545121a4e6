#include "lab/material/readers/WfdbGroup.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/OpenSampleFile.h"
#include "lab/material/readers/Units.h"
#include "lab/material/readers/WfdbFormats.h"

#include <algorithm>
#include <limits>

namespace lab {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr int32_t kMostNegative = 512; // largest range for which a table pays off

// How numbers become physical values.
struct Scaling {
    double gain;
    double baseline;
    int32_t missing;
};

// The compiler vectorises loops as plain as these. Most blocks have no missing sample: searching
// for one first is quicker than deciding at each sample.
template <std::size_t kStride>
void Convert(const int32_t* samples, std::size_t count, const Scaling& scaling, double* out) {
    const auto [gain, baseline, missing] = scaling;
    unsigned found = 0;
    for (std::size_t n = 0; n < count; ++n) {
        const int32_t sample = samples[n * kStride];
        out[n] = (sample - baseline) / gain;
        found |= sample == missing ? 1U : 0U;
    }
    for (std::size_t n = 0; n < count && found != 0; ++n) {
        out[n] = samples[n * kStride] == missing ? kMissing : out[n];
    }
}

void Convert(const int32_t* samples, std::size_t stride, std::size_t count, const Scaling& scaling,
             double* out) {
    switch (stride) {
    case 1:
        return Convert<1>(samples, count, scaling, out);
    case 2:
        return Convert<2>(samples, count, scaling, out);
    default:
        for (std::size_t n = 0; n < count; ++n) {
            Convert<1>(samples + n * stride, 1, scaling, out + n);
        }
    }
}

// The values of all numbers of a narrow format, the missing one's first; looking them up is quicker
// than dividing. Empty for other formats.
std::vector<double> TableOf(const WfdbFormat* format, double gain, double baseline) {
    std::vector<double> table;
    if (format == nullptr || format->missing < -kMostNegative) {
        return table;
    }
    for (int32_t number = format->missing; number < -format->missing; ++number) {
        Convert<1>(&number, 1, {gain, baseline, format->missing}, &table.emplace_back());
    }
    return table;
}

void LookUp(const std::vector<double>& table, const int32_t* samples, std::size_t stride,
            std::size_t count, double* out) {
    const double* const middle = table.data() + table.size() / 2;
    for (std::size_t n = 0; n < count; ++n, samples += stride) {
        out[n] = middle[*samples];
    }
}

} // namespace

WfdbGroup::WfdbGroup(const WfdbHeader& header, std::size_t signal)
    : m_header(header), m_path(DirectoryOf(header.path) + header.signals[signal].file),
      m_format(header.signals[signal].format), m_skew(header.signals[signal].skew) {
    for (std::size_t i = 0; i < header.signals.size(); ++i) {
        if (header.signals[i].file == header.signals[signal].file) {
            m_signals.push_back(i);
            m_perFrame += header.signals[i].samplesPerFrame;
        }
    }
    RequireUniform();
    m_file = OpenSampleFile(m_path, m_format, header.signals[signal].offset, m_signals.size(),
                            header.path, signal);
}

bool WfdbGroup::Holds(std::size_t signal) const {
    return m_header.signals[signal].skew == m_skew &&
           std::find(m_signals.begin(), m_signals.end(), signal) != m_signals.end();
}

void WfdbGroup::RequireUniform() const {
    const WfdbSignalLine& first = m_header.signals[m_signals[0]];
    for (const std::size_t i : m_signals) {
        const WfdbSignalLine& line = m_header.signals[i];
        if (line.format != first.format || line.offset != first.offset) {
            Fail(kMaterial, m_header.path,
                 Format("signals %zu and %zu share a file but differ in format or offset.",
                        m_signals[0], i),
                 "All signals of a file are stored alike: correct the header.");
        }
        if (IsCompressedFormat(m_format) && line.samplesPerFrame != first.samplesPerFrame) {
            Fail(kMaterial, m_header.path,
                 Format("signals %zu and %zu of one FLAC file differ in rate.", m_signals[0], i),
                 "The channels of a FLAC file have one rate: correct the header.");
        }
    }
}

void WfdbGroup::Begin(const std::vector<std::size_t>& signals) {
    const bool isByInstant = IsCompressedFormat(m_format);
    m_rows.clear();
    m_sums.clear();
    std::size_t first = 0;
    for (std::size_t n = 0; n < m_signals.size(); ++n) {
        const WfdbSignalLine& line = m_header.signals[m_signals[n]];
        const auto perFrame = static_cast<std::size_t>(line.samplesPerFrame);
        m_sums.push_back(static_cast<int32_t>(line.initial));
        for (std::size_t row = 0; row < signals.size() && line.skew == m_skew; ++row) {
            if (signals[row] == m_signals[n]) {
                const double units = UnitsPerMillivolt(line.unit).value_or(1.0);
                m_rows.push_back(
                    {row, isByInstant ? n : first, isByInstant ? m_signals.size() : 1, perFrame,
                     line.gain * units, line.baseline,
                     TableOf(FindWfdbFormat(m_format), line.gain * units, line.baseline)});
            }
        }
        first += perFrame;
    }
    m_file->Rewind();
    if (!m_rows.empty()) {
        SkipSkew();
    }
}

void WfdbGroup::SkipSkew() {
    constexpr int64_t kStep = 4096;
    for (int64_t left = std::min(m_skew, Frames()); left > 0; left -= kStep) {
        std::size_t samples = 0;
        Decode(static_cast<std::size_t>(std::min(left, kStep)), samples);
    }
}

int32_t* WfdbGroup::Decode(std::size_t frames, std::size_t& samples) {
    int32_t* decoded = m_file->Next(frames * static_cast<std::size_t>(m_perFrame), samples);
    const WfdbFormat* format = FindWfdbFormat(m_format);
    if (format != nullptr && format->isDifference) {
        Accumulate(decoded, samples);
    }
    return decoded;
}

// Differences are added without overflow: a file may hold any.
void WfdbGroup::Accumulate(int32_t* samples, std::size_t count) {
    std::size_t first = 0;
    for (std::size_t number = 0; number < m_signals.size(); ++number) {
        AccumulateSignal(number, samples + first, count - std::min(count, first));
        first += static_cast<std::size_t>(m_header.signals[m_signals[number]].samplesPerFrame);
    }
}

// Sums up the differences of one signal; `samples` begins at its first sample and has `count`
// samples, those of other signals included.
void WfdbGroup::AccumulateSignal(std::size_t number, int32_t* samples, std::size_t count) {
    const auto frame = static_cast<std::size_t>(m_perFrame);
    const auto own = static_cast<std::size_t>(m_header.signals[m_signals[number]].samplesPerFrame);
    auto sum = static_cast<uint32_t>(m_sums[number]);
    for (std::size_t begin = 0; begin < count; begin += frame) {
        for (std::size_t i = begin; i < std::min(begin + own, count); ++i) {
            sum += static_cast<uint32_t>(samples[i]);
            samples[i] = static_cast<int32_t>(sum);
        }
    }
    m_sums[number] = static_cast<int32_t>(sum);
}

void WfdbGroup::Read(int64_t frames, Samples& block) {
    if (m_rows.empty()) {
        return;
    }
    std::size_t samples = 0;
    const auto wanted = static_cast<std::size_t>(frames);
    const int32_t* decoded = Decode(wanted, samples);
    for (const Row& row : m_rows) {
        Deliver(row, decoded, wanted, samples, block[row.row]);
    }
}

void WfdbGroup::Deliver(const Row& row, const int32_t* samples, std::size_t frames,
                        std::size_t there, std::vector<double>& out) const {
    const auto frame = static_cast<std::size_t>(m_perFrame);
    out.resize(frames * row.perFrame);
    const std::size_t whole = std::min(frames, there / frame);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(whole * row.perFrame), out.end(), kMissing);
    const Scaling scaling = {row.gain, row.baseline, m_file->Missing()};
    const auto deliver = [&](const int32_t* at, std::size_t stride, std::size_t count,
                             double* values) {
        if (row.table.empty()) {
            Convert(at, stride, count, scaling, values);
        } else {
            LookUp(row.table, at, stride, count, values);
        }
    };
    if (row.perFrame == 1) {
        deliver(samples + row.first, frame, whole, out.data());
        return;
    }
    for (std::size_t n = 0; n < whole; ++n) {
        deliver(samples + row.first + n * frame, row.step, row.perFrame,
                out.data() + n * row.perFrame);
    }
}

} // namespace lab
