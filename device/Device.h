#pragma once

#include "device/Lock.h"

#include <cstdint>

// The one serial port through which the process exchanges data with the simulator: its lock file,
// its handle and transfers with time-outs.  device/Search.h opens it.
//
// Callers need no lock.  Any thread may close the port at any moment; a transfer that is under way
// then fails or ends at its time-out.  A signal never cuts a transfer or a wait short.

extern int64_t g_hDevice;              // the open port, -1 when closed
extern uint32_t g_nDeviceReadTimeout;  // milliseconds for one whole DeviceReadData
extern uint32_t g_nDeviceWriteTimeout; // milliseconds for one whole DeviceWriteData
extern char g_szDevicePath[512];       // the open port once it is known to be the simulator

// Puts a port that was just opened into use; -1 when it could not be opened.
void DeviceUse(int descriptor);

// Closes the port and releases its lock.  Does nothing when the port is closed.  Output that is
// stuck on the line is discarded, if the lock was held: a close would wait 30 s for it.
void DeviceClose();

// The same, unless the port has been closed since DeviceOpening gave that number: for a thread that
// decides late, when the port may have been reopened in the meantime.
void DeviceCloseOpening(uint32_t opening);
uint32_t DeviceOpening();

// Records which port is the simulator's, as the last step of opening it.
void DeviceSetPath(const char* path);

// Whether the system still lists the open port.
bool DeviceIsAlive();
// Whether the system has hung the open port up, after which no byte passes until it is opened
// again: its carrier was lost, or it was unplugged and plugged in again too fast to be missing in
// the list.
bool DeviceIsHungUp();
bool DeviceIsConnected();
// Whether the open port is known to be the simulator's.
bool DeviceIsIdentified();
bool DeviceCheckPath(const char* path);

// The result of aio_cancel.
int DeviceCancelIO();

// Sets both time-outs in milliseconds, then waits up to the first until the port is readable and up
// to the second until it is writable.  Returns the result of the second wait: 1 when writable, 0 on
// time-out, -1 on failure.
int DeviceSetTimeoutSetting(unsigned int readTimeout, unsigned int writeTimeout);

// Returns the bytes read: all of them, or those that came before the time-out or a failure; -1 when
// the time-out passed without any; 0 when the port is closed.
int DeviceReadData(unsigned char* buffer, int length);

// Writes in pieces of at most 64 bytes.  Returns the bytes written: all of them, those before a
// failure, but 0 after a time-out, even when some went out.  The last argument is ignored.
int DeviceWriteData(unsigned char* buffer, int length, int ignored);
