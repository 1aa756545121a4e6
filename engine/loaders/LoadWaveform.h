#pragma once

// Test signals that the library computes itself: periodic waveforms, whose parameters are stored,
// and tabulated ones, which are written into the sample buffer.
//
// Frequencies are hertz, amplitudes millivolts peak to peak, pulse widths milliseconds; none of
// them are checked here.

#include "ravo/material.h"

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
