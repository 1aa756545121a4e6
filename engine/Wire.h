#pragma once

// The bytes on the wire while output runs: the start command, frames as bit planes, the packet
// buffer, and the simulator's responses.
//
// A buffer is fifty packets of 64 bytes: 0x01, a sequence number, two zeros, then the frames, as
// many as fit, then zeros.  Every buffer carries the marker 'E' at byte 322.

#include <cstddef>
#include <cstdint>

constexpr size_t kPacketSize = 64;
constexpr size_t kPacketsPerBuffer = 50;
constexpr size_t kPacketBufferSize = kPacketSize * kPacketsPerBuffer;

extern uint8_t g_nSendPacket[kPacketBufferSize];

// Bytes of a frame as bit planes, most significant plane first; channel n in bit n of each byte.
constexpr size_t k16BitFrameSize = 16;
constexpr size_t k12BitFrameSize = 12;

// Frames per packet, as the connected unit's converter expects them: 3 or 5.
size_t FramesPerPacket();

// Writes the bit planes of eight codes.  Code bits above the frame's width are dropped.
void Pack16BitFrame(const int* frame, unsigned char* out);
void Pack12BitFrame(const int* frame, unsigned char* out);

// Fills the buffer from the play position on, advances the position and writes the buffer to the
// device.  `sequence` runs on from buffer to buffer.  `more` becomes 0 where the material ends;
// from there on the last frame is repeated, except that the rest of the packet in which the
// material ended stays zero.  Returns the bytes written.
int SendPacket(unsigned char& sequence, int& more);

// The frames of an output that plays its material once, as far as they have not been sent yet.
struct FRAMES_ONCE {
    uint64_t Left;
    int Last[8]; // the frame sent last
};

// The same for such an output: regardless of looping, nothing follows its last frame but that frame
// itself, in this buffer and in every further one.
int SendPacketOnce(unsigned char& sequence, FRAMES_ONCE& frames);

// Reload value of the simulator's 16-bit sample clock for a kind of material and its rate.  The
// clock counts at 6 MHz; firmware with in-system programming reloads it later than the older one.
// The value for a rate that the clock cannot keep is limited to 0 or 65535.
unsigned int SampleClockReload(int32_t waveformType, uint32_t rate, bool isISPSupported);

// Frames per second that the simulator's clock makes of a reload value.
double SampleClockRate(unsigned int reload, bool isISPSupported);

// The output range as the start command carries it: whole millivolts, 0 to 255.
unsigned int OutputRangeByte(double range);

// The command that starts the output: a zero, the clock's reload value, high byte first, the range.
constexpr int kStartCommandSize = 4;
void FormStartCommand(unsigned int reload, double range, unsigned char* command);

// One response of the simulator:
//
//   'N' and one byte         it wants the next packet buffer
//   'X' and two bytes        the outputs stood still: (100 x first + second) x 5 ms
//   'S' and fourteen bytes   its status
struct RESPONSE {
    enum Kind { kRequest, kDelay, kOther } kind;
    int delay; // milliseconds
    int size;  // bytes of the read that it consumes
};

// The first response of a read of `length` bytes.  A request cut short by the end of the read
// counts as whole, so that its size can exceed the length; a delay report or a status record cut
// short, and anything unknown, takes the rest of the read with it.
RESPONSE ParseResponse(const unsigned char* data, int length);
