#include "engine/loaders/LoadWaveform.h"

#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "engine/Waveform.h"
#include "platform/LastError.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr uint32_t kPeriodicRate = 1000;

constexpr uint32_t kCalibrationRate = 360;
constexpr uint64_t kCalibrationSamples = 3600;

constexpr uint32_t kStaircaseRate = 1000;
constexpr uint64_t kStaircaseStep = uint64_t{5} * kStaircaseRate;
constexpr double kStaircaseLevels[] = {0.0, 0.2, 1.0, 2.0, 5.0, -0.2, -1.0, -2.0, -5.0};

constexpr uint32_t kFixedVoltageRate = 1000;
constexpr uint64_t kFixedVoltageSamples = 1000;

// The kind of material of a shape; MATERIAL_NONE when there is no such shape.
WaveformType MaterialOfShape(WAVEFORM_TYPE shape) {
    switch (shape) {
    case WAVEFORM_SINE:
        return MATERIAL_SINE;
    case WAVEFORM_TRIANGLE:
        return MATERIAL_TRIANGLE;
    case WAVEFORM_SQUARE:
        return MATERIAL_SQUARE;
    }
    return MATERIAL_NONE;
}

int ReallocateFor(int32_t type, uint64_t samples, uint32_t rate) {
    g_WaveformType = type;
    g_nSampleCount = samples;
    g_nSampleRate = rate;
    return ReallocateECGDataBuffer(kOutputLeads);
}

int LoadPeriodic(int32_t type, int pulseWidth, double frequency, const double* amplitudes) {
    if (ReallocateFor(type, kPeriodicSamples, kPeriodicRate) == 0) {
        return 0;
    }
    g_fPeriodFrequency = frequency;
    std::copy_n(amplitudes, kOutputLeads, g_fPeriodAmplitude);
    g_nPeriodPulseWidth = pulseWidth;
    return 1;
}

int LoadPeriodicOnAllLeads(int32_t type, int pulseWidth, double frequency, double amplitude) {
    double amplitudes[kOutputLeads];
    std::fill(std::begin(amplitudes), std::end(amplitudes), amplitude);
    return LoadPeriodic(type, pulseWidth, frequency, amplitudes);
}

void CopyFirstSignalToOthers() {
    for (int signal = 1; signal < kOutputLeads; ++signal) {
        std::copy_n(g_pECGData[0], g_nSampleCount, g_pECGData[signal]);
    }
}

} // namespace

// ---- Periodic waveforms ------------------------------------------------------------------------

int LoadWaveform(WAVEFORM_TYPE type, double frequency, double amplitude) {
    const CMaterialLoad load;
    const WaveformType material = MaterialOfShape(type);
    if (material == MATERIAL_NONE) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "there is no waveform of type %d",
                       static_cast<int>(type));
        return 0;
    }
    return LoadPeriodicOnAllLeads(material, 0, frequency, amplitude);
}

int LoadWaveformEx(WAVEFORM_TYPE type, double frequency, double* amplitudes) {
    const CMaterialLoad load;
    if (amplitudes == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no amplitudes are given");
        return 0;
    }
    const WaveformType material = MaterialOfShape(type);
    return LoadPeriodic(material == MATERIAL_NONE ? g_WaveformType : material, 0, frequency,
                        amplitudes);
}

int LoadWaveformRectanglePulse(int pulseWidth, double frequency, double amplitude) {
    const CMaterialLoad load;
    return LoadPeriodicOnAllLeads(MATERIAL_RECTANGLE_PULSE, pulseWidth, frequency, amplitude);
}

int LoadWaveformTrianglePulse(int pulseWidth, double frequency, double amplitude) {
    const CMaterialLoad load;
    return LoadPeriodicOnAllLeads(MATERIAL_TRIANGLE_PULSE, pulseWidth, frequency, amplitude);
}

// ---- Tabulated signals -------------------------------------------------------------------------

int LoadWaveformCalibrationMode(double frequency, double amplitude) {
    const CMaterialLoad load;
    if (ReallocateFor(MATERIAL_TABLE, kCalibrationSamples, kCalibrationRate) == 0) {
        return 0;
    }
    const double period = PeriodOf(frequency);
    for (uint64_t n = 0; n < kCalibrationSamples; ++n) {
        const double time = static_cast<double>(n) / kCalibrationRate;
        const bool high = TimeIntoPeriod(time, period) > period * 0.5;
        g_pECGData[0][n] = high ? amplitude : 0.0;
    }
    CopyFirstSignalToOthers();
    return 1;
}

int LoadWaveformAutoCalibrationMode() {
    const CMaterialLoad load;
    constexpr uint64_t kSamples = std::size(kStaircaseLevels) * kStaircaseStep;
    if (ReallocateFor(MATERIAL_TABLE, kSamples, kStaircaseRate) == 0) {
        return 0;
    }
    double* step = g_pECGData[0];
    for (const double level : kStaircaseLevels) {
        step = std::fill_n(step, kStaircaseStep, level);
    }
    CopyFirstSignalToOthers();
    return 1;
}

int LoadWaveformFixedVoltage(double voltage) {
    const CMaterialLoad load;
    if (ReallocateFor(MATERIAL_TABLE, kFixedVoltageSamples, kFixedVoltageRate) == 0) {
        return 0;
    }
    std::fill_n(g_pECGData[0], g_nSampleCount, voltage);
    CopyFirstSignalToOthers();
    return 1;
}
