#pragma once

// Periodic waveforms, evaluated sample by sample while they play.
//
// Frequencies are hertz, amplitudes millivolts peak to peak, pulse widths milliseconds; none of
// them is checked here.

#include <cstdint>
#include <utility>

// Parameters of the periodic waveforms; one amplitude per output lead I, II, V1 to V6.
extern double g_fPeriodFrequency;
extern double g_fPeriodAmplitude[8];
extern int32_t g_nPeriodPulseWidth;

// The buffer of a periodic waveform holds no data but one cell for each of the two threads that
// evaluate it, so that neither writes to the other's.
constexpr uint64_t kPeriodicSamples = 2;
constexpr uint64_t kPreviewCell = 0;
constexpr uint64_t kPlayCell = 1;

// The voltage of the loaded periodic waveform for a lead at a sample, and the phase in radians that
// belongs to it.  Always a finite number.  A frequency of 0 gives one endless period, a pulse width
// of 0 or less no pulse.
std::pair<double, double> CalculatePeriodicalVoltage(int sampleIndex, int signal);

// The length of a period in seconds; infinite for a frequency of 0.
double PeriodOf(double frequency);

// The seconds from the beginning of the period that contains `time`.
double TimeIntoPeriod(double time, double period);
