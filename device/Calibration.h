#pragma once

#include "platform/Event.h"

#include <cstdint>
#include <cstdio>

// The calibration of the individual unit.  Units with a 12-bit converter are measured: a file on
// the host gives the error of every code of every channel.  Units with 16 bits are not corrected.

constexpr int kDACErrorChannels = 8;
constexpr int kDACErrorCodes = 4096;

// The error, in codes, of channel c at 12-bit code q, at index c x 4096 + q.
extern double g_DACError[kDACErrorChannels * kDACErrorCodes];
extern int32_t g_bDACAvailable; // a calibration file was loaded for the connected unit

// Reserved for a compensation that the library makes by itself; nothing uses them.
extern unsigned char g_nDACRawError[131072];
extern int32_t g_iDACCounter;
extern void (*g_DACCallback)(int*);
extern unsigned long g_hDACReadThread;
extern CManualResetEvent g_hStopDACReadEvent;

// The calibration file of the connected unit, in a static buffer of the calling thread.
const char* GetDACFilePath();

// Loads the connected unit's calibration file, if it has one, and sets g_bDACAvailable.  Called
// while no output runs, since the output threads read the table without a lock.
void LoadDACFile();

// Reads errors into the table: line L for code L, on it the channels in order, between commas and
// blanks.  Entries that the text does not reach keep their values; numbers that would lie outside
// the table are dropped.
void ReadDACErrors(FILE* file);

// Drives all eight channels to one 12-bit code.  Returns the bytes written, 64 on success.
int DACSendStaticValue(int code);

// Not implemented; false.
bool DACCompensation(void (*callback)(int*));
