#include "WFDB/signal212.h"

#include "WFDB/FrameReader.h"
#include "WFDB/stdafx.h"

namespace {

constexpr int64_t kBytesPerTriple = 3;

// Takes the byte triples in file order, regardless of the signal that their samples belong to.  The
// second sample of the last triple may be needed only by a later call: the header keeps it.
class Decoder212 {
  public:
    Decoder212(WFDB_HEADER* header, int64_t samples) : m_header(header), m_wanted(samples) {}

    SampleBlock Decode(int64_t limit) {
        READER_STATE state = LoadReaderState(m_header);
        const int64_t samples = std::min(m_wanted, limit);
        m_wanted -= samples;
        uint16_t* end = m_samples;
        if (samples > 0 && state.HasPendingSample != 0) {
            *end++ = static_cast<uint16_t>(state.PendingSample);
            state.HasPendingSample = 0;
        }
        const int64_t missing = m_samples + samples - end;
        end = DecodeTriples(state.SignalFile, (missing + 1) / 2, end);
        if (end > m_samples + samples) {
            --end;
            state.PendingSample = static_cast<int16_t>(*end);
            state.HasPendingSample = 1;
        }
        StoreReaderState(m_header, state);
        return {m_samples, end};
    }

    static int Value(uint16_t stored) { return (stored & 0x800) != 0 ? stored - 4096 : stored; }
    static int RawValue(uint16_t stored) { return Value(stored); }
    static constexpr bool kStoresPartialSum = true;

  private:
    // Appends the samples of up to `triples` triples and returns their end.
    uint16_t* DecodeTriples(FILE* file, int64_t triples, uint16_t* out) {
        const auto bytes = static_cast<size_t>(triples * kBytesPerTriple);
        const size_t count = fread_unlocked(m_bytes, 1, bytes, file) / kBytesPerTriple;
        const uint8_t* triple = m_bytes;
        for (size_t i = 0; i < count; ++i, triple += kBytesPerTriple) {
            *out++ = static_cast<uint16_t>(triple[0] + 256 * (triple[1] & 0x0F));
            *out++ = static_cast<uint16_t>(triple[2] + 16 * (triple[1] & 0xF0));
        }
        return out;
    }

    WFDB_HEADER* m_header;
    int64_t m_wanted;
    uint8_t m_bytes[(kSamplesPerBlock + 1) / 2 * kBytesPerTriple];
    uint16_t m_samples[kSamplesPerBlock + 1]; // the last triple may yield one too many
};

// Moves past first x second samples of every signal.  Two quirks: a signal counts as one sample
// per frame, and after an odd number of samples the position lies one byte inside a triple.
int MoveToFrame(WFDB_HEADER* header, int64_t first, int64_t second) {
    constexpr double kBytesPerSample = 1.5;
    constexpr int64_t kMostSamples = std::numeric_limits<int64_t>::max() / 2;
    int64_t samples = 0;
    const bool overflows =
        __builtin_mul_overflow(first, second, &samples) ||
        __builtin_mul_overflow(samples, int64_t{header->NumberOfSignals}, &samples) ||
        samples > kMostSamples || samples < -kMostSamples;
    const double offset = static_cast<double>(samples) * kBytesPerSample;
    return MoveSignalFile(header, overflows ? kNoPosition : static_cast<int64_t>(offset));
}

int Seek(WFDB_HEADER* header, int seconds) {
    return MoveToFrame(header, header->SamplingFrequency, SecondsWithinRecord(header, seconds));
}

int SeekEx(WFDB_HEADER* header, int frame) {
    return MoveToFrame(header, FrameWithinRecord(header, frame), 1);
}

} // namespace

const SIGNAL_HANDLER g_SignalHandler212 = {ReadFrames<Decoder212>, ReadRawFrames<Decoder212>, Seek,
                                           SeekEx};
