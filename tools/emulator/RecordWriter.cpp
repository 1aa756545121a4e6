#include "tools/emulator/RecordWriter.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace emulator {
namespace {

constexpr std::array<const char*, kChannels> kLeads = {"I",  "II", "V1", "V2",
                                                       "V3", "V4", "V5", "V6"};
// The chest channels are in reverse order on the outputs.
constexpr std::array<std::size_t, kChannels> kChannelOfLead = {0, 1, 7, 6, 5, 4, 3, 2};

constexpr double kFullScale = 32000.0;
constexpr double kStepsPerCodeOf12 = 16.0;

std::string WithoutEnding(const std::string& path) {
    constexpr std::size_t kEndingLength = 4;
    const bool hasEnding = path.size() > kEndingLength &&
                           path.compare(path.size() - kEndingLength, kEndingLength, ".hea") == 0;
    return hasEnding ? path.substr(0, path.size() - kEndingLength) : path;
}

std::string FileName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The name is a field of the header, which readers of records take apart at blanks and more.
std::string PathOfRecord(const std::string& path) {
    constexpr const char* kNameCharacters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string record = WithoutEnding(path);
    const std::string name = FileName(record);
    if (name.empty() || name.find_first_not_of(kNameCharacters) != std::string::npos) {
        throw std::invalid_argument("'" + path +
                                    "' names no record: letters, digits, - and _ are allowed");
    }
    return record;
}

// The unit's clock runs slightly below the intended rate when a whole number of its counts cannot
// produce that rate.  The record states the whole rate for which a driver programs this clock
// value, if there is one.
double MeantRate(const SeenStart& start) {
    constexpr double kTimerFrequency = 6'000'000.0;
    const double whole = std::round(start.rate);
    const double lostCounts = kTimerFrequency / start.rate - kTimerFrequency / whole;
    return whole >= 1.0 && lostCounts >= 0.0 && lostCounts < 1.0 ? whole : start.rate;
}

} // namespace

RecordWriter::RecordWriter(const std::string& path, Unit unit, double range, ConverterModel model)
    : m_path(PathOfRecord(path)), m_unit(unit), m_rangeOverride(range), m_model(std::move(model)) {}

RecordWriter::~RecordWriter() {
    Stopped();
}

std::string RecordWriter::RecordPath() const {
    return m_records == 1 ? m_path : m_path + "_" + std::to_string(m_records);
}

void RecordWriter::Started(const SeenStart& start) {
    ++m_records;
    m_start = start;
    m_frames = 0;
    m_first = {};
    m_checksums = {};
    const std::string path = RecordPath() + ".dat";
    m_data.reset(std::fopen(path.c_str(), "wbe"));
    if (!m_data) {
        NoteFailure(path);
    }
}

void RecordWriter::Arrived(const std::vector<Codes>& frames) {
    for (const Codes& codes : frames) {
        const Samples samples = Convert(codes);
        CountSamples(samples);
        std::array<std::uint8_t, 2 * kChannels> bytes{};
        for (std::size_t lead = 0; lead < kChannels; ++lead) {
            const auto value = static_cast<std::uint16_t>(samples[lead]);
            bytes[2 * lead] = static_cast<std::uint8_t>(value & 0xFFU);
            bytes[2 * lead + 1] = static_cast<std::uint8_t>(value >> 8U);
        }
        if (m_data) {
            std::fwrite(bytes.data(), 1, bytes.size(), m_data.get());
        }
    }
}

RecordWriter::Samples RecordWriter::Convert(const Codes& codes) const {
    const int bits = BitsOf(m_unit);
    const double steps = bits == 16 ? 1.0 : kStepsPerCodeOf12;
    Samples samples{};
    for (std::size_t lead = 0; lead < kChannels; ++lead) {
        const std::size_t channel = kChannelOfLead[lead];
        const double analogue = AnalogueCode(m_model, bits, channel, codes[channel]);
        const double sample = std::clamp(std::round(analogue * steps), -32768.0, 32767.0);
        samples[lead] = static_cast<std::int16_t>(sample);
    }
    return samples;
}

void RecordWriter::CountSamples(const Samples& samples) {
    if (m_frames == 0) {
        m_first = samples;
    }
    ++m_frames;
    for (std::size_t lead = 0; lead < kChannels; ++lead) {
        const unsigned sum = m_checksums[lead] + static_cast<std::uint16_t>(samples[lead]);
        m_checksums[lead] = static_cast<std::uint16_t>(sum);
    }
}

void RecordWriter::Stopped() {
    if (!m_data) {
        return;
    }
    if (std::fflush(m_data.get()) != 0 || std::ferror(m_data.get()) != 0) {
        NoteFailure(RecordPath() + ".dat");
    }
    m_data.reset();
    WriteHeader();
}

void RecordWriter::WriteHeader() {
    const std::string path = RecordPath() + ".hea";
    const File file(std::fopen(path.c_str(), "we"));
    if (!file) {
        NoteFailure(path);
        return;
    }
    const std::string name = FileName(RecordPath());
    const double range = m_rangeOverride > 0.0 ? m_rangeOverride : m_start.range;
    // A gain of 0 means that the scale is unknown, which it is when the range was 0.
    const double gain = range > 0.0 ? kFullScale / range : 0.0;
    std::fprintf(file.get(), "%s %zu %.10g %llu\n", name.c_str(), kChannels, MeantRate(m_start),
                 static_cast<unsigned long long>(m_frames));
    for (std::size_t lead = 0; lead < kChannels; ++lead) {
        std::fprintf(file.get(), "%s.dat 16 %.10g(0)/mV 16 0 %d %d 0 %s\n", name.c_str(), gain,
                     m_first[lead], static_cast<std::int16_t>(m_checksums[lead]), kLeads[lead]);
    }
    std::fprintf(file.get(),
                 "# Outputs of an emulated simulator of %d bits, range +-%.10g mV\n"
                 "# Sample clock: reload value %u, %.10g frames per second\n"
                 "# V1 to V6 are the chest channels, which carry (V + (I + II) / 3) x 0.592731\n",
                 BitsOf(m_unit), range, m_start.reload, m_start.rate);
    if (std::fflush(file.get()) != 0 || std::ferror(file.get()) != 0) {
        NoteFailure(path);
    }
    m_headers.push_back(path);
}

void RecordWriter::NoteFailure(const std::string& path) {
    if (m_error.empty()) {
        m_error = "cannot write " + path + ": " + std::strerror(errno);
    }
}

} // namespace emulator
