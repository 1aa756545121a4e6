#pragma once

// Test signals that the library computes itself: periodic waveforms, evaluated sample by sample
// while they play, and tabulated ones, written into the sample buffer once.
//
// Frequencies are hertz, amplitudes millivolts peak to peak, pulse widths milliseconds; none of
// them is checked here.

#include "engine/Material.h"

#include <cstdint>
#include <utility>

// Parameters of the periodic waveforms; one amplitude per output lead I, II, V1 to V6.
extern double g_fPeriodFrequency;
extern double g_fPeriodAmplitude[8];
extern int32_t g_nPeriodPulseWidth;

// Every loader stops output, replaces the material under g_CriticalSection and returns 1, or 0
// when memory is refused.
//
// LoadWaveform returns 0 for an unknown shape, before anything but the output has changed.
// LoadWaveformEx takes an amplitude for each of the eight leads and keeps the previous kind of
// material for an unknown shape.
int LoadWaveform(WAVEFORM_TYPE type, double frequency, double amplitude);
int LoadWaveformEx(WAVEFORM_TYPE type, double frequency, double* amplitudes);
int LoadWaveformRectanglePulse(int pulseWidth, double frequency, double amplitude);
int LoadWaveformTrianglePulse(int pulseWidth, double frequency, double amplitude);

// Ten seconds of a square wave between 0 and `amplitude`, at 0 for the first half of each period.
int LoadWaveformCalibrationMode(double frequency, double amplitude);

// The staircase 0, 0.2, 1, 2, 5, -0.2, -1, -2, -5 mV, five seconds each.
int LoadWaveformAutoCalibrationMode();

// One second of a constant voltage.
int LoadWaveformFixedVoltage(double voltage);

// The voltage of the loaded periodic waveform for a lead at a sample, and the phase in radians
// that belongs to it.  Always a finite number.  A frequency of 0 is one period without end, a
// pulse width of 0 or less is no pulse.
std::pair<double, double> CalculatePeriodicalVoltage(int sampleIndex, int signal);

// The periodic waveforms' frame of g_nSampleCurrent and lead set of `index`.
void DoPrepareRawDataPeriodical(int* frame);
void DoPrepareSignalDataPeriodical(int index, double* leads);
