#include "lab/score/AnnotationFile.h"

#include "lab/common/Failure.h"
#include "lab/score/Codes.h"
#include "lab/score/HeaderRate.h"

namespace lab::score {
namespace {

// Codes above those of annotations: attributes of the annotation before, and a longer interval
// before the next.
enum Control : unsigned { kSkip = 59, kNumber = 60, kSubtype = 61, kChannel = 62, kText = 63 };

constexpr std::string_view kRateNote = "## time resolution: ";

class Parser {
  public:
    Parser(const std::string& bytes, const std::string& where) : m_bytes(bytes), m_where(where) {}

    AnnotationContent Parse() {
        m_content.annotations.reserve(m_bytes.size() / 2);
        while (m_at < m_bytes.size()) {
            m_word = m_at;
            const unsigned word = Word("a word");
            if (word == 0) {
                RemarkOnRest();
                return std::move(m_content);
            }
            Take(word >> 10, word & 0x3FF);
        }
        m_content.remark = m_bytes.empty() ? "is empty" : "has no end mark; is it whole?";
        return std::move(m_content);
    }

  private:
    void Take(unsigned code, unsigned value) {
        switch (code) {
        case kSkip:
            m_time += Skip();
            break;
        case kNumber:
        case kChannel:
            (void)Last();
            break;
        case kSubtype:
            Last().subtype = static_cast<std::int8_t>(value & 0xFF);
            break;
        case kText:
            TakeText(value);
            break;
        default:
            m_time += value;
            m_content.annotations.push_back({m_time, static_cast<std::uint8_t>(code), 0});
        }
    }

    // Two bytes, the low one first.
    unsigned Word(const char* what) {
        if (m_bytes.size() - m_at < 2) {
            FailTruncated(what);
        }
        const auto low = static_cast<unsigned char>(m_bytes[m_at]);
        const auto high = static_cast<unsigned char>(m_bytes[m_at + 1]);
        m_at += 2;
        return low | static_cast<unsigned>(high) << 8;
    }

    // Four bytes, the high word first.
    std::int32_t Skip() {
        const unsigned high = Word("a SKIP");
        return static_cast<std::int32_t>(high << 16 | Word("a SKIP"));
    }

    // Padded to whole words.
    void TakeText(std::size_t length) {
        const std::size_t padded = length + length % 2;
        if (m_bytes.size() - m_at < padded) {
            FailTruncated("a text");
        }
        const std::string_view text(m_bytes.data() + m_at, length);
        m_at += padded;
        const Annotation& annotation = Last();
        if (annotation.code == kNote && annotation.time == 0 &&
            text.substr(0, kRateNote.size()) == kRateNote) {
            TakeRate(text.substr(kRateNote.size()));
        }
    }

    void TakeRate(std::string_view text) {
        text = text.substr(0, text.find_first_of(std::string_view(" \0", 2)));
        m_content.rate = ParseRate(text);
        if (!m_content.rate) {
            Fail(kMaterial, m_where,
                 Format("states a time resolution at byte %zu that is not a rate.", m_word));
        }
    }

    Annotation& Last() {
        if (m_content.annotations.empty()) {
            Fail(kMaterial, m_where,
                 Format("is not an annotation file: the word at byte %zu qualifies an annotation, "
                        "and none precedes it.",
                        m_word));
        }
        return m_content.annotations.back();
    }

    void RemarkOnRest() {
        if (m_bytes.find_first_not_of('\0', m_at) != std::string::npos) {
            m_content.remark = Format("has an end mark at byte %zu; the %zu bytes after it are not "
                                      "read",
                                      m_word, m_bytes.size() - m_at);
        }
    }

    [[noreturn]] void FailTruncated(const char* what) const {
        Fail(kMaterial, m_where,
             Format("ends after %zu bytes, inside %s that begins at byte %zu.", m_bytes.size(),
                    what, m_word),
             "Copy the whole file again.");
    }

    const std::string& m_bytes;
    const std::string& m_where;
    std::size_t m_at = 0;
    std::size_t m_word = 0; // where the current word begins
    std::int64_t m_time = 0;
    AnnotationContent m_content;
};

} // namespace

AnnotationContent ParseAnnotations(const std::string& bytes, const std::string& where) {
    return Parser(bytes, where).Parse();
}

} // namespace lab::score
