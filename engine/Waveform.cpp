#include "engine/Waveform.h"

#include "engine/Record.h"

#include <algorithm>
#include <cmath>
#include <limits>

double g_fPeriodFrequency = 0.0;
double g_fPeriodAmplitude[8] = {};
int32_t g_nPeriodPulseWidth = 0;

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Whole periods that have passed.  The count is a 32-bit integer; a play that exceeds its range
// keeps its last value.
double WholePeriods(double periods) {
    if (std::isnan(periods)) {
        return 0.0;
    }
    constexpr double kLast = std::numeric_limits<int32_t>::max();
    return std::trunc(std::clamp(periods, -kLast, kLast));
}

// The shapes take the time since the period began.  A corner of the triangle belongs to the segment
// after it, an edge of the square or of a pulse to the one before.
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
    case MATERIAL_SINE:
        return amplitude * 0.5 * std::sin(phase);
    case MATERIAL_TRIANGLE:
        return Triangle(time, period, amplitude);
    case MATERIAL_RECTANGLE_PULSE:
        return RectanglePulse(time, amplitude);
    case MATERIAL_SQUARE:
        return Square(time, period, amplitude);
    case MATERIAL_TRIANGLE_PULSE:
        return TrianglePulse(time, amplitude);
    default:
        return 0.0;
    }
}

double FiniteOrZero(double value) {
    return std::isfinite(value) ? value : 0.0;
}

} // namespace

double PeriodOf(double frequency) {
    return frequency == 0.0 ? std::numeric_limits<double>::infinity() : 1.0 / frequency;
}

double TimeIntoPeriod(double time, double period) {
    return std::isinf(period) ? time : time - WholePeriods(time / period) * period;
}

std::pair<double, double> CalculatePeriodicalVoltage(int sampleIndex, int signal) {
    if (signal < 0 || signal >= kOutputLeads) {
        return {0.0, 0.0};
    }
    const double period = PeriodOf(g_fPeriodFrequency);
    const double time = TimeIntoPeriod(static_cast<double>(sampleIndex) / g_nSampleRate, period);
    const double phase = time * kTwoPi * g_fPeriodFrequency;
    const double voltage = PeriodicVoltage(time, phase, period, g_fPeriodAmplitude[signal]);
    return {FiniteOrZero(voltage), FiniteOrZero(phase)};
}
