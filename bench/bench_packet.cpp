// From the sample buffer to the packet buffer: packing, preparing and sending.

#include "bench/Ratios.h"
#include "device/Calibration.h"
#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/Prepare.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "engine/Wire.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace {

constexpr uint64_t kSamples = 100000;
constexpr size_t kFrames = 64;

// ---- Literal versions --------------------------------------------------------------------------

// The reference for the library's faster code, which must give equal results: the formulas as they
// are written, one call per value, one bit at a time.

__attribute__((noinline)) double LiteralAdjustVoltage(double v) {
    if (v > g_fVoltageRange) {
        return g_fVoltageRange;
    }
    return v < -g_fVoltageRange ? -g_fVoltageRange : v;
}

__attribute__((noinline)) unsigned int LiteralDAC(double v, int channel) {
    if (g_NoiseOn != 0 && g_WaveformType == MATERIAL_DIRECT) {
        v += g_NoiseData[g_nNoiseCurrent] / 1000.0;
    }
    const double x = LiteralAdjustVoltage(v) / g_fVoltageRange;
    if (g_nDACBit != 0) {
        return static_cast<unsigned int>(x * 32000.0 + 32768.0);
    }
    const double y = x * 2000.0 + 2048.0;
    const auto q = static_cast<unsigned int>(y);
    if (g_WaveformType == MATERIAL_AHA || g_bDACAvailable == 0) {
        return q;
    }
    return static_cast<unsigned int>(2.0 * y -
                                     g_DACError[channel * kDACErrorCodes + static_cast<int>(q)]);
}

double LiteralLead(int lead) {
    if (g_WaveformType == MATERIAL_DIRECT) {
        return LiteralAdjustVoltage(g_pECGData[lead][g_nSampleCurrent]);
    }
    const int32_t signal = g_ECGMappingLead[lead];
    return signal == -1 ? 0.0 : LiteralAdjustVoltage(g_pECGData[signal][g_nSampleCurrent]);
}

__attribute__((noinline)) void LiteralPrepare(int* frame) {
    const double leadI = LiteralLead(0);
    const double leadII = LiteralLead(1);
    const double terminal = (leadI + leadII) * 0.33333333333;
    frame[0] = static_cast<int>(LiteralDAC(leadI, 0));
    frame[1] = static_cast<int>(LiteralDAC(leadII, 1));
    for (int channel = 2; channel < 8; ++channel) {
        const double chest = LiteralLead(9 - channel);
        frame[channel] =
            static_cast<int>(LiteralDAC((chest + terminal) * 0.592731022038923, channel));
    }
}

__attribute__((noinline)) void LiteralPack(const int* frame, int bits, unsigned char* out) {
    for (int plane = 0; plane < bits; ++plane) {
        unsigned char byte = 0;
        for (int channel = 0; channel < 8; ++channel) {
            const int bit = frame[channel] >> (bits - 1 - plane) & 1;
            byte = static_cast<unsigned char>(byte | bit << channel);
        }
        out[plane] = byte;
    }
}

// The transpose of an 8 x 8 bit matrix that is already in a register.
uint64_t Transpose8x8(uint64_t x) {
    uint64_t t = (x ^ (x >> 7)) & 0x00AA00AA00AA00AA;
    x ^= t ^ (t << 7);
    t = (x ^ (x >> 14)) & 0x0000CCCC0000CCCC;
    x ^= t ^ (t << 14);
    t = (x ^ (x >> 28)) & 0x00000000F0F0F0F0;
    return x ^ t ^ (t << 28);
}

// ---- Material ----------------------------------------------------------------------------------

// One beat a second: a P wave, an R peak and a T wave of Gaussian shape.
double Heartbeat(double seconds) {
    const double time = seconds - std::floor(seconds);
    const auto wave = [time](double centre, double width, double millivolts) {
        const double x = (time - centre) / width;
        return millivolts * std::exp(-0.5 * x * x);
    };
    return wave(0.2, 0.025, 0.15) + wave(0.36, 0.01, 1.2) + wave(0.6, 0.05, 0.3);
}

void LoadMaterial(int32_t type, int32_t dacBit) {
    g_WaveformType = type;
    g_nSampleRate = 500;
    g_nSampleCount = kSamples;
    g_nSampleCurrent = 0;
    g_nStartPosition = 0;
    g_nNoiseCurrent = 0;
    g_bPlayLoop = 1;
    g_nDACBit = dacBit;
    if (ReallocateECGDataBuffer(8) == 0) {
        std::abort();
    }
    for (int signal = 0; signal < 8; ++signal) {
        for (uint64_t sample = 0; sample < kSamples; ++sample) {
            const double seconds = static_cast<double>(sample) / g_nSampleRate;
            g_pECGData[signal][sample] = Heartbeat(seconds) * (signal - 3.5) / 3.0;
        }
        g_ECGMappingLead[signal] = 7 - signal;
    }
}

// A calibrated unit with noise on: the longest path through the conversion.
void CalibrateUnit() {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> deviation(-8.0, 8.0);
    for (int i = 0; i < kDACErrorChannels * kDACErrorCodes; ++i) {
        g_DACError[i] = i % kDACErrorCodes + deviation(random);
    }
    g_bDACAvailable = 1;
    std::uniform_int_distribution<int> noise(-100, 100);
    for (int32_t& value : g_NoiseData) {
        value = noise(random);
    }
    g_NoiseOn = 1;
}

void StepSample() {
    g_nSampleCurrent = g_nSampleCurrent + 1 == kSamples ? 0 : g_nSampleCurrent + 1;
    g_nNoiseCurrent = (g_nNoiseCurrent + 1) % kNoiseSamples;
}

std::array<int[8], kFrames> RandomFrames() {
    std::array<int[8], kFrames> frames;
    std::mt19937 random(3);
    for (auto& frame : frames) {
        for (int& code : frame) {
            code = static_cast<int>(random() & 0xFFFF);
        }
    }
    return frames;
}

// Faster code that gives different bits is not worth measuring.
void CompareWithLiteralVersions() {
    for (int32_t type : {MATERIAL_DIRECT, MATERIAL_MIT}) {
        for (int32_t dacBit : {0, 1}) {
            LoadMaterial(type, dacBit);
            for (uint64_t i = 0; i < kSamples; ++i) {
                int frame[8];
                int literal[8];
                PrepareRawData(frame);
                LiteralPrepare(literal);
                unsigned char planes[16] = {};
                unsigned char literalPlanes[16] = {};
                (dacBit != 0 ? Pack16BitFrame : Pack12BitFrame)(frame, planes);
                LiteralPack(literal, dacBit != 0 ? 16 : 12, literalPlanes);
                if (std::memcmp(frame, literal, sizeof(frame)) != 0 ||
                    std::memcmp(planes, literalPlanes, sizeof(planes)) != 0) {
                    std::fprintf(stderr, "type %d, sample %d: not what the formulas give\n",
                                 static_cast<int>(type), static_cast<int>(i));
                    std::exit(1);
                }
                StepSample();
            }
        }
    }
}

// ---- Packing -----------------------------------------------------------------------------------

void TransposeTwice(benchmark::State& state) {
    std::array<uint64_t[2], kFrames> matrices;
    std::mt19937_64 random(4);
    for (auto& matrix : matrices) {
        matrix[0] = random();
        matrix[1] = random();
    }
    size_t i = 0;
    for (auto _ : state) {
        uint64_t planes[2] = {Transpose8x8(matrices[i][0]), Transpose8x8(matrices[i][1])};
        benchmark::DoNotOptimize(planes);
        i = (i + 1) % kFrames;
    }
}
BENCHMARK(TransposeTwice);

template <void (*Pack)(const int*, unsigned char*)>
void RunPack(benchmark::State& state) {
    const auto frames = RandomFrames();
    unsigned char planes[16];
    size_t i = 0;
    for (auto _ : state) {
        Pack(frames[i], planes);
        benchmark::DoNotOptimize(planes);
        i = (i + 1) % kFrames;
    }
}

void Pack16(benchmark::State& state) {
    RunPack<Pack16BitFrame>(state);
}
BENCHMARK(Pack16);

void Pack12(benchmark::State& state) {
    RunPack<Pack12BitFrame>(state);
}
BENCHMARK(Pack12);

template <int bits>
void LiteralPackBits(const int* frame, unsigned char* out) {
    LiteralPack(frame, bits, out);
}

void Pack16BitByBit(benchmark::State& state) {
    RunPack<LiteralPackBits<16>>(state);
}
BENCHMARK(Pack16BitByBit);

void Pack12BitByBit(benchmark::State& state) {
    RunPack<LiteralPackBits<12>>(state);
}
BENCHMARK(Pack12BitByBit);

// ---- Preparing and packing ---------------------------------------------------------------------

template <void (*PrepareFrame)(int*), void (*Pack)(const int*, unsigned char*)>
void RunPrepareAndPack(benchmark::State& state, int32_t type, int32_t dacBit) {
    LoadMaterial(type, dacBit);
    int frame[8];
    unsigned char planes[16];
    for (auto _ : state) {
        PrepareFrame(frame);
        Pack(frame, planes);
        benchmark::DoNotOptimize(planes);
        StepSample();
    }
}

void Direct12(benchmark::State& state) {
    RunPrepareAndPack<PrepareRawData, Pack12BitFrame>(state, MATERIAL_DIRECT, 0);
}
BENCHMARK(Direct12);

void Direct12Literal(benchmark::State& state) {
    RunPrepareAndPack<LiteralPrepare, LiteralPackBits<12>>(state, MATERIAL_DIRECT, 0);
}
BENCHMARK(Direct12Literal);

void Direct16(benchmark::State& state) {
    RunPrepareAndPack<PrepareRawData, Pack16BitFrame>(state, MATERIAL_DIRECT, 1);
}
BENCHMARK(Direct16);

void Direct16Literal(benchmark::State& state) {
    RunPrepareAndPack<LiteralPrepare, LiteralPackBits<16>>(state, MATERIAL_DIRECT, 1);
}
BENCHMARK(Direct16Literal);

void Mapped12(benchmark::State& state) {
    RunPrepareAndPack<PrepareRawData, Pack12BitFrame>(state, MATERIAL_MIT, 0);
}
BENCHMARK(Mapped12);

void Mapped12Literal(benchmark::State& state) {
    RunPrepareAndPack<LiteralPrepare, LiteralPackBits<12>>(state, MATERIAL_MIT, 0);
}
BENCHMARK(Mapped12Literal);

void Mapped16(benchmark::State& state) {
    RunPrepareAndPack<PrepareRawData, Pack16BitFrame>(state, MATERIAL_MIT, 1);
}
BENCHMARK(Mapped16);

void Mapped16Literal(benchmark::State& state) {
    RunPrepareAndPack<LiteralPrepare, LiteralPackBits<16>>(state, MATERIAL_MIT, 1);
}
BENCHMARK(Mapped16Literal);

// ---- Sending -----------------------------------------------------------------------------------

void RunSend(benchmark::State& state, int32_t type, int32_t dacBit) {
    LoadMaterial(type, dacBit);
    g_hDevice = open("/dev/null", O_WRONLY | O_CLOEXEC);
    unsigned char sequence = 0;
    int more = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(SendPacket(sequence, more));
    }
    const int64_t framesPerBuffer = dacBit != 0 ? 150 : 250;
    state.SetItemsProcessed(state.iterations() * framesPerBuffer);
    close(static_cast<int>(g_hDevice));
    g_hDevice = -1;
}

void SendDirect12(benchmark::State& state) {
    RunSend(state, MATERIAL_DIRECT, 0);
}
BENCHMARK(SendDirect12);

void SendDirect16(benchmark::State& state) {
    RunSend(state, MATERIAL_DIRECT, 1);
}
BENCHMARK(SendDirect16);

void SendMapped12(benchmark::State& state) {
    RunSend(state, MATERIAL_MIT, 0);
}
BENCHMARK(SendMapped12);

void SendMapped16(benchmark::State& state) {
    RunSend(state, MATERIAL_MIT, 1);
}
BENCHMARK(SendMapped16);

} // namespace

int main(int argc, char** argv) {
    CalibrateUnit();
    CompareWithLiteralVersions();
    constexpr double kDeviceRate = 1000.0;
    constexpr double kSinkRate = 2000.0 * kDeviceRate;
    return RunWithRatios(
        argc, argv,
        {{"packing 16 bits / two 8x8 bit-matrix transposes", "Pack16", "TransposeTwice", 1.2},
         {"packing 12 bits / two 8x8 bit-matrix transposes", "Pack12", "TransposeTwice", 1.2},
         {"packing 16 bits / bit by bit", "Pack16", "Pack16BitByBit", 0.25},
         {"packing 12 bits / bit by bit", "Pack12", "Pack12BitByBit", 0.25},
         {"direct material, 12 bits / literal version", "Direct12", "Direct12Literal", 0.6},
         {"direct material, 16 bits / literal version", "Direct16", "Direct16Literal", 0.6},
         {"mapped material, 12 bits / literal version", "Mapped12", "Mapped12Literal", 0.6},
         {"mapped material, 16 bits / literal version", "Mapped16", "Mapped16Literal", 0.6}},
        {{"SendPacket, direct, 12 bits, frames per second", "SendDirect12", kSinkRate},
         {"SendPacket, direct, 16 bits, frames per second", "SendDirect16", kSinkRate},
         {"SendPacket, mapped, 12 bits, frames per second", "SendMapped12", kSinkRate},
         {"SendPacket, mapped, 16 bits, frames per second", "SendMapped16", kSinkRate}});
}
