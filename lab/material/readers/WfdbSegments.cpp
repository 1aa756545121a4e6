#include "lab/material/readers/WfdbSegments.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/Units.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace lab {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t kSamplesPerBlock = 32768;
constexpr std::size_t kAbsent = SIZE_MAX;

class WfdbSegments : public SourceReader {
  public:
    WfdbSegments(WfdbHeader header, OpenWfdbPiece open)
        : m_header(std::move(header)), m_open(std::move(open)) {
        const WfdbHeader layout = FindLayout();
        m_isVariable = m_header.segments[0].frames == 0;
        CountFrames();
        Describe(layout);
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_wanted = signals;
        m_next = 0;
        m_left = 0;
        m_piece = nullptr;
    }

    bool Read(Samples& block) override {
        while (m_left == 0 && m_next < m_header.segments.size()) {
            Advance();
        }
        block.resize(m_wanted.size());
        if (m_left == 0) {
            return false;
        }
        m_piece != nullptr && m_piece->Read(m_rows) ? TakePiece(block) : TakeGap(block);
        return true;
    }

  private:
    // ---- Opening ----------------------------------------------------------------------------

    WfdbHeader HeaderOf(const WfdbSegment& segment) const {
        const std::string path = DirectoryOf(m_header.path) + segment.name + ".hea";
        RequireFile(path, "The header " + Printable(m_header.path) +
                              " names this segment; it must lie in the same folder.");
        WfdbHeader header = ParseWfdbHeader(path);
        if (!header.segments.empty()) {
            Fail(kMaterial, path, "consists of segments and is a segment itself.",
                 "Only whole records are made of segments.");
        }
        header.frames = header.frames < 0 && segment.frames > 0 ? segment.frames : header.frames;
        return header;
    }

    // The header that names the record's signals.
    WfdbHeader FindLayout() const {
        for (const WfdbSegment& segment : m_header.segments) {
            if (segment.name != "~") {
                return HeaderOf(segment);
            }
        }
        Fail(kMaterial, m_header.path, "consists of gaps alone.");
    }

    void CountFrames() {
        for (const WfdbSegment& segment : m_header.segments) {
            m_frames += std::min(segment.frames, kMostSamples);
            if (m_frames > kMostSamples) {
                break;
            }
        }
        if (m_frames < 1 || m_frames > kMostSamples) {
            Fail(kMaterial, m_header.path, "has segments of a total length that cannot be used.",
                 "Correct the number of samples after each segment's name.");
        }
        if (m_header.frames >= 0 && m_header.frames != m_frames) {
            Fail(kMaterial, m_header.path,
                 Format("line %lld announces %lld samples, the segments have %lld.",
                        static_cast<long long>(m_header.recordLine),
                        static_cast<long long>(m_header.frames), static_cast<long long>(m_frames)),
                 "Is a segment's line missing or damaged? Fetch the header again or correct it.");
        }
    }

    void Describe(const WfdbHeader& layout) {
        m_record = DescribeWfdbRecord(m_header);
        WfdbHeader described = layout;
        described.rate = m_header.rate;
        for (std::size_t i = 0; i < layout.signals.size(); ++i) {
            m_record.signals.push_back(DescribeWfdbSignal(described, i, m_frames));
            m_record.signals[i].is16Bit = false; // each segment may have its own gains
            m_perFrame.push_back(layout.signals[i].samplesPerFrame);
            m_samplesPerFrame += layout.signals[i].samplesPerFrame;
        }
        for (const WfdbSegment& segment : m_header.segments) {
            if (segment.name == "~") {
                continue;
            }
            const WfdbHeader header = HeaderOf(segment);
            AddFiles(segment, header);
            if (segment.frames > 0) {
                RequireRate(header);
                RequireLayout(header);
                TellCut(segment, header);
            }
        }
    }

    void AddFiles(const WfdbSegment& segment, const WfdbHeader& header) {
        m_record.files.push_back(header.path);
        for (const WfdbSignalLine& line : header.signals) {
            const std::string path = DirectoryOf(header.path) + line.file;
            if (segment.frames > 0 && path != m_record.files.back()) {
                m_record.files.push_back(path);
            }
        }
    }

    void RequireRate(const WfdbHeader& header) const {
        if (header.rate != m_header.rate) {
            Fail(kMaterial, header.path,
                 Format("line %lld gives %.10g frames per second, %s gives %.10g.",
                        static_cast<long long>(header.recordLine), header.rate.PerSecond(),
                        Printable(m_header.path).c_str(), m_header.rate.PerSecond()),
                 "All segments of a record have its rate: play this one by itself.");
        }
    }

    // In a fixed layout the position of a signal identifies it.
    void RequireLayout(const WfdbHeader& header) const {
        if (m_isVariable) {
            return;
        }
        constexpr const char* kCure = "All segments hold the same signals in the same order unless "
                                      "the first one is a layout of\n"
                                      "      0 samples: play this one by itself.";
        if (header.signals.size() != m_record.signals.size()) {
            Fail(kMaterial, header.path,
                 Format("describes %zu signal(s), %s begins with %zu.", header.signals.size(),
                        Printable(m_header.path).c_str(), m_record.signals.size()),
                 kCure);
        }
        for (std::size_t i = 0; i < header.signals.size(); ++i) {
            if (header.signals[i].description != m_record.signals[i].description) {
                Fail(kMaterial, header.path,
                     Format("signal %zu is \"%s\", in %s it begins as \"%s\".", i,
                            Printable(header.signals[i].description).c_str(),
                            Printable(m_header.path).c_str(),
                            Printable(m_record.signals[i].description).c_str()),
                     kCure);
            }
        }
    }

    // Samples that a segment lacks are missing in the middle of the record.
    void TellCut(const WfdbSegment& segment, const WfdbHeader& header) {
        const std::unique_ptr<SourceReader> reader = m_open(header);
        const SourceRecord& piece = reader->Record();
        const int64_t held = piece.signals[0].samples / header.signals[0].samplesPerFrame;
        if (held < segment.frames) {
            m_record.isCut = true;
            m_record.warnings.push_back(
                Format("%s gives segment %s %lld frames, it holds %lld: the rest is missing",
                       Printable(m_header.path).c_str(), Printable(segment.name).c_str(),
                       static_cast<long long>(segment.frames), static_cast<long long>(held)));
        } else if (piece.isCut) {
            m_record.isCut = true;
            m_record.warnings.insert(m_record.warnings.end(), piece.warnings.begin(),
                                     piece.warnings.end());
        }
    }

    // ---- Reading ----------------------------------------------------------------------------

    void Advance() {
        const WfdbSegment& segment = m_header.segments[m_next++];
        m_left = segment.frames;
        m_piece = nullptr;
        if (segment.name != "~" && segment.frames > 0) {
            OpenPiece(segment);
        }
    }

    // Begins reading those of the wanted signals that the segment has.
    void OpenPiece(const WfdbSegment& segment) {
        const WfdbHeader header = HeaderOf(segment);
        std::vector<std::size_t> theirs;
        m_rowOf.clear();
        for (const std::size_t signal : m_wanted) {
            const std::size_t place = FindIn(header, signal);
            m_rowOf.push_back(place == kAbsent ? kAbsent : theirs.size());
            if (place == kAbsent) {
                continue;
            }
            RequireSameKind(header, place, signal);
            theirs.push_back(place);
        }
        if (!theirs.empty()) {
            m_piece = m_open(header);
            m_piece->Begin(theirs);
        }
    }

    // Voltages may differ in unit: they are read in millivolts.
    void RequireSameKind(const WfdbHeader& header, std::size_t place, std::size_t signal) const {
        const WfdbSignalLine& line = header.signals[place];
        if (line.samplesPerFrame != m_perFrame[signal]) {
            Fail(kMaterial, header.path,
                 Format("signal %zu has %lld samples per frame, %lld elsewhere in %s.", place,
                        static_cast<long long>(line.samplesPerFrame),
                        static_cast<long long>(m_perFrame[signal]),
                        Printable(m_header.name).c_str()),
                 "All segments of a record have the same rates.");
        }
        const SourceSignal& own = m_record.signals[signal];
        const bool isVoltage = UnitsPerMillivolt(line.unit).has_value();
        if (isVoltage != own.isVoltage || (!isVoltage && line.unit != own.unit)) {
            Fail(kMaterial, header.path,
                 Format("signal %zu \"%s\" is in \"%s\", elsewhere in %s in \"%s\".", place,
                        Printable(line.description).c_str(), Printable(line.unit).c_str(),
                        Printable(m_header.name).c_str(), Printable(own.unit).c_str()),
                 "A signal has one unit or voltages throughout: correct the line in the header.");
        }
    }

    std::size_t FindIn(const WfdbHeader& header, std::size_t signal) const {
        if (!m_isVariable) {
            return signal < header.signals.size() ? signal : kAbsent;
        }
        for (std::size_t i = 0; i < header.signals.size(); ++i) {
            if (header.signals[i].description == m_record.signals[signal].description) {
                return i;
            }
        }
        return kAbsent;
    }

    void TakePiece(Samples& block) {
        int64_t frames = m_left;
        for (std::size_t row = 0; row < m_wanted.size(); ++row) {
            if (m_rowOf[row] != kAbsent) {
                const auto count = static_cast<int64_t>(m_rows[m_rowOf[row]].size());
                frames = std::min(frames, count / m_perFrame[m_wanted[row]]);
            }
        }
        for (std::size_t row = 0; row < m_wanted.size(); ++row) {
            const auto count = static_cast<std::size_t>(frames * m_perFrame[m_wanted[row]]);
            if (m_rowOf[row] == kAbsent) {
                block[row].assign(count, kMissing);
            } else {
                block[row].swap(m_rows[m_rowOf[row]]);
                block[row].resize(count);
            }
        }
        m_left -= frames;
    }

    void TakeGap(Samples& block) {
        const int64_t most = std::max<int64_t>(kSamplesPerBlock / m_samplesPerFrame, 1);
        const int64_t frames = std::min(m_left, most);
        for (std::size_t row = 0; row < m_wanted.size(); ++row) {
            block[row].assign(static_cast<std::size_t>(frames * m_perFrame[m_wanted[row]]),
                              kMissing);
        }
        m_left -= frames;
        m_piece = nullptr;
    }

    WfdbHeader m_header;
    OpenWfdbPiece m_open;
    bool m_isVariable = false;
    int64_t m_frames = 0;
    std::vector<int64_t> m_perFrame; // samples of each signal
    int64_t m_samplesPerFrame = 0;   // of all signals

    std::vector<std::size_t> m_wanted;
    std::size_t m_next = 0; // segment
    int64_t m_left = 0;     // frames left in the current segment
    std::unique_ptr<SourceReader> m_piece;
    std::vector<std::size_t> m_rowOf; // row of each wanted signal in the current segment
    Samples m_rows;
};

} // namespace

std::unique_ptr<SourceReader> OpenWfdbSegments(const WfdbHeader& header, OpenWfdbPiece open) {
    return std::make_unique<WfdbSegments>(header, std::move(open));
}

} // namespace lab
