#include "lab/material/readers/EdfReader.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/EdfAnnotations.h"
#include "lab/material/readers/EdfHeader.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/Units.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace lab {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t kBytesPerBlock = 1 << 18;
constexpr double kSecondsPerGapBlock = 10.0;
constexpr int kNoteType = 22; // code of annotations that are texts

// "02.01.98" is 1998, "02.01.84" is 2084: the two digits stand for 1985 to 2084.
std::string FullDate(const std::string& date) {
    if (date.size() != 8 || date[2] != '.' || date[5] != '.') {
        return "";
    }
    const auto year = ParseWhole(date.substr(6));
    const auto month = ParseWhole(date.substr(3, 2));
    const auto day = ParseWhole(date.substr(0, 2));
    if (!year || !month || !day) {
        return "";
    }
    return Format("%02lld/%02lld/%04lld", static_cast<long long>(*day),
                  static_cast<long long>(*month),
                  static_cast<long long>(*year + (*year < 85 ? 2000 : 1900)));
}

std::string FullTime(std::string time) {
    std::replace(time.begin(), time.end(), '.', ':');
    return time;
}

class EdfReader : public SourceReader {
  public:
    EdfReader(const std::string& path, const std::optional<std::string>& unit)
        : m_file(path), m_header(ParseEdfHeader(m_file)),
          m_recordsPerBlock(std::max<int64_t>(kBytesPerBlock / m_header.recordBytes, 1)) {
        for (EdfSignal& signal : m_header.signals) {
            signal.unit = UnitsPerMillivolt(signal.unit) ? signal.unit : unit.value_or(signal.unit);
        }
        m_header.isDiscontinuous ? FindOnsets() : FindFirstOnset();
        Describe();
        WarnIfCut();
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_wanted.clear();
        for (const std::size_t signal : signals) {
            m_wanted.push_back(m_channels[signal]);
        }
        m_delivered.assign(m_wanted.size(), 0);
        m_nextRecord = 0;
        m_time = 0.0;
    }

    bool Read(Samples& block) override {
        block.resize(m_wanted.size());
        if (m_nextRecord >= m_header.records) {
            return false;
        }
        if (!m_onsets.empty() && IsBeforeGap()) {
            FillGap(block);
        } else {
            ReadRecords(block);
        }
        return true;
    }

    std::vector<SourceAnnotation> Annotations() override {
        std::vector<SourceAnnotation> annotations;
        ForEachRecordsLists(
            m_header.records, [&](std::string_view lists, bool /*isFirst*/, int64_t /*record*/) {
                for (const EdfAnnotation& found : ParseEdfAnnotations(lists, nullptr)) {
                    SourceAnnotation& annotation = annotations.emplace_back();
                    annotation.seconds = found.onset - m_firstOnset;
                    annotation.sample =
                        std::llround(annotation.seconds * m_record.frameRate.PerSecond());
                    annotation.type = kNoteType;
                    annotation.code = "\"";
                    annotation.text = found.text;
                }
            });
        std::stable_sort(annotations.begin(), annotations.end(),
                         [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
        return annotations;
    }

  private:
    // ---- Opening ----------------------------------------------------------------------------

    // Calls `each` with the annotation lists of the first data records, channel by channel.
    template <typename Each>
    void ForEachRecordsLists(int64_t records, const Each& each) const {
        for (int64_t record = 0; record < records; ++record) {
            bool isFirst = true;
            for (const EdfSignal& signal : m_header.signals) {
                if (!signal.isAnnotation) {
                    continue;
                }
                std::string lists(
                    static_cast<std::size_t>(signal.perRecord * m_header.bytesPerSample), '\0');
                const int64_t at =
                    m_header.headerBytes + record * m_header.recordBytes + signal.offset;
                lists.resize(m_file.ReadAt(at, lists.data(), lists.size()));
                each(std::string_view(lists), isFirst, record);
                isFirst = false;
            }
        }
    }

    // A continuous file may begin at a fraction of a second.
    void FindFirstOnset() {
        std::optional<double> start;
        ForEachRecordsLists(1, [&](std::string_view lists, bool isFirst, int64_t /*record*/) {
            if (isFirst) {
                ParseEdfAnnotations(lists, &start);
            }
        });
        m_firstOnset = start.value_or(0.0);
    }

    void FindOnsets() {
        ForEachRecordsLists(m_header.records,
                            [&](std::string_view lists, bool isFirst, int64_t record) {
                                std::optional<double> start;
                                ParseEdfAnnotations(lists, &start);
                                if (isFirst) {
                                    RequireOnset(start, record);
                                    m_onsets.push_back(*start);
                                }
                            });
        if (m_onsets.empty()) {
            Fail(kMaterial, m_file.Path(), "is discontinuous and has no annotation channel.",
                 "The times of its data records are needed: export the file again.");
        }
        m_firstOnset = m_onsets[0];
    }

    void RequireOnset(const std::optional<double>& start, int64_t record) const {
        constexpr double kLongest = 366.0 * 86400.0;
        const double duration = m_header.duration.PerSecond();
        const double least = m_onsets.empty() ? -kLongest : m_onsets.back() + duration * 0.999;
        if (!start || *start < least || std::fabs(*start) > kLongest) {
            Fail(kMaterial, m_file.Path(),
                 Format("data record %lld does not say when it begins, or begins before the one "
                        "before it ends.",
                        static_cast<long long>(record)),
                 "Export the file again, continuous if possible.");
        }
    }

    double OnsetOf(int64_t record) const {
        return m_onsets[static_cast<std::size_t>(record)] - m_firstOnset;
    }

    double Duration() const { return m_header.duration.PerSecond(); }

    // The position of a data record among the samples of a channel.
    int64_t PlaceOf(int64_t record, double perSecond) const {
        return std::llround(OnsetOf(record) * perSecond);
    }

    // As many samples as Read delivers, including the missing ones in gaps.
    int64_t SamplesOf(const EdfSignal& channel) const {
        if (m_onsets.empty()) {
            return channel.perRecord * m_header.records;
        }
        const double perSecond = static_cast<double>(channel.perRecord) / Duration();
        int64_t samples = 0;
        for (int64_t record = 0; record < m_header.records; ++record) {
            samples = std::max(samples, PlaceOf(record, perSecond)) + channel.perRecord;
        }
        return samples;
    }

    void Describe() {
        m_record.path = m_file.Path();
        m_record.name = StemOf(m_file.Path());
        m_record.files.push_back(m_file.Path());
        m_record.time = FullTime(m_header.time);
        m_record.date = FullDate(m_header.date);
        for (std::size_t i = 0; i < m_header.signals.size(); ++i) {
            const EdfSignal& signal = m_header.signals[i];
            if (!signal.isAnnotation && signal.perRecord > 0) {
                m_channels.push_back(i);
                m_record.signals.push_back(Described(signal));
            }
        }
        if (m_record.signals.empty()) {
            Fail(kMaterial, m_file.Path(), "holds annotations and no signals.");
        }
        m_record.frameRate = m_record.signals[0].rate;
        for (const SourceSignal& signal : m_record.signals) {
            m_record.frameRate = CommonRate(m_record.frameRate, signal.rate);
        }
    }

    SourceSignal Described(const EdfSignal& channel) const {
        SourceSignal signal;
        signal.description = channel.label;
        signal.unit = channel.unit;
        signal.rate = MakeRate(m_header.duration.denominator, m_header.duration.numerator) *
                      channel.perRecord;
        signal.samples = SamplesOf(channel);
        signal.cut =
            channel.perRecord * std::max<int64_t>(m_header.announcedRecords - m_header.records,
                                                  m_header.endsWithinRecord ? 1 : 0);
        const auto units = UnitsPerMillivolt(channel.unit);
        signal.isVoltage = units.has_value();
        signal.gain = channel.Gain() * units.value_or(1.0);
        signal.baseline = channel.Baseline();
        signal.is16Bit = m_header.bytesPerSample == 2;
        if (!std::isfinite(signal.gain) || signal.gain == 0.0) {
            Fail(kMaterial, m_file.Path(),
                 Format("signal \"%s\" has a physical or digital range that cannot be used.",
                        Printable(channel.label).c_str()),
                 "Minimum and maximum must differ: export the file again.");
        }
        if (signal.samples < 1 || signal.samples > kMostSamples) {
            Fail(kMaterial, m_file.Path(), "is too long.", "Split it into shorter files.");
        }
        return signal;
    }

    void WarnIfCut() {
        if (m_header.records < m_header.announcedRecords) {
            m_record.isCut = true;
            m_record.warnings.push_back(Format(
                "%s announces %lld data records and holds %lld: the rest is left out",
                Printable(m_file.Path()).c_str(), static_cast<long long>(m_header.announcedRecords),
                static_cast<long long>(m_header.records)));
        }
        if (m_header.endsWithinRecord) {
            m_record.isCut = true;
            m_record.warnings.push_back(Format("%s ends within data record %lld: it is left out",
                                               Printable(m_file.Path()).c_str(),
                                               static_cast<long long>(m_header.records)));
        }
    }

    // ---- Reading ----------------------------------------------------------------------------

    double PerSecond(std::size_t row) const {
        return static_cast<double>(m_header.signals[m_wanted[row]].perRecord) / Duration();
    }

    // Compared with everything delivered so far, so that gaps of less than a sample add up.
    bool IsBeforeGap() const {
        for (std::size_t row = 0; row < m_wanted.size(); ++row) {
            if (m_delivered[row] < PlaceOf(m_nextRecord, PerSecond(row))) {
                return true;
            }
        }
        return false;
    }

    // Fills the gap before the next data record with missing samples.
    void FillGap(Samples& block) {
        m_time = std::min(m_time + kSecondsPerGapBlock, OnsetOf(m_nextRecord));
        for (std::size_t row = 0; row < m_wanted.size(); ++row) {
            const int64_t there = std::llround(m_time * PerSecond(row));
            const int64_t count = std::max<int64_t>(there - m_delivered[row], 0);
            block[row].assign(static_cast<std::size_t>(count), kMissing);
            m_delivered[row] += count;
        }
    }

    // The number of data records that follow each other without a gap.
    int64_t ConnectedRecords() const {
        int64_t count = std::min(m_recordsPerBlock, m_header.records - m_nextRecord);
        return m_onsets.empty() ? count : std::min<int64_t>(count, 1);
    }

    void ReadRecords(Samples& block) {
        const int64_t records = ConnectedRecords();
        m_bytes.resize(static_cast<std::size_t>(records * m_header.recordBytes));
        const std::size_t read =
            m_file.ReadAt(m_header.headerBytes + m_nextRecord * m_header.recordBytes,
                          m_bytes.data(), m_bytes.size());
        if (read < m_bytes.size()) {
            Fail(kMaterial, m_file.Path(), "became shorter while it was being read.");
        }
        for (std::size_t row = 0; row < m_wanted.size(); ++row) {
            Decode(m_header.signals[m_wanted[row]], records, block[row]);
            m_delivered[row] += static_cast<int64_t>(block[row].size());
        }
        m_nextRecord += records;
        m_time = m_onsets.empty() ? 0.0 : OnsetOf(m_nextRecord - 1) + Duration();
    }

    void Decode(const EdfSignal& signal, int64_t records, std::vector<double>& out) const {
        const double units = UnitsPerMillivolt(signal.unit).value_or(1.0);
        const double gain = signal.Gain() * units;
        const double baseline = signal.Baseline();
        const auto count = static_cast<std::size_t>(signal.perRecord);
        out.resize(count * static_cast<std::size_t>(records));
        double* value = out.data();
        for (int64_t record = 0; record < records; ++record, value += count) {
            const unsigned char* at =
                m_bytes.data() + record * m_header.recordBytes + signal.offset;
            if (m_header.bytesPerSample == 2) {
                Decode16(at, count, baseline, gain, value);
            } else {
                Decode24(at, count, baseline, gain, value);
            }
        }
    }

    static void Decode16(const unsigned char* bytes, std::size_t count, double baseline,
                         double gain, double* out) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto digital = static_cast<int16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
            out[i] = (digital - baseline) / gain;
        }
    }

    static void Decode24(const unsigned char* bytes, std::size_t count, double baseline,
                         double gain, double* out) {
        for (std::size_t i = 0; i < count; ++i, bytes += 3) {
            const auto high = static_cast<uint32_t>(bytes[0] << 8 | bytes[1] << 16) |
                              static_cast<uint32_t>(bytes[2]) << 24U;
            out[i] = ((static_cast<int32_t>(high) >> 8) - baseline) / gain;
        }
    }

    ByteFile m_file;
    EdfHeader m_header;
    int64_t m_recordsPerBlock;
    std::vector<std::size_t> m_channels; // of the record's signals
    std::vector<double> m_onsets;        // of the data records, when they are discontinuous
    double m_firstOnset = 0.0;

    std::vector<std::size_t> m_wanted; // channels
    std::vector<int64_t> m_delivered;  // samples of each
    int64_t m_nextRecord = 0;
    double m_time = 0.0; // seconds delivered, of a discontinuous file
    std::vector<unsigned char> m_bytes;
};

} // namespace

std::unique_ptr<SourceReader> OpenEdf(const std::string& path,
                                      const std::optional<std::string>& unit) {
    return std::make_unique<EdfReader>(path, unit);
}

} // namespace lab
