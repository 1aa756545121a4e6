#pragma once

#include <cstddef>
#include <cstdint>

// The commands that a host sends, distinguished by their first bytes alone: they carry no framing,
// length or checksum.
namespace emulator {

enum class Command {
    kIncomplete, // more bytes are needed to decide
    kUnknown,    // one byte that begins no command
    kIdentity,
    kLegacyModel,
    kReadFlash,
    kWriteFlash,
    kStop,
    kClose,
    kLinkId,
    kStaticValue,
    kStart,
    kPacket,
};

struct RecognisedCommand {
    Command command = Command::kIncomplete;
    std::size_t length = 0; // in bytes; 0 while incomplete
};

// The command with which the bytes begin.
RecognisedCommand Recognise(const std::uint8_t* bytes, std::size_t count);

// A short name for reports.
const char* NameOf(Command command);

} // namespace emulator
