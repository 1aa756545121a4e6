#include "engine/Prepare.h"

#include "engine/Conversion.h"
#include "engine/Kinds.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "engine/Waveform.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cmath>
#include <cstring>

uint64_t g_nSampleCurrent = 0;
uint32_t g_nStartPosition = 0;

namespace {

constexpr int kLeadSetSize = 12;
constexpr int kFirstChestLead = ECG_LEAD_V1; // among the eight output leads
constexpr int kFirstChestPlace = 6;          // among the twelve of a lead set

// A chest lead is recorded against the Wilson central terminal; seen from the right arm it is
// (I + II) / 3 higher.  The factors have exactly these digits: a division or one digit more would
// change the last bits of the codes.
constexpr double kWilsonFactor = 0.33333333333;
constexpr double kChestFactor = 0.592731022038923;

// EDF and AHA material is scaled by a division instead, whose result differs in the last bits.
constexpr double kChestDivisor = 1.665;

// Direct material has its signals in the order of the leads.
constexpr int32_t kDirectSignals[kFrameChannels] = {0, 1, 2, 3, 4, 5, 6, 7};

double WilsonTerminal(double leadI, double leadII) {
    return (leadI + leadII) * kWilsonFactor;
}

// The chest lead that output channel 2..7 carries.
int ChestLeadOfChannel(int channel) {
    return 9 - channel;
}

// The samples that feed a lead; null when there are none.
const double* MappedSignal(int lead) {
    return GetECGSignal(LoadShared(g_ECGMappingLead[lead]));
}

// The value of one signal at one instant.
double SampleAt(const double* samples, uint64_t index) {
    return samples != nullptr && index < g_nSampleCount ? samples[index] : 0.0;
}

using Pair = double __attribute__((vector_size(16)));

// The values of all eight leads at an instant, each from the signal that feeds it.  They are stored
// in pairs because they are loaded in pairs next: a load that spans two stores waits for the cache.
void ReadLeads(uint64_t index, const int32_t* signalOfLead, double* eight) {
    const bool holdsInstant = g_pECGData != nullptr && index < g_nSampleCount;
    const int32_t signals = holdsInstant ? g_iECGSignalNumber : 0;
    const auto valueOf = [=](int lead) {
        const int32_t signal = LoadShared(signalOfLead[lead]);
        const bool isMapped = signal >= 0 && signal < signals;
        const double* samples = isMapped ? g_pECGData[signal] : nullptr;
        return samples != nullptr ? samples[index] : 0.0;
    };
    for (int lead = 0; lead < kFrameChannels; lead += 2) {
        const Pair pair = {valueOf(lead), valueOf(lead + 1)};
        std::memcpy(eight + lead, &pair, sizeof(pair));
    }
}

void DeriveLimbLeads(double* leads) {
    const double leadI = leads[0];
    const double leadII = leads[1];
    const double leadIII = leadII - leadI;
    leads[2] = leadIII;
    leads[3] = (leadI + leadII) * -0.5;
    leads[4] = (leadI - leadIII) * 0.5;
    leads[5] = (leadII + leadIII) * 0.5;
}

// The value between two samples of a record that repeats for ever.  The last sample has no
// successor inside the record, so the slope from its predecessor is continued instead; a single
// sample has neither.
double Interpolate(const double* samples, uint64_t sample, double fraction) {
    const auto count = static_cast<uint32_t>(g_nSampleCount);
    if (samples == nullptr || count == 0) {
        return 0.0;
    }
    const uint64_t j = sample % count;
    const double a = samples[j];
    if (j + 1 < count) {
        return a + (samples[j + 1] - a) * fraction;
    }
    return count == 1 ? a : a + (a - samples[j - 1]) * fraction;
}

// Evaluates all leads at a sample into `eight` and into one cell of every array.
void EvaluateLeads(int sampleIndex, uint64_t cell, double* eight) {
    for (int lead = 0; lead < kFrameChannels; ++lead) {
        eight[lead] = CalculatePeriodicalVoltage(sampleIndex, lead).first;
        if (GetECGSignal(lead) != nullptr && cell < g_nSampleCount) {
            StoreShared(g_pECGData[lead][cell], eight[lead]);
        }
    }
}

} // namespace

// ---- Frames ------------------------------------------------------------------------------------

void PrepareRawData(int* frame) {
    std::fill_n(frame, kFrameChannels, 0);
    const MaterialKind& kind = KindOf(g_WaveformType);
    if (kind.ending == Ending::kStartsOver && g_nSampleCurrent >= g_nSampleCount) {
        return;
    }
    switch (kind.preparation) {
    case Preparation::kSilent:
        break;
    case Preparation::kDirect:
        DoPrepareRawDataDirectMode(frame);
        break;
    case Preparation::kAHA:
        DoPrepareRawDataAHA(frame);
        break;
    case Preparation::kMapped:
        DoPrepareRawDataMappingMode(frame);
        break;
    case Preparation::kTarnwick:
        DoPrepareRawDataTarnwickMode(frame);
        break;
    case Preparation::kEDF:
        DoPrepareRawDataEDF(frame);
        break;
    case Preparation::kPeriodic:
        DoPrepareRawDataPeriodical(frame);
        break;
    }
}

void DoPrepareRawDataDirectMode(int* frame) {
    DoPrepareRawDataDirectModeEx(static_cast<int>(g_nSampleCurrent), frame);
}

void DoPrepareRawDataDirectModeEx(int index, int* frame) {
    if (index < 0 || static_cast<uint64_t>(index) >= g_nSampleCount) {
        std::fill_n(frame, kFrameChannels, 0);
        return;
    }
    double eight[kFrameChannels];
    ReadLeads(static_cast<uint64_t>(index), kDirectSignals, eight);
    FrameFromLeads(eight, frame);
}

void DoPrepareRawDataMappingMode(int* frame) {
    double eight[kFrameChannels];
    ReadLeads(g_nSampleCurrent, g_ECGMappingLead, eight);
    FrameFromLeads(eight, frame);
}

// Both limb channels carry the signal of lead I, and the chest signals reach the converter without
// being limited to the range first.  Both are kept: EDF recordings are played this way.
void DoPrepareRawDataEDF(int* frame) {
    const double limb = AdjustVoltage(SampleAt(MappedSignal(ECG_LEAD_I), g_nSampleCurrent));
    const double terminal = WilsonTerminal(limb, limb);
    const int limit = KindOf(g_WaveformType).leads;
    double voltages[kFrameChannels] = {limb, limb};
    for (int channel = 2; channel < kFrameChannels; ++channel) {
        const int lead = ChestLeadOfChannel(channel);
        const double chest = lead < limit ? SampleAt(MappedSignal(lead), g_nSampleCurrent) : 0.0;
        voltages[channel] = (chest + terminal) / kChestDivisor;
    }
    ConvertFrame(voltages, frame);
}

// AHA material has no chest signals: all six chest channels carry the terminal alone.  Lead II is
// converted as channel 0 is; AHA material is never corrected, so the channel makes no difference.
void DoPrepareRawDataAHA(int* frame) {
    const double leadI = AdjustVoltage(SampleAt(GetECGSignal(0), g_nSampleCurrent));
    const double leadII = AdjustVoltage(SampleAt(GetECGSignal(1), g_nSampleCurrent));
    const double chest = WilsonTerminal(leadI, leadII) / kChestDivisor;
    frame[0] = static_cast<int>(DAC(leadI, 0));
    frame[1] = static_cast<int>(DAC(leadII, 0));
    for (int channel = 2; channel < kFrameChannels; ++channel) {
        frame[channel] = static_cast<int>(DAC(chest, channel));
    }
}

void DoPrepareRawDataTarnwickMode(int* frame) {
    // No play reaches this position; beyond it an index could not be represented.
    constexpr double kPositionLimit = 9.0e18;
    const double position =
        std::min(static_cast<double>(g_nSampleCurrent) / kTarnwickFramesPerSecond * g_nSampleRate,
                 kPositionLimit);
    const auto sample = static_cast<uint64_t>(position);
    const double fraction = position - static_cast<double>(sample);
    double eight[kFrameChannels];
    for (int lead = 0; lead < kFrameChannels; ++lead) {
        eight[lead] = Interpolate(GetECGSignal(lead), sample, fraction);
    }
    FrameFromLeads(eight, frame);
}

// The position counts past the range of a 32-bit index, which wraps to negative values; the shapes
// are evaluated there as everywhere else.
void DoPrepareRawDataPeriodical(int* frame) {
    double eight[kFrameChannels];
    EvaluateLeads(static_cast<int>(g_nSampleCurrent), kPlayCell, eight);
    FrameFromLeads(eight, frame);
}

void FrameFromLeads(const double* eight, int* frame) {
    const double range = LoadShared(g_fVoltageRange);
    const double leadI = ClampVoltage(eight[ECG_LEAD_I], range);
    const double leadII = ClampVoltage(eight[ECG_LEAD_II], range);
    const double terminal = WilsonTerminal(leadI, leadII);
    double voltages[kFrameChannels] = {leadI, leadII};
    for (int channel = 2; channel < kFrameChannels; ++channel) {
        const double chest = ClampVoltage(eight[ChestLeadOfChannel(channel)], range);
        voltages[channel] = (chest + terminal) * kChestFactor;
    }
    ConvertFrame(voltages, frame);
}

// ---- Lead sets ---------------------------------------------------------------------------------

void PrepareSignalData(int index, double* leads) {
    PrepareSignalDataAt(index, leads);
}

void PrepareSignalDataAt(int64_t position, double* leads) {
    std::fill_n(leads, kLeadSetSize, 0.0);
    const MaterialKind& kind = KindOf(g_WaveformType);
    const bool ends = kind.ending != Ending::kNever;
    const auto index = static_cast<int>(position);
    if (position < 0 || index < 0 || (ends && static_cast<uint64_t>(position) >= g_nSampleCount)) {
        return;
    }
    switch (kind.preparation) {
    case Preparation::kSilent:
        break;
    case Preparation::kDirect:
    case Preparation::kTarnwick:
        DoPrepareSignalDataDirectMode(index, leads);
        break;
    case Preparation::kAHA:
        DoPrepareSignalDataAHA(index, leads);
        break;
    case Preparation::kMapped:
        DoPrepareSignalDataMappingMode(index, leads);
        break;
    case Preparation::kEDF:
        DoPrepareSignalEDF(index, leads);
        break;
    case Preparation::kPeriodic:
        DoPrepareSignalDataPeriodical(index, leads);
        break;
    }
}

void DoPrepareSignalDataDirectMode(int index, double* leads) {
    double eight[kFrameChannels];
    ReadLeads(static_cast<uint64_t>(index), kDirectSignals, eight);
    LeadSetFromLeads(eight, leads);
}

void DoPrepareSignalDataAHA(int index, double* leads) {
    leads[0] = SampleAt(GetECGSignal(0), static_cast<uint64_t>(index));
    leads[1] = SampleAt(GetECGSignal(1), static_cast<uint64_t>(index));
}

void DoPrepareSignalDataMappingMode(int index, double* leads) {
    double eight[kFrameChannels];
    ReadLeads(static_cast<uint64_t>(index), g_ECGMappingLead, eight);
    LeadSetFromLeads(eight, leads);
}

// Unlike the frame, the preview shows lead II's own signal.  No limb lead is derived.
void DoPrepareSignalEDF(int index, double* leads) {
    leads[0] = SampleAt(MappedSignal(ECG_LEAD_I), static_cast<uint64_t>(index));
    leads[1] = SampleAt(MappedSignal(ECG_LEAD_II), static_cast<uint64_t>(index));
    const int limit = KindOf(g_WaveformType).leads;
    for (int lead = kFirstChestLead; lead < limit; ++lead) {
        leads[kFirstChestPlace + lead - kFirstChestLead] =
            SampleAt(MappedSignal(lead), static_cast<uint64_t>(index));
    }
}

void DoPrepareSignalDataPeriodical(int index, double* leads) {
    double eight[kFrameChannels];
    EvaluateLeads(index, kPreviewCell, eight);
    LeadSetFromLeads(eight, leads);
}

void LeadSetFromLeads(const double* eight, double* leads) {
    leads[0] = eight[ECG_LEAD_I];
    leads[1] = eight[ECG_LEAD_II];
    DeriveLimbLeads(leads);
    std::copy(eight + kFirstChestLead, eight + kFrameChannels, leads + kFirstChestPlace);
}
