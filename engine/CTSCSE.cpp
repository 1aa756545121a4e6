#include "engine/CTSCSE.h"

#include "engine/CTSCSE_Database.h"
#include "engine/CTSCSE_Noise.h"
#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "platform/LastError.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint32_t kRate = 1000;
constexpr uint32_t kRepetitions = 10;
constexpr double kMicrovoltsPerMillivolt = 1000.0;

static_assert(CTSCSE_PCTH125 + 1 == kCTSCSERecords, "one enumerator a record");
static_assert(CTSCSE_NOISE_NONE == kCTSCSENoises, "one enumerator a noise");

bool IsRecord(int record) {
    return record >= 0 && record < kCTSCSERecords;
}

bool IsNoise(int noise) {
    return noise >= 0 && noise < kCTSCSENoises;
}

bool RequireRecord(int record) {
    if (!IsRecord(record)) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "there is no built-in record %d, only 0 to %d", record,
                       kCTSCSERecords - 1);
    }
    return IsRecord(record);
}

bool RequireNoise(int noise) {
    if (!IsNoise(noise)) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "there is no built-in noise %d, only 0 to %d", noise,
                       kCTSCSENoises - 1);
    }
    return IsNoise(noise);
}

bool RequireDescription(const void* description) {
    if (description == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no place for the description is given");
    }
    return description != nullptr;
}

void CopyRepeated(const double* period, uint32_t samples, double* channel) {
    for (uint32_t repetition = 0; repetition < kRepetitions; ++repetition) {
        std::copy_n(period, samples, channel + static_cast<size_t>(repetition) * samples);
    }
}

void FillChannels(int record) {
    const uint32_t samples = g_Database_CTSCSE_SampleCount[record];
    for (int channel = 0; channel < kCTSCSELeads; ++channel) {
        CopyRepeated(g_Database_CTSCSE[record] + static_cast<size_t>(channel) * samples, samples,
                     g_pECGData[channel]);
    }
}

void SelectNoise(CTSCSE_Noise noise) {
    if (IsNoise(noise)) {
        std::copy_n(g_Database_CTSCSE_Noise[noise], kCTSCSENoiseSamples, g_NoiseData);
    } else {
        std::fill_n(g_NoiseData, kCTSCSENoiseSamples, 0);
    }
    StoreShared(g_NoiseOn, IsNoise(noise));
}

} // namespace

ECG_HEADER* LoadDatabaseCTS_CSE(CTSCSE_Database record, CTSCSE_Noise noise) {
    const CMaterialLoad load;
    if (!RequireRecord(record)) {
        return nullptr;
    }
    if (noise != CTSCSE_NOISE_NONE && !RequireNoise(noise)) {
        return nullptr;
    }
    g_WaveformType = MATERIAL_DIRECT;
    g_nSampleRate = kRate;
    g_nSampleCount = uint64_t{kRepetitions} * g_Database_CTSCSE_SampleCount[record];
    if (!ReallocateECGDataBuffer(kCTSCSELeads)) {
        return nullptr;
    }
    FillChannels(record);
    SelectNoise(noise);
    return NewECGHeaderAllChannel(static_cast<int>(g_nSampleRate), static_cast<int>(g_nSampleCount),
                                  g_Database_CTSCSE_Name[record]);
}

bool DescribeBuiltinRecord(int record, RAVO_BUILTIN_RECORD* description) {
    if (!RequireDescription(description) || !RequireRecord(record)) {
        return false;
    }
    *description = RAVO_BUILTIN_RECORD();
    std::strncpy(description->Name, g_Database_CTSCSE_Name[record], sizeof description->Name - 1);
    description->SamplesPerPeriod = g_Database_CTSCSE_SampleCount[record];
    description->NumberOfSamples = kRepetitions * description->SamplesPerPeriod;
    description->SamplingFrequency = kRate;
    description->Licensed = g_Database_CTSCSE_Licensed[record];
    return true;
}

bool DescribeBuiltinNoise(int noise, RAVO_BUILTIN_NOISE* description) {
    if (!RequireDescription(description) || !RequireNoise(noise)) {
        return false;
    }
    *description = RAVO_BUILTIN_NOISE();
    std::strncpy(description->Name, g_Database_CTSCSE_NoiseName[noise],
                 sizeof description->Name - 1);
    description->Licensed = g_Database_CTSCSE_NoiseLicensed[noise];
    return true;
}

bool CopyBuiltinNoise(int noise, double* millivolts) {
    if (!RequireDescription(millivolts) || !RequireNoise(noise)) {
        return false;
    }
    std::transform(g_Database_CTSCSE_Noise[noise],
                   g_Database_CTSCSE_Noise[noise] + kCTSCSENoiseSamples, millivolts,
                   [](int32_t microvolts) { return microvolts / kMicrovoltsPerMillivolt; });
    return true;
}
