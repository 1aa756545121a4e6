#pragma once

#include "ravo/device.h"

#include <cstdint>

// The command protocol of the simulator, streaming excepted.  Commands and replies are plain bytes
// without frame, length or checksum.  Failure is `false` or a short count.
//
// Nothing here takes a lock; the connect thread and the exported functions exclude each other.

// The flash table as last read from the device, or as about to be written to it:
//   0-2 header 12 55 AA, 3 direction marker, 6-7 model letters, 8-10 the numbers A, B and C,
//   11-12 serial number (high byte first), 13-15 hardware values 3, 1 and 2, 48-63 manufacturer's.
extern unsigned char g_DeviceHWInfo[64];

extern int32_t g_bIsISPSupported;  // the device has a flash table
extern int32_t g_nDACBit;          // 1 for a 16-bit converter, 0 for 12 bits
extern char g_strHWInfo[32];       // full serial number
extern char g_strSerialNumber[32]; // short serial number; it names the calibration file

// Sends a request, waits 10 ms and, unless no reply is wanted, reads a reply of exactly replyLength
// bytes.
bool SendCommand(unsigned char* request, int requestLength, unsigned char* reply, int replyLength);

// The reply to the identity probe from the device on the open port.
struct IdentityAnswer {
    bool isAsked; // the device accepted the probe
    int length;   // bytes received, at most 5
    unsigned char bytes[5];
    bool isTheSimulators;
};
IdentityAnswer AskIdentity();

// Whether the reply is the simulator's.
bool IsTargetDevice();

// Asks a unit without flash table for its model text: 8 characters of name and 9 of serial number,
// not terminated, padded with blanks.  A device that sends nothing succeeds with zeros instead.
bool DoGetModelInfo(MODEL_INFORMATION* information);

// Both return what is already known, without asking the device.  A serial number too long for the
// first leaves its field as it was; the second needs a flash table.
bool GetModelInfo(MODEL_INFORMATION* information);
bool GetModelInfo(MODEL_INFORMATION_EX* information);
bool GetHWInfo(HW_INFORMATION_EX* information);

// Reads the flash table and forms the serial numbers.  False for a unit without flash table, whose
// short serial number then comes from its model text.
bool DoReadDeviceHWInfo();

// The same, and sets g_bIsISPSupported (its result) and g_nDACBit.
bool ReadDeviceHWInfo();

// Writes the flash table as it is in memory.
bool DoUpdateFlashTable();

// Puts both records into the flash table, writes it and reads it back.
bool UpdateDeviceInformation(MODEL_INFORMATION_EX* model, HW_INFORMATION_EX* hardware);

// The manufacturer's bytes of the flash table, at most 16.  Reading uses only the copy in memory;
// writing writes the whole table.
bool ReadMfgInfo(unsigned char* buffer, unsigned long size);
bool WriteMfgInfo(const unsigned char* data, unsigned long size);

// Tells the device to end the output; returns the number of bytes written.
int NotifyToStopOutputing();
// Tells the device that the host is closing the session.
bool APClose();
// Asks for the link id; 0 when the exchange fails.
unsigned char GetLinkID();
