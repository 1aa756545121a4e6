#include "lab/material/RecordWriter.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

namespace lab {
namespace {

constexpr int16_t kMissing = -32768;

// A description extends to the end of its line, a unit to the next blank.
std::string OneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return text;
}

std::string OneWord(const std::string& text) {
    std::string word = OneLine(text);
    std::replace(word.begin(), word.end(), ' ', '_');
    return word.empty() ? "NU" : word;
}

} // namespace

RecordWriter::RecordWriter(const std::string& directory, const std::string& name,
                           const Rate& frameRate, const std::vector<WrittenSignal>& signals)
    : m_name(name), m_header(directory + "/" + name + ".hea"),
      m_data(directory + "/" + name + ".dat"), m_rate(frameRate), m_signals(signals),
      m_rows(signals.size()), m_file(std::fopen(m_data.c_str(), "wbe")) {
    if (m_file == nullptr) {
        FailWriting(m_data);
    }
}

void RecordWriter::FailWriting(const std::string& path) const {
    Fail(kCannotWrite, path, Format("cannot be written: %s.", std::strerror(errno)),
         errno == ENOSPC ? "Make room on that disk." : "");
}

void RecordWriter::Write(const Samples& rows) {
    std::size_t frames = SIZE_MAX;
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        Row& row = m_rows[i];
        row.waiting.erase(row.waiting.begin(),
                          row.waiting.begin() + static_cast<std::ptrdiff_t>(row.taken));
        row.taken = 0;
        row.waiting.insert(row.waiting.end(), rows[i].begin(), rows[i].end());
        frames = std::min(frames, row.Waiting() / static_cast<std::size_t>(m_signals[i].perFrame));
    }
    WriteFrames(frames);
}

void RecordWriter::WriteFrames(std::size_t frames) {
    std::size_t perFrame = 0;
    for (const WrittenSignal& signal : m_signals) {
        perFrame += static_cast<std::size_t>(signal.perFrame);
    }
    m_encoded.resize(frames * perFrame);
    std::size_t place = 0;
    for (std::size_t i = 0; i < m_signals.size(); ++i) {
        const auto samples = static_cast<std::size_t>(m_signals[i].perFrame);
        Row& row = m_rows[i];
        for (std::size_t frame = 0; frame < frames; ++frame) {
            for (std::size_t k = 0; k < samples; ++k) {
                m_encoded[frame * perFrame + place + k] = Encode(i, row.waiting[row.taken++]);
            }
        }
        place += samples;
    }
    m_frames += static_cast<int64_t>(frames);
    if (std::fwrite(m_encoded.data(), sizeof(int16_t), m_encoded.size(), m_file.get()) !=
        m_encoded.size()) {
        FailWriting(m_data);
    }
}

int16_t RecordWriter::Encode(std::size_t signal, double value) {
    const Scale& scale = m_signals[signal].scale;
    int16_t encoded = kMissing;
    if (value == value) {
        const double scaled = value * scale.gain + scale.baseline;
        encoded = static_cast<int16_t>(std::lrint(std::clamp(scaled, -32768.0, 32767.0)));
    }
    Row& row = m_rows[signal];
    row.first = row.hasFirst ? row.first : encoded;
    row.hasFirst = true;
    row.sum += static_cast<uint16_t>(encoded);
    return encoded;
}

void RecordWriter::Finish(const std::string& start) {
    std::size_t frames = 0;
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const auto perFrame = static_cast<std::size_t>(m_signals[i].perFrame);
        frames = std::max(frames, (m_rows[i].Waiting() + perFrame - 1) / perFrame);
    }
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const auto samples = frames * static_cast<std::size_t>(m_signals[i].perFrame);
        m_rows[i].waiting.resize(m_rows[i].taken + samples, std::nan(""));
    }
    WriteFrames(frames);
    std::FILE* data = m_file.release();
    if (std::fclose(data) != 0) {
        FailWriting(m_data);
    }
    const std::unique_ptr<std::FILE, CloseFile> header(std::fopen(m_header.c_str(), "wbe"));
    const std::string text = HeaderText(start);
    if (header == nullptr ||
        std::fwrite(text.data(), 1, text.size(), header.get()) != text.size() ||
        std::fflush(header.get()) != 0) {
        FailWriting(m_header);
    }
}

std::string RecordWriter::HeaderText(const std::string& start) const {
    std::string text = m_name + Format(" %zu ", m_signals.size()) +
                       ShortestNumber(m_rate.PerSecond()) +
                       Format(" %lld", static_cast<long long>(m_frames)) +
                       (start.empty() ? "" : " " + start) + "\n";
    for (std::size_t i = 0; i < m_signals.size(); ++i) {
        const WrittenSignal& signal = m_signals[i];
        text += m_name + ".dat 16";
        text += signal.perFrame > 1 ? Format("x%lld", static_cast<long long>(signal.perFrame)) : "";
        text += " " + ShortestNumber(signal.scale.gain) + Format("(%d)/", signal.scale.baseline) +
                OneWord(signal.unit) +
                Format(" 16 0 %d %d 0 ", m_rows[i].first, static_cast<int16_t>(m_rows[i].sum)) +
                OneLine(signal.description) + "\n";
    }
    return text;
}

std::string ShortestNumber(double number) {
    constexpr double kLeastPlain = 1e-6;
    constexpr double kMostPlain = 1e15;
    std::array<char, 40> text{};
    const bool isPlain = std::fabs(number) > kLeastPlain && std::fabs(number) < kMostPlain;
    const auto result =
        std::to_chars(text.data(), text.data() + text.size(), number,
                      isPlain ? std::chars_format::fixed : std::chars_format::general);
    return {text.data(), result.ptr};
}

} // namespace lab
