// The annotation reader against a second decoder that works on the bytes in memory: the same
// results, call by call, also after failed reads and in a second pass.  Then the same annotations
// guide an amplitude measurement.
//
// Input: an annotation file.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "WFDB/wfdb.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace {

class Decoder {
  public:
    Decoder(const uint8_t* data, size_t size) : m_bytes(data, data + size) {}

    bool Rewind() {
        m_at = 0;
        m_time = 0;
        return Take(2, m_saved);
    }

    bool Next(WFDB_ANNOTATION& out) {
        if (m_word == 0) {
            return false;
        }
        std::memset(&out, 0, sizeof(out));
        m_time += m_word % 1024;
        out.Type = static_cast<uint8_t>(m_word / 1024);
        out.Time = m_time;
        out.Channel = m_channel;
        out.Number = m_number;
        while (Take(2, m_saved)) {
            const unsigned word = m_saved[0] + 256U * m_saved[1];
            if (word / 1024 < 59) {
                m_word = word;
                return true;
            }
            if (!Qualify(word, out)) {
                return false;
            }
        }
        return false;
    }

    void UseSavedWord() { m_word = m_saved[0] + 256U * m_saved[1]; }

  private:
    using Buffer = std::array<uint8_t, 256>;

    // All or nothing, but the rest of the file is consumed either way.
    bool Take(size_t count, Buffer& out) {
        const size_t available = std::min(count, m_bytes.size() - m_at);
        if (count > 0 && available == count) {
            std::copy_n(m_bytes.begin() + static_cast<ptrdiff_t>(m_at), count, out.begin());
        }
        m_at += available;
        return count > 0 && available == count;
    }

    bool Qualify(unsigned word, WFDB_ANNOTATION& out) {
        Buffer taken = {};
        switch (word / 1024) {
        case 59:
            if (!Take(4, taken)) {
                return false;
            }
            m_time += taken[1] * 0x1000000U + taken[0] * 0x10000U + taken[3] * 0x100U + taken[2];
            return true;
        case 60:
            out.Number = m_number = static_cast<uint16_t>(word % 1024);
            return true;
        case 61:
            out.SubType = static_cast<uint16_t>(word % 1024);
            return true;
        case 62:
            out.Channel = m_channel = static_cast<uint16_t>(word % 1024);
            return true;
        default:
            const size_t length = word % 256 + word % 2;
            if (!Take(length, taken)) {
                return false;
            }
            std::memset(out.AuxText, 0, sizeof(out.AuxText));
            std::copy_n(taken.begin(), std::min<size_t>(length, 31), out.AuxText);
            return true;
        }
    }

    std::vector<uint8_t> m_bytes;
    size_t m_at = 0;
    Buffer m_saved = {};
    unsigned m_word = 0;
    uint32_t m_time = 0;
    uint16_t m_channel = 0;
    uint16_t m_number = 0;
};

// Continues for a few calls after the first one that yields nothing.
void CompareOnePass(WFDB_HEADER* header, Decoder& decoder) {
    for (int failures = 0; failures < 4;) {
        WFDB_ANNOTATION expected = {};
        WFDB_ANNOTATION annotation = {};
        const bool delivered = decoder.Next(expected);
        Require(WFDBNextAnnotation(header, &annotation) == (delivered ? 1 : 0));
        Require(!delivered || std::memcmp(&annotation, &expected, sizeof(expected)) == 0);
        failures += delivered ? 0 : 1;
    }
}

WFDB_HEADER* OpenRecord() {
    static const std::string path = [] {
        const std::string text = "a 2 360 1000\na.dat 212 200 12 0\na.dat 212 200 12 0\n";
        std::vector<uint8_t> samples(3000);
        for (size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<uint8_t>(i * i / 7);
        }
        const ScratchDirectory& directory = ScratchDirectory::Get();
        directory.Write("a.dat", samples.data(), samples.size());
        return directory.Write("a.hea", text.data(), text.size());
    }();
    WFDB_HEADER* header = WFDBReadHeader(std::string(path).data());
    Require(WFDBLoadSignal(ScratchDirectory::Get().Path().c_str(), header) == 1);
    return header;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    WFDB_HEADER* header = OpenRecord();
    const std::string path = ScratchDirectory::Get().Write("a.atr", data, size);
    Decoder decoder(data, size);
    const bool loaded = decoder.Rewind();
    Require(WFDBLoadAnnotation(path.c_str(), header) == (loaded ? 1 : 0));
    if (loaded) {
        decoder.UseSavedWord();
        CompareOnePass(header, decoder);
        WFDBAnnotationSeekBegin(header);
        decoder.Rewind();
        decoder.UseSavedWord();
        CompareOnePass(header, decoder);
    }
    int signals = 0;
    double* amplitudes = WFDBSignalAmplitude(header, &signals);
    for (int i = 0; i < signals; ++i) {
        // Format 212 spans 4095 units.
        Require(amplitudes[i] >= 0 && amplitudes[i] <= 4095);
    }
    WFDBMemFree(amplitudes);
    WFDBFreeHeader(header);
    return 0;
}
