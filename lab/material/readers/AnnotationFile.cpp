#include "lab/material/readers/AnnotationFile.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"

#include <algorithm>
#include <array>
#include <limits>

namespace lab {
namespace {

constexpr std::size_t kLargestFile = 256U << 20U;
constexpr int kSkip = 59;
constexpr int kNumber = 60;
constexpr int kSubtype = 61;
constexpr int kChannel = 62;
constexpr int kText = 63;
constexpr int64_t kMostStep = 1023;

constexpr std::array<const char*, 42> kSymbols = {
    " ", "N", "L", "R", "a", "V", "F", "J", "A",  "S", "E", "j", "/", "Q",
    "~", "",  "|", "",  "s", "T", "*", "D", "\"", "=", "p", "B", "^", "t",
    "+", "u", "?", "!", "[", "]", "e", "n", "@",  "x", "f", "(", ")", "r"};

class Words {
  public:
    explicit Words(const std::string& bytes) : m_bytes(bytes) {}

    bool Has(std::size_t bytes) const { return m_bytes.size() - m_at >= bytes; }

    int Next() {
        const int word = static_cast<unsigned char>(m_bytes[m_at]) |
                         static_cast<unsigned char>(m_bytes[m_at + 1]) << 8;
        m_at += 2;
        return word;
    }

    std::string Text(std::size_t length) {
        std::string text = m_bytes.substr(m_at, length);
        m_at = std::min(m_at + length + length % 2, m_bytes.size()); // the padding may be cut off
        return text.substr(0, text.find('\0'));
    }

  private:
    const std::string& m_bytes;
    std::size_t m_at = 0;
};

// Reads up to the end mark. False when the file ends before it.
class AnnotationParser {
  public:
    AnnotationParser(const std::string& bytes, const Rate& rate) : m_words(bytes), m_rate(rate) {}

    bool Parse(std::vector<SourceAnnotation>& annotations) {
        while (m_words.Has(2)) {
            const int word = m_words.Next();
            if (word == 0) {
                return true;
            }
            if (!Take(word >> 10, word & 0x3FF, annotations)) {
                return false;
            }
        }
        // Files without an end mark are common; files that end within a word are not.
        return !m_words.Has(1);
    }

  private:
    bool Take(int type, int value, std::vector<SourceAnnotation>& annotations) {
        if (type == kSkip) {
            return TakeSkip();
        }
        if (type == kText) {
            return TakeText(static_cast<std::size_t>(value), annotations);
        }
        const int number = static_cast<signed char>(value & 0xFF);
        if (type == kNumber || type == kChannel) {
            (type == kNumber ? m_number : m_channel) = type == kNumber ? number : value & 0xFF;
        }
        if (!annotations.empty() && type >= kNumber) {
            SourceAnnotation& last = annotations.back();
            last.subtype = type == kSubtype ? number : last.subtype;
            last.number = m_number;
            last.channel = m_channel;
        } else if (type < kSkip) {
            Add(type, value, annotations);
        }
        return true;
    }

    bool TakeSkip() {
        if (!m_words.Has(4)) {
            return false;
        }
        const auto high = static_cast<uint32_t>(m_words.Next());
        const auto low = static_cast<uint32_t>(m_words.Next());
        m_time += static_cast<int32_t>(high << 16U | low);
        return true;
    }

    bool TakeText(std::size_t length, std::vector<SourceAnnotation>& annotations) {
        if (!m_words.Has(length)) {
            return false;
        }
        const std::string text = m_words.Text(length);
        if (!annotations.empty()) {
            annotations.back().text = text;
        }
        return true;
    }

    void Add(int type, int step, std::vector<SourceAnnotation>& annotations) {
        m_time += step;
        SourceAnnotation& annotation = annotations.emplace_back();
        annotation.sample = m_time;
        annotation.seconds = static_cast<double>(m_time) / m_rate.PerSecond();
        annotation.type = type;
        annotation.code = AnnotationSymbol(type);
        annotation.channel = m_channel;
        annotation.number = m_number;
    }

    Words m_words;
    Rate m_rate;
    int64_t m_time = 0;
    int m_channel = 0;
    int m_number = 0;
};

void PutWord(std::string& bytes, int64_t word) {
    bytes += static_cast<char>(word & 0xFF);
    bytes += static_cast<char>(word >> 8 & 0xFF);
}

void PutWord(std::string& bytes, int type, int64_t value) {
    PutWord(bytes, static_cast<int64_t>(type) << 10 | (value & 0x3FF));
}

void PutSkip(std::string& bytes, int64_t step) {
    PutWord(bytes, kSkip, 0);
    PutWord(bytes, step >> 16 & 0xFFFF);
    PutWord(bytes, step & 0xFFFF);
}

// A word of type 0 with no time would be the end mark.
void PutTime(std::string& bytes, const SourceAnnotation& annotation, int64_t step) {
    constexpr int64_t kMostSkip = std::numeric_limits<int32_t>::max();
    const int64_t least = annotation.type == 0 ? 1 : 0;
    for (; step > kMostSkip; step -= kMostSkip) {
        PutSkip(bytes, kMostSkip);
    }
    for (; step < -kMostSkip; step += kMostSkip) {
        PutSkip(bytes, -kMostSkip);
    }
    if (step < least || step > kMostStep) {
        PutSkip(bytes, step - least);
        step = least;
    }
    PutWord(bytes, annotation.type, step);
}

} // namespace

std::string AnnotationSymbol(int type) {
    const auto place = static_cast<std::size_t>(type);
    const bool isKnown = type >= 0 && place < kSymbols.size() && kSymbols[place][0] != '\0';
    return isKnown ? kSymbols[place] : Format("[%d]", type);
}

std::vector<SourceAnnotation> ReadAnnotationFile(const std::string& path, const Rate& frameRate) {
    const std::string bytes = ReadText(path, kLargestFile);
    std::vector<SourceAnnotation> annotations;
    if (!AnnotationParser(bytes, frameRate).Parse(annotations)) {
        Fail(kMaterial, path, "ends within an annotation.", "Copy it again.");
    }
    return annotations;
}

std::string EncodeAnnotations(const std::vector<SourceAnnotation>& annotations) {
    std::string bytes;
    int64_t time = 0;
    int channel = 0;
    int number = 0;
    for (const SourceAnnotation& annotation : annotations) {
        PutTime(bytes, annotation, annotation.sample - time);
        time = annotation.sample;
        if (annotation.subtype != 0) {
            PutWord(bytes, kSubtype, annotation.subtype & 0xFF);
        }
        if (annotation.channel != channel) {
            PutWord(bytes, kChannel, annotation.channel & 0xFF);
        }
        if (annotation.number != number) {
            PutWord(bytes, kNumber, annotation.number & 0xFF);
        }
        channel = annotation.channel;
        number = annotation.number;
        const std::string text = annotation.text.substr(0, 1022);
        if (!text.empty()) {
            PutWord(bytes, kText, static_cast<int64_t>(text.size()));
            bytes += text + std::string(text.size() % 2, '\0');
        }
    }
    PutWord(bytes, 0);
    return bytes;
}

} // namespace lab
