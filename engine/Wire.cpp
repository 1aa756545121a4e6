#include "engine/Wire.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/Kinds.h"
#include "engine/Prepare.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cmath>
#include <cstring>

uint8_t g_nSendPacket[kPacketBufferSize] = {};

namespace {

constexpr size_t kPacketHeaderSize = 4;
constexpr uint8_t kPacketMark = 0x01;

// The mark in the third byte of the sixth packet is part of the format.
constexpr size_t kBufferMarkOffset = 322;
constexpr uint8_t kBufferMark = 'E';

constexpr int kStatusSize = 15;

constexpr double kSampleClockHertz = 6000000.0;
constexpr double kSampleClockSpan = 65536.0;
constexpr double kReloadCorrection = 79.0;
constexpr double kLegacyReloadCorrection = 12.0;

double ReloadCorrection(bool isISPSupported) {
    return isISPSupported ? kReloadCorrection : kLegacyReloadCorrection;
}

// ---- Bit planes --------------------------------------------------------------------------------

// A frame is an 8 x 16 bit matrix.  Both of its 8 x 8 halves are transposed at once, one in each
// lane of a vector.
using Halfwords = uint16_t __attribute__((vector_size(16)));
using Bytes = uint8_t __attribute__((vector_size(16)));
using Lanes = uint64_t __attribute__((vector_size(16)));

// The high bytes of the eight codes, then the low bytes, both from channel 7 down to channel 0.
Bytes GatherBytes(const int* frame) {
    Halfwords first;
    Halfwords second;
    std::memcpy(&first, frame, sizeof(first));
    std::memcpy(&second, frame + 4, sizeof(second));
    const Halfwords codes = __builtin_shufflevector(first, second, 14, 12, 10, 8, 6, 4, 2, 0);
    const auto high = reinterpret_cast<Bytes>(codes >> 8);
    const auto low = reinterpret_cast<Bytes>(codes);
    return __builtin_shufflevector(high, low, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28,
                                   30);
}

// Swaps the bits under `mask` with those `distance` above them.
Lanes SwapBits(Lanes x, uint64_t mask, int distance) {
    const Lanes difference = (x ^ (x >> distance)) & mask;
    return x ^ difference ^ (difference << distance);
}

// Transposes the bits of each lane across the antidiagonal, which restores the order of the
// channels and puts the most significant plane first.
Lanes TransposeLanes(Lanes x) {
    x = SwapBits(x, 0x0055005500550055, 9);
    x = SwapBits(x, 0x0000333300003333, 18);
    return SwapBits(x, 0x000000000F0F0F0F, 36);
}

Lanes BitPlanes(const int* frame) {
    return TransposeLanes(reinterpret_cast<Lanes>(GatherBytes(frame)));
}

// ---- Packets -----------------------------------------------------------------------------------

// The form in which the converter of the connected device expects its frames.
struct FrameFormat {
    size_t framesPerPacket;
    size_t frameSize;
    void (*pack)(const int* frame, unsigned char* out);
};

FrameFormat CurrentFrameFormat() {
    if (LoadShared(g_nDACBit) != 0) {
        return {3, k16BitFrameSize, Pack16BitFrame};
    }
    return {5, k12BitFrameSize, Pack12BitFrame};
}

// The position has just been advanced.  Starts over where the material loops.
bool HasEnded() {
    const bool loop = LoadShared(g_bPlayLoop) != 0;
    const MaterialKind& kind = KindOf(g_WaveformType);
    if (kind.ending == Ending::kRepeats) {
        return !loop &&
               static_cast<double>(g_nSampleCurrent) / FramesPerSecondOf(kind, g_nSampleRate) >=
                   static_cast<double>(g_nSampleCount) / g_nSampleRate;
    }
    if (kind.ending == Ending::kNever || g_nSampleCurrent != g_nSampleCount) {
        return false;
    }
    g_nSampleCurrent = g_nStartPosition;
    return !loop;
}

void AdvanceNoise() {
    g_nNoiseCurrent = (g_nNoiseCurrent + 1) % kNoiseSamples;
}

// Advances to the next sample instant.  False when there is none.
bool Advance() {
    ++g_nSampleCurrent;
    if (HasEnded()) {
        return false;
    }
    AdvanceNoise();
    return true;
}

// Fills the frames of one packet.  `frame` is the last frame, before and after.
void FillFrames(const FrameFormat& format, unsigned char* out, int* frame, int& more) {
    for (size_t slot = 0; slot < format.framesPerPacket; ++slot) {
        if (more != 0) {
            PrepareRawData(frame);
        }
        format.pack(frame, out + slot * format.frameSize);
        if (more != 0 && !Advance()) {
            more = 0;
            return;
        }
    }
}

void FillFramesOnce(const FrameFormat& format, unsigned char* out, FRAMES_ONCE& frames) {
    for (size_t slot = 0; slot < format.framesPerPacket; ++slot) {
        if (frames.Left > 0) {
            --frames.Left;
            PrepareRawData(frames.Last);
            ++g_nSampleCurrent;
            AdvanceNoise();
        }
        format.pack(frames.Last, out + slot * format.frameSize);
    }
}

// Sends a buffer whose packets `fill` receives one after the other.
template <typename Fill>
int SendBuffer(unsigned char& sequence, Fill fill) {
    std::memset(g_nSendPacket, 0, kPacketBufferSize);
    for (size_t i = 0; i < kPacketsPerBuffer; ++i) {
        unsigned char* packet = g_nSendPacket + i * kPacketSize;
        packet[0] = kPacketMark;
        packet[1] = sequence++;
        fill(packet + kPacketHeaderSize);
    }
    g_nSendPacket[kBufferMarkOffset] = kBufferMark;
    return DeviceWriteData(g_nSendPacket, static_cast<int>(kPacketBufferSize), 0);
}

} // namespace

void Pack16BitFrame(const int* frame, unsigned char* out) {
    const Lanes planes = BitPlanes(frame);
    std::memcpy(out, &planes, k16BitFrameSize);
}

void Pack12BitFrame(const int* frame, unsigned char* out) {
    // Each lane separately: loading a part of the stored whole that spans both would wait for the
    // store.
    const Lanes planes = BitPlanes(frame);
    const auto high = static_cast<uint32_t>(planes[0] >> 32);
    const uint64_t low = planes[1];
    std::memcpy(out, &high, sizeof(high));
    std::memcpy(out + sizeof(high), &low, sizeof(low));
}

size_t FramesPerPacket() {
    return CurrentFrameFormat().framesPerPacket;
}

int SendPacket(unsigned char& sequence, int& more) {
    const FrameFormat format = CurrentFrameFormat();
    int frame[kFrameChannels] = {};
    return SendBuffer(sequence, [&](unsigned char* out) { FillFrames(format, out, frame, more); });
}

int SendPacketOnce(unsigned char& sequence, FRAMES_ONCE& frames) {
    const FrameFormat format = CurrentFrameFormat();
    return SendBuffer(sequence, [&](unsigned char* out) { FillFramesOnce(format, out, frames); });
}

unsigned int SampleClockReload(int32_t waveformType, uint32_t rate, bool isISPSupported) {
    const double framesPerSecond = FramesPerSecondOf(KindOf(waveformType), rate);
    const double reload =
        kSampleClockSpan - kSampleClockHertz / framesPerSecond + ReloadCorrection(isISPSupported);
    return static_cast<unsigned int>(std::clamp(reload, 0.0, kSampleClockSpan - 1.0));
}

double SampleClockRate(unsigned int reload, bool isISPSupported) {
    return kSampleClockHertz / (kSampleClockSpan - reload + ReloadCorrection(isISPSupported));
}

unsigned int OutputRangeByte(double range) {
    // The detour through 5.0 is kept: it can decide the last bit, and with it the truncation.
    const double whole = range / 5.0 * 5.0 + 0.01;
    return std::isnan(whole) ? 0 : static_cast<unsigned int>(std::clamp(whole, 0.0, 255.0));
}

void FormStartCommand(unsigned int reload, double range, unsigned char* command) {
    command[0] = 0x00;
    command[1] = static_cast<unsigned char>(reload >> 8);
    command[2] = static_cast<unsigned char>(reload);
    command[3] = static_cast<unsigned char>(OutputRangeByte(range));
}

RESPONSE ParseResponse(const unsigned char* data, int length) {
    if (length < 1) {
        return {RESPONSE::kOther, 0, 0};
    }
    switch (data[0]) {
    case 'N':
        return {RESPONSE::kRequest, 0, 2};
    case 'X':
        return length >= 3 ? RESPONSE{RESPONSE::kDelay, (data[1] * 100 + data[2]) * 5, 3}
                           : RESPONSE{RESPONSE::kOther, 0, length};
    case 'S':
        return {RESPONSE::kOther, 0, std::min(length, kStatusSize)};
    default:
        return {RESPONSE::kOther, 0, length};
    }
}
