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

double ValueOf(int32_t sample, double gain, double baseline) {
    const double value = (sample - baseline) / gain;
    return sample == kMissingSample ? kMissing : value;
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
                 Format("signals %zu and %zu are of one file and differ in format or offset.",
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
    m_signalOfSample.clear();
    std::size_t first = 0;
    for (std::size_t n = 0; n < m_signals.size(); ++n) {
        const WfdbSignalLine& line = m_header.signals[m_signals[n]];
        const auto perFrame = static_cast<std::size_t>(line.samplesPerFrame);
        m_sums.push_back(static_cast<int32_t>(line.initial));
        m_signalOfSample.insert(m_signalOfSample.end(), perFrame, n);
        for (std::size_t row = 0; row < signals.size() && line.skew == m_skew; ++row) {
            if (signals[row] == m_signals[n]) {
                const double units = UnitsPerMillivolt(line.unit).value_or(1.0);
                m_rows.push_back({row, isByInstant ? n : first, isByInstant ? m_signals.size() : 1,
                                  perFrame, line.gain * units, line.baseline});
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
    std::size_t place = 0;
    for (std::size_t i = 0; i < count; ++i) {
        int32_t& sum = m_sums[m_signalOfSample[place]];
        sum = static_cast<int32_t>(static_cast<uint32_t>(sum) + static_cast<uint32_t>(samples[i]));
        samples[i] = sum;
        place = place + 1 == m_signalOfSample.size() ? 0 : place + 1;
    }
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
    double* value = out.data();
    const int32_t* at = samples + row.first;
    if (row.perFrame == 1) {
        for (std::size_t n = 0; n < whole; ++n, at += frame) {
            value[n] = ValueOf(*at, row.gain, row.baseline);
        }
        return;
    }
    for (std::size_t n = 0; n < whole; ++n, at += frame) {
        for (std::size_t i = 0; i < row.perFrame; ++i) {
            *value++ = ValueOf(at[i * row.step], row.gain, row.baseline);
        }
    }
}

} // namespace lab
