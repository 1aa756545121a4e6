#include "lab/material/readers/WfdbReader.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Units.h"
#include "lab/material/readers/WfdbGroup.h"
#include "lab/material/readers/WfdbSegments.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace lab {
namespace {

constexpr int64_t kSamplesPerBlock = 6144;

// A single-segment record.
class WfdbReader : public SourceReader {
  public:
    explicit WfdbReader(WfdbHeader header) : m_header(std::move(header)) {
        int64_t perFrame = 0;
        for (std::size_t i = 0; i < m_header.signals.size(); ++i) {
            const bool isKnown = std::any_of(m_groups.begin(), m_groups.end(),
                                             [i](const WfdbGroup& g) { return g.Holds(i); });
            if (!isKnown) {
                const WfdbGroup& group = m_groups.emplace_back(m_header, i);
                perFrame += group.SamplesPerFrame();
            }
        }
        m_framesPerBlock = std::max<int64_t>(kSamplesPerBlock / perFrame, 1);
        DecideLength();
        Describe();
        TellCut();
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_rows = signals.size();
        m_done = 0;
        for (WfdbGroup& group : m_groups) {
            group.Begin(signals);
        }
    }

    bool Read(Samples& block) override {
        const int64_t frames = std::min(m_framesPerBlock, m_frames - m_done);
        block.resize(m_rows);
        for (WfdbGroup& group : m_groups) {
            group.Read(frames, block);
        }
        m_done += frames;
        return frames > 0;
    }

  private:
    // The longest file decides; the others continue with missing samples.
    void DecideLength() {
        int64_t held = 0;
        for (const WfdbGroup& group : m_groups) {
            held = std::max(held, group.Frames());
        }
        m_frames = m_header.frames < 0 ? held : std::min(m_header.frames, held);
        if (m_frames < 1 || m_frames > kMostSamples) {
            Fail(kMaterial, m_header.path,
                 Format("holds %lld frames.", static_cast<long long>(m_frames)),
                 "Are its signal files complete?");
        }
    }

    void Describe() {
        m_record = DescribeWfdbRecord(m_header);
        for (const WfdbGroup& group : m_groups) {
            m_record.files.push_back(group.Path());
        }
        for (std::size_t i = 0; i < m_header.signals.size(); ++i) {
            m_record.signals.push_back(DescribeWfdbSignal(m_header, i, m_frames));
        }
    }

    void TellCut() {
        const auto shortest = std::min_element(
            m_groups.begin(), m_groups.end(),
            [](const WfdbGroup& a, const WfdbGroup& b) { return a.Frames() < b.Frames(); });
        if (m_header.frames < 0) {
            TellCutUnannounced(*shortest);
        } else if (shortest->Frames() < m_header.frames) {
            const std::string name = m_groups.size() > 1 ? " " + Printable(shortest->Path()) : "";
            TakeCut(m_header.frames - m_frames,
                    Format("%s announces %lld frames, but its signal file%s holds %lld",
                           Printable(m_header.path).c_str(),
                           static_cast<long long>(m_header.frames), name.c_str(),
                           static_cast<long long>(shortest->Frames())));
        }
    }

    // Without an announced length, files of different length show that one is cut.
    void TellCutUnannounced(const WfdbGroup& shortest) {
        if (shortest.Frames() < m_frames) {
            TakeCut(0, Format("%s holds %lld frames, another signal file of the record %lld",
                              Printable(shortest.Path()).c_str(),
                              static_cast<long long>(shortest.Frames()),
                              static_cast<long long>(m_frames)));
        }
        for (const WfdbGroup& group : m_groups) {
            if (group.EndsWithinFrame()) {
                TakeCut(group.Frames() == m_frames ? 1 : 0,
                        Format("%s ends within frame %lld", Printable(group.Path()).c_str(),
                               static_cast<long long>(group.Frames())));
                return;
            }
        }
    }

    // `frames` frames of each signal lie past the end of every file.
    void TakeCut(int64_t frames, const std::string& problem) {
        m_record.isCut = true;
        m_record.warnings.push_back(problem + ": the rest is missing");
        for (std::size_t i = 0; i < m_header.signals.size(); ++i) {
            m_record.signals[i].cut = BoundedProduct(frames, m_header.signals[i].samplesPerFrame);
        }
    }

    WfdbHeader m_header;
    std::vector<WfdbGroup> m_groups;
    std::size_t m_rows = 0;
    int64_t m_frames = 0;
    int64_t m_framesPerBlock = 1;
    int64_t m_done = 0;
};

} // namespace

SourceRecord DescribeWfdbRecord(const WfdbHeader& header) {
    SourceRecord record;
    record.name = header.name;
    record.path = header.path;
    record.files = {header.path};
    record.frameRate = header.rate;
    record.time = header.time;
    record.date = header.date;
    return record;
}

SourceSignal DescribeWfdbSignal(const WfdbHeader& header, std::size_t number, int64_t frames) {
    const WfdbSignalLine& line = header.signals[number];
    SourceSignal signal;
    signal.description = line.description;
    signal.unit = line.unit;
    signal.rate = header.rate * line.samplesPerFrame;
    signal.samples = frames * line.samplesPerFrame;
    const auto units = UnitsPerMillivolt(line.unit);
    signal.isVoltage = units.has_value();
    signal.gain = line.gain * units.value_or(1.0);
    signal.baseline = line.baseline;
    constexpr std::array<int, 9> kNarrow = {16, 61, 80, 160, 212, 310, 311, 508, 516};
    signal.is16Bit = std::find(kNarrow.begin(), kNarrow.end(), line.format) != kNarrow.end();
    if (!std::isfinite(signal.gain) || signal.gain == 0.0 || signal.samples > kMostSamples) {
        Fail(kMaterial, header.path,
             Format("signal %zu has a gain or a length that cannot be used.", number),
             "Correct its line in the header.");
    }
    return signal;
}

std::unique_ptr<SourceReader> OpenWfdb(const std::string& headerPath) {
    return OpenWfdb(ParseWfdbHeader(headerPath));
}

std::unique_ptr<SourceReader> OpenWfdb(const WfdbHeader& header) {
    if (!header.segments.empty()) {
        return OpenWfdbSegments(header, [](const WfdbHeader& segment) {
            return std::unique_ptr<SourceReader>(new WfdbReader(segment));
        });
    }
    return std::make_unique<WfdbReader>(header);
}

} // namespace lab
