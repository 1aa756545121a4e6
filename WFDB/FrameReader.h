#pragma once

#include "ravo/wfdb.h"

#include <algorithm>
#include <cstdint>
#include <limits>

// The reading functions of one storage format.
struct SIGNAL_HANDLER {
    // Read up to `frames` frames, one value per signal and frame; the result is the number of whole
    // frames read.  NextSample yields physical values, NextSampleEx ADC values.
    int (*NextSample)(WFDB_HEADER* header, double* out, int frames);
    int (*NextSampleEx)(WFDB_HEADER* header, int* out, int frames);

    // Position the signal file at a time in seconds or at a frame; 1 on success.
    int (*Seek)(WFDB_HEADER* header, int seconds);
    int (*SeekEx)(WFDB_HEADER* header, int frame);
};

// A signal's samples in one frame of the file, never below 1.
inline int32_t GetSamplesPerFrame(const WFDB_HEADER* header, int64_t signal) {
    return std::max<int32_t>(header->Signal[signal].SamplesPerFrame, 1);
}

// The requested position, or the start of the record when it lies past its end.
int64_t SecondsWithinRecord(const WFDB_HEADER* header, int seconds);
int64_t FrameWithinRecord(const WFDB_HEADER* header, int frame);

// A position that does not exist, for a move that must fail.
constexpr int64_t kNoPosition = -1;

// Forgets the pending sample of format 212 and moves the signal file to the byte `offset`.  1 on
// success, else 0.
int MoveSignalFile(WFDB_HEADER* header, int64_t offset);

// How both formats turn stored samples into frames.  A format supplies a Decoder:
//
//   Decoder(WFDB_HEADER* header, int64_t samples)   for that many samples from where the file is
//   SampleBlock Decode(int64_t limit)               the next samples, at most `limit`; fewer than
//                                                   that many only at the end
//   static int Value(uint16_t stored)               what a stored sample stands for ...
//   static int RawValue(uint16_t stored)            ... and what it counts in an ADC value
//   static constexpr bool kStoresPartialSum         whether a signal that the end of the file cuts
//                                                   short leaves its sum so far in the output
//
// A decoder reads many samples at a time but never more than requested: afterwards the file
// stands where it would if they had been read one by one.

constexpr int64_t kSamplesPerBlock = 2048;

struct SampleBlock {
    const uint16_t* next = nullptr;
    const uint16_t* end = nullptr;
};

// The samples that `frames` frames take up in the file, as far as 64 bits count.
inline int64_t CountSamples(const WFDB_HEADER* header, int frames) {
    int64_t samplesPerFrame = 0;
    for (int64_t signal = 0; signal < header->NumberOfSignals; ++signal) {
        samplesPerFrame += GetSamplesPerFrame(header, signal);
    }
    int64_t samples = 0;
    const bool overflows = __builtin_mul_overflow(samplesPerFrame, frames, &samples);
    return overflows ? std::numeric_limits<int64_t>::max() : samples;
}

// The physical value of one stored sample.
template <class Decoder>
double DAC(const WFDB_HEADER* header, int64_t signal, uint16_t stored) {
    const WFDB_SIGNAL& description = header->Signal[signal];
    return (Decoder::Value(stored) - static_cast<double>(description.ADCBaseLine)) /
           description.ADCGain;
}

// Frames one sample after the other, for signals with any number of samples per frame.
template <class Decoder>
class SampleStream {
  public:
    SampleStream(WFDB_HEADER* header, int frames)
        : m_decoder(header, CountSamples(header, frames)) {}

    bool Next(uint16_t& stored) {
        if (m_block.next == m_block.end) {
            m_block = m_decoder.Decode(kSamplesPerBlock);
            if (m_block.next == m_block.end) {
                return false;
            }
        }
        stored = *m_block.next++;
        return true;
    }

  private:
    Decoder m_decoder;
    SampleBlock m_block;
};

template <class Decoder>
int ReadAveragedFrames(WFDB_HEADER* header, double* out, int frames) {
    SampleStream<Decoder> stream(header, frames);
    const int64_t signals = header->NumberOfSignals;
    for (int frame = 0; frame < frames; ++frame) {
        for (int64_t signal = 0; signal < signals; ++signal, ++out) {
            const int32_t samples = GetSamplesPerFrame(header, signal);
            double sum = 0.0;
            for (int32_t i = 0; i < samples; ++i) {
                uint16_t stored = 0;
                if (!stream.Next(stored)) {
                    if (Decoder::kStoresPartialSum) {
                        *out = sum;
                    }
                    return frame;
                }
                sum += DAC<Decoder>(header, signal, stored);
            }
            *out = sum / samples;
        }
    }
    return frames;
}

// Every `stride`-th of `count` samples belongs to the signal.  Two at a time: the processor divides
// a pair as fast as a single number.
template <class Decoder>
void ConvertSignal(const WFDB_SIGNAL& signal, const uint16_t* stored, int64_t count, int64_t stride,
                   double* out) {
    using Pair = double __attribute__((vector_size(16)));
    const auto baseline = static_cast<double>(signal.ADCBaseLine);
    const double gain = signal.ADCGain;
    const Pair baselines = {baseline, baseline};
    const Pair gains = {gain, gain};
    const Pair noSum = {0.0, 0.0}; // a sum that starts at zero never becomes minus zero
    int64_t i = 0;
    for (; i + stride < count; i += 2 * stride) {
        const Pair values = {static_cast<double>(Decoder::Value(stored[i])),
                             static_cast<double>(Decoder::Value(stored[i + stride]))};
        const Pair physical = noSum + (values - baselines) / gains;
        out[i] = physical[0];
        out[i + stride] = physical[1];
    }
    if (i < count) {
        out[i] = 0.0 + (Decoder::Value(stored[i]) - baseline) / gain;
    }
}

// Frames of one sample per signal, as in nearly all records.
template <class Decoder>
int ReadSimpleFrames(WFDB_HEADER* header, double* out, int frames) {
    const int64_t signals = header->NumberOfSignals;
    const int64_t wanted = signals * frames;
    const int64_t wholeFrames = kSamplesPerBlock / signals * signals;
    Decoder decoder(header, wanted);
    int64_t done = 0;
    while (done < wanted) {
        const SampleBlock block = decoder.Decode(wholeFrames);
        const int64_t count = block.end - block.next;
        for (int64_t signal = 0; signal < std::min(signals, count); ++signal) {
            ConvertSignal<Decoder>(header->Signal[signal], block.next + signal, count - signal,
                                   signals, out + done + signal);
        }
        done += count;
        if (count < wholeFrames) {
            break;
        }
    }
    if (done < wanted && Decoder::kStoresPartialSum) {
        out[done] = 0.0;
    }
    return static_cast<int>(done / signals);
}

// NextSample of a format.
template <class Decoder>
int ReadFrames(WFDB_HEADER* header, double* out, int frames) {
    if (frames < 1) {
        return 0;
    }
    const int64_t signals = header->NumberOfSignals;
    const bool simple = CountSamples(header, 1) == signals && signals <= kSamplesPerBlock;
    return simple ? ReadSimpleFrames<Decoder>(header, out, frames)
                  : ReadAveragedFrames<Decoder>(header, out, frames);
}

// NextSampleEx of a format.
template <class Decoder>
int ReadRawFrames(WFDB_HEADER* header, int* out, int frames) {
    if (frames < 1) {
        return 0;
    }
    SampleStream<Decoder> stream(header, frames);
    const int64_t signals = header->NumberOfSignals;
    for (int frame = 0; frame < frames; ++frame) {
        for (int64_t signal = 0; signal < signals; ++signal, ++out) {
            const int32_t samples = GetSamplesPerFrame(header, signal);
            int64_t sum = 0;
            for (int32_t i = 0; i < samples; ++i) {
                uint16_t stored = 0;
                if (!stream.Next(stored)) {
                    return frame;
                }
                sum += Decoder::RawValue(stored);
            }
            *out = static_cast<int>(sum / samples);
        }
    }
    return frames;
}
