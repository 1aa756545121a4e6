#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The properties of the emulated simulator, and how it behaves or misbehaves.
namespace emulator {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr std::size_t kChannels = 8;
constexpr std::size_t kPacketBytes = 64;
constexpr std::size_t kBufferPackets = 50;
constexpr std::size_t kBufferBytes = kPacketBytes * kBufferPackets;

// One frame as the outputs carry it: a code for each of the channels I, II, V6, V5, V4, V3, V2, V1.
using Codes = std::array<std::uint16_t, kChannels>;

using FlashTable = std::array<std::uint8_t, 64>;

enum class Unit {
    kTwelveBit,
    kSixteenBit,
    kLegacy, // 12 bits, older firmware: no flash table, another correction of the sample clock
};

// What happens to the bytes on the line.
enum class Line {
    kWorking,
    kFull, // accepts nothing, the port is unwritable at once; the simulator still sends
    kDead, // accepts and sends nothing; the port stays writable until its buffers are full
    kMute, // accepts everything and sends nothing
};

// The largest accepted clock error.
constexpr double kMostClockPpm = 100'000.0;
constexpr bool IsClockPpm(double ppm) {
    return ppm >= -kMostClockPpm && ppm <= kMostClockPpm;
}

// How replies to commands are corrupted.  The records of the stream ('N', 'X', 'S') are not
// touched.
struct ReplyFault {
    int replies = -1; // the number of replies to corrupt; -1 for all
    std::size_t truncateTo = SIZE_MAX;
    Milliseconds late{0};
    std::size_t pieceBytes = 0; // 0 for a reply in one piece
    Milliseconds pieceGap{0};
    Bytes garbageBefore;
};

// Everything that may be changed while the simulator runs.
struct Behaviour {
    Bytes identity = {'R', 'V', '2', '0', 0};
    FlashTable flash{};
    Bytes legacyReply; // the answer to the legacy model request; empty for no answer
    std::uint8_t linkId = 0x5A;

    double speed =
        1.0; // of the sample clock; 0 plays as fast as the host delivers, never underruns
    double clockPpm = 0.0; // by how much the sample clock is too fast, in millionths
    ReplyFault replies;
    Line line = Line::kWorking;
    std::size_t takesBytes = SIZE_MAX; // after this many more bytes the line is full
    std::size_t losesBytes = 0;        // this many bytes are lost on their way, unnoticed
    bool asks = true;                  // false: no further buffer is requested
    Milliseconds asksLate{0};          // how long requests and delay reports are held back
    bool refusesStart = false;         // true: start commands are ignored
    int statusEvery = 0;               // a status record before every n-th request; 0 for none
    bool echoes = false;      // the port starts as a fresh one does, echoing until configured
    bool keepsUnsent = false; // bytes sent while the port is closed arrive after the next opening
};

struct Settings {
    Unit unit = Unit::kSixteenBit;
    int port = 0; // the N of /dev/ttyACMN
    std::string deviceDirectory = "/dev";
    bool isPresent = true; // false: it appears when Return is called
    // What the simulator can hold.  Less than one buffer counts as one.
    std::size_t bufferBytes = 2 * kBufferBytes;
    std::size_t keepFrames = 16'000'000; // frames kept in memory; later ones only reach the sink
    bool keepBytes = false;              // keep every received byte too
    Behaviour behaviour;

    // A simulator of this kind on /dev/ttyACM<port> with plausible identity bytes.
    static Settings Of(Unit unit, int port = 0);
};

} // namespace emulator
