#pragma once

// The exported functions of api/ravo.h, the connection's excepted (api/Connection.h): each takes
// the API lock, checks and corrects its arguments, forwards to one function of the engine or the
// device and converts the result.  No exception leaves any of them.

// Rounds a frequency to 0.01 Hz, half away from zero, and limits it to 0..100 Hz.  Not a number
// becomes 0.
void ValidateFrequency(double& frequency);

// Limits an amplitude to -10..10 mV.  Not a number becomes 0.
void ValidateAmplitude(double& amplitude);

// The bytes of "1.2.3.4", the first number in the highest byte; 0 for null.
unsigned int ConvertVersion(const char* version);
