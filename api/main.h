#pragma once

// The exported functions of api/ravo.h, the connection's excepted (api/Connection.h): each takes
// the API lock, checks and corrects its arguments, forwards to one function of the engine or the
// device and converts the result.  No exception leaves any of them.

// Rounds a frequency to 0.01 Hz, half away from zero, and holds it to 0..100 Hz.  Not a number
// becomes 0.
void ValidateFrequency(double& frequency);

// Holds an amplitude to -10..10 mV.  Not a number becomes 0.
void ValidateAmplitude(double& amplitude);

// "1.2.3.4" as one byte each, the first the highest; 0 for null.
unsigned int ConvertVersion(const char* version);
