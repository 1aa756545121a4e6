#include "WFDB/signal16.h"

#include "WFDB/FrameReader.h"
#include "WFDB/stdafx.h"

namespace {

constexpr int64_t kBytesPerSample = 2;

class Decoder16 {
  public:
    Decoder16(WFDB_HEADER* header, int64_t samples)
        : m_file(LoadReaderState(header).SignalFile), m_wanted(samples) {}

    SampleBlock Decode(int64_t limit) {
        const int64_t samples = std::min(m_wanted, limit);
        m_wanted -= samples;
        const auto bytes = static_cast<size_t>(samples * kBytesPerSample);
        const size_t count = fread_unlocked(m_bytes, 1, bytes, m_file) / kBytesPerSample;
        for (size_t i = 0; i < count; ++i) {
            m_samples[i] = static_cast<uint16_t>(m_bytes[2 * i] + 256 * m_bytes[2 * i + 1]);
        }
        return {m_samples, m_samples + count};
    }

    static int Value(uint16_t stored) { return static_cast<int16_t>(stored); }
    // Kept unsigned: as ADC values negative samples read as 32768 and above.
    static int RawValue(uint16_t stored) { return stored; }
    static constexpr bool kStoresPartialSum = false;

  private:
    FILE* m_file;
    int64_t m_wanted;
    uint8_t m_bytes[kSamplesPerBlock * kBytesPerSample];
    uint16_t m_samples[kSamplesPerBlock];
};

// Moves past first x second frames.  Positions are 32-bit numbers in this format; one that does
// not fit fails.
int MoveToFrame(WFDB_HEADER* header, int64_t first, int64_t second) {
    int64_t offset = 0;
    const bool overflows =
        __builtin_mul_overflow(first, second, &offset) ||
        __builtin_mul_overflow(offset, CountSamples(header, 1) * kBytesPerSample, &offset) ||
        offset > std::numeric_limits<int32_t>::max();
    return MoveSignalFile(header, overflows ? kNoPosition : offset);
}

int Seek(WFDB_HEADER* header, int seconds) {
    return MoveToFrame(header, header->SamplingFrequency, SecondsWithinRecord(header, seconds));
}

int SeekEx(WFDB_HEADER* header, int frame) {
    return MoveToFrame(header, FrameWithinRecord(header, frame), 1);
}

} // namespace

const SIGNAL_HANDLER g_SignalHandler16 = {ReadFrames<Decoder16>, ReadRawFrames<Decoder16>, Seek,
                                          SeekEx};
