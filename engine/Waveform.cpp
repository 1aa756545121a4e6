#include "engine/Waveform.h"

#include "engine/MaterialLoad.h"
#include "engine/Prepare.h"
#include "engine/Record.h"
#include "platform/LastError.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

double g_fPeriodFrequency = 0.0;
double g_fPeriodAmplitude[8] = {};
int32_t g_nPeriodPulseWidth = 0;

namespace {

constexpr int kSignals = kFrameChannels;
constexpr double kTwoPi = 6.283185307179586;

// The buffer of a periodic waveform holds no data but one cell for each of the two threads that
// evaluate it, so that neither writes what the other one does.
constexpr uint64_t kPeriodicSamples = 2;
constexpr uint64_t kPreviewCell = 0;
constexpr uint64_t kPlayCell = 1;
constexpr uint32_t kPeriodicRate = 1000;

constexpr uint32_t kCalibrationRate = 360;
constexpr uint64_t kCalibrationSamples = 3600;

constexpr uint32_t kStaircaseRate = 1000;
constexpr uint64_t kStaircaseStep = uint64_t{5} * kStaircaseRate;
constexpr double kStaircaseLevels[] = {0.0, 0.2, 1.0, 2.0, 5.0, -0.2, -1.0, -2.0, -5.0};

constexpr uint32_t kFixedVoltageRate = 1000;
constexpr uint64_t kFixedVoltageSamples = 1000;

// ---- Evaluation --------------------------------------------------------------------------------

// Whole periods that have passed.  The count is a 32-bit integer; a play long enough to leave it
// stays at its last value.
double WholePeriods(double periods) {
    if (std::isnan(periods)) {
        return 0.0;
    }
    constexpr double kLast = std::numeric_limits<int32_t>::max();
    return std::trunc(std::clamp(periods, -kLast, kLast));
}

double PeriodOf(double frequency) {
    return frequency == 0.0 ? std::numeric_limits<double>::infinity() : 1.0 / frequency;
}

double TimeIntoPeriod(double time, double period) {
    return std::isinf(period) ? time : time - WholePeriods(time / period) * period;
}

// The shapes take the time into the period.  The triangle's corners belong to the segment behind
// them, the edges of the square and of the pulses to the one before.
double Triangle(double time, double period, double amplitude) {
    const double slope = 2.0 * amplitude / period;
    if (time < period * 0.25) {
        return slope * time;
    }
    if (time < period * 0.75) {
        return amplitude - time * slope;
    }
    return time * slope - 2.0 * amplitude;
}

double Square(double time, double period, double amplitude) {
    return time <= period * 0.5 ? amplitude * 0.5 : -(amplitude * 0.5);
}

double RectanglePulse(double time, double amplitude) {
    const bool high = g_nPeriodPulseWidth > 0 && time <= g_nPeriodPulseWidth / 1000.0;
    return high ? amplitude * 0.5 : -(amplitude * 0.5);
}

double TrianglePulse(double time, double amplitude) {
    const double half = g_nPeriodPulseWidth / 2000.0;
    if (g_nPeriodPulseWidth > 0 && time <= half) {
        return time / half * amplitude - amplitude * 0.5;
    }
    if (g_nPeriodPulseWidth > 0 && time <= g_nPeriodPulseWidth / 1000.0) {
        return amplitude * 0.5 - (time - half) / half * amplitude;
    }
    return -(amplitude * 0.5);
}

double PeriodicVoltage(double time, double phase, double period, double amplitude) {
    switch (g_WaveformType) {
    case WAVEFORM_TYPE_SINE:
        return amplitude * 0.5 * std::sin(phase);
    case WAVEFORM_TYPE_TRIANGLE:
        return Triangle(time, period, amplitude);
    case WAVEFORM_TYPE_RECTANGLE_PULSE:
        return RectanglePulse(time, amplitude);
    case WAVEFORM_TYPE_SQUARE:
        return Square(time, period, amplitude);
    case WAVEFORM_TYPE_TRIANGLE_PULSE:
        return TrianglePulse(time, amplitude);
    default:
        return 0.0;
    }
}

double FiniteOrZero(double value) {
    return std::isfinite(value) ? value : 0.0;
}

// Evaluates all leads at a sample into `eight` and into one cell of every array.
void EvaluateLeads(int sampleIndex, uint64_t cell, double* eight) {
    for (int lead = 0; lead < kSignals; ++lead) {
        eight[lead] = CalculatePeriodicalVoltage(sampleIndex, lead).first;
        if (GetECGSignal(lead) != nullptr && cell < g_nSampleCount) {
            StoreShared(g_pECGData[lead][cell], eight[lead]);
        }
    }
}

// ---- Loading -----------------------------------------------------------------------------------

// The kind of material of a shape; WAVEFORM_TYPE_NONE when there is no such shape.
WaveformType MaterialOfShape(WAVEFORM_TYPE shape) {
    switch (shape) {
    case WAVEFORM_SINE:
        return WAVEFORM_TYPE_SINE;
    case WAVEFORM_TRIANGLE:
        return WAVEFORM_TYPE_TRIANGLE;
    case WAVEFORM_SQUARE:
        return WAVEFORM_TYPE_SQUARE;
    }
    return WAVEFORM_TYPE_NONE;
}

int ReallocateFor(int32_t type, uint64_t samples, uint32_t rate) {
    g_WaveformType = type;
    g_nSampleCount = samples;
    g_nSampleRate = rate;
    return ReallocateECGDataBuffer(kSignals);
}

int LoadPeriodic(int32_t type, int pulseWidth, double frequency, const double* amplitudes) {
    if (ReallocateFor(type, kPeriodicSamples, kPeriodicRate) == 0) {
        return 0;
    }
    g_fPeriodFrequency = frequency;
    std::copy_n(amplitudes, kSignals, g_fPeriodAmplitude);
    g_nPeriodPulseWidth = pulseWidth;
    return 1;
}

int LoadPeriodicOnAllLeads(int32_t type, int pulseWidth, double frequency, double amplitude) {
    double amplitudes[kSignals];
    std::fill(std::begin(amplitudes), std::end(amplitudes), amplitude);
    return LoadPeriodic(type, pulseWidth, frequency, amplitudes);
}

void CopyFirstSignalToOthers() {
    for (int signal = 1; signal < kSignals; ++signal) {
        std::copy_n(g_pECGData[0], g_nSampleCount, g_pECGData[signal]);
    }
}

} // namespace

// ---- Periodic waveforms ------------------------------------------------------------------------

int LoadWaveform(WAVEFORM_TYPE type, double frequency, double amplitude) {
    const CMaterialLoad load;
    const WaveformType material = MaterialOfShape(type);
    if (material == WAVEFORM_TYPE_NONE) {
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
    return LoadPeriodic(material == WAVEFORM_TYPE_NONE ? g_WaveformType : material, 0, frequency,
                        amplitudes);
}

int LoadWaveformRectanglePulse(int pulseWidth, double frequency, double amplitude) {
    const CMaterialLoad load;
    return LoadPeriodicOnAllLeads(WAVEFORM_TYPE_RECTANGLE_PULSE, pulseWidth, frequency, amplitude);
}

int LoadWaveformTrianglePulse(int pulseWidth, double frequency, double amplitude) {
    const CMaterialLoad load;
    return LoadPeriodicOnAllLeads(WAVEFORM_TYPE_TRIANGLE_PULSE, pulseWidth, frequency, amplitude);
}

std::pair<double, double> CalculatePeriodicalVoltage(int sampleIndex, int signal) {
    if (signal < 0 || signal >= kSignals) {
        return {0.0, 0.0};
    }
    const double period = PeriodOf(g_fPeriodFrequency);
    const double time = TimeIntoPeriod(static_cast<double>(sampleIndex) / g_nSampleRate, period);
    const double phase = time * kTwoPi * g_fPeriodFrequency;
    const double voltage = PeriodicVoltage(time, phase, period, g_fPeriodAmplitude[signal]);
    return {FiniteOrZero(voltage), FiniteOrZero(phase)};
}

// The position counts on past what a 32-bit index holds and continues from its negative end; the
// shapes are evaluated there like anywhere else.
void DoPrepareRawDataPeriodical(int* frame) {
    double eight[kSignals];
    EvaluateLeads(static_cast<int>(g_nSampleCurrent), kPlayCell, eight);
    FrameFromLeads(eight, frame);
}

void DoPrepareSignalDataPeriodical(int index, double* leads) {
    double eight[kSignals];
    EvaluateLeads(index, kPreviewCell, eight);
    LeadSetFromLeads(eight, leads);
}

// ---- Tabulated signals -------------------------------------------------------------------------

int LoadWaveformCalibrationMode(double frequency, double amplitude) {
    const CMaterialLoad load;
    if (ReallocateFor(WAVEFORM_TYPE_TABLE, kCalibrationSamples, kCalibrationRate) == 0) {
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
    if (ReallocateFor(WAVEFORM_TYPE_TABLE, kSamples, kStaircaseRate) == 0) {
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
    if (ReallocateFor(WAVEFORM_TYPE_TABLE, kFixedVoltageSamples, kFixedVoltageRate) == 0) {
        return 0;
    }
    std::fill_n(g_pECGData[0], g_nSampleCount, voltage);
    CopyFirstSignalToOthers();
    return 1;
}
