#include "tools/emulator/Commands.h"

#include "tools/emulator/Settings.h"

#include <algorithm>
#include <array>

namespace emulator {
namespace {

constexpr std::size_t kReadRequestBytes = 5;
constexpr std::size_t kStartBytes = 4;
constexpr std::size_t kLinkIdBytes = 3;

constexpr RecognisedCommand kNotYet{Command::kIncomplete, 0};
constexpr RecognisedCommand kNone{Command::kUnknown, 1};

RecognisedCommand Whole(Command command, std::size_t length, std::size_t count) {
    return count < length ? kNotYet : RecognisedCommand{command, length};
}

// Whether the bytes present agree with a fixed beginning, as far as both reach.
template <std::size_t N>
bool Agrees(const std::array<std::uint8_t, N>& beginning, const std::uint8_t* bytes,
            std::size_t count) {
    return std::equal(bytes, bytes + std::min(count, N), beginning.begin());
}

// A read request and a table to be written begin alike.  The fourth byte distinguishes them, except
// that a table may be written back with the marker that it was read with: so a whole table at once
// is always a write.  A host that asks waits for the answer, so nothing follows a request.
RecognisedCommand RecogniseFlash(const std::uint8_t* bytes, std::size_t count) {
    constexpr std::array<std::uint8_t, 3> kHeader = {0x12, 0x55, 0xAA};
    constexpr std::uint8_t kReadMarker = 0x00;
    if (!Agrees(kHeader, bytes, count)) {
        return kNone;
    }
    const bool mayBeRequest = count > 3 && count < kPacketBytes && bytes[3] == kReadMarker;
    return mayBeRequest ? Whole(Command::kReadFlash, kReadRequestBytes, count)
                        : Whole(Command::kWriteFlash, kPacketBytes, count);
}

} // namespace

RecognisedCommand Recognise(const std::uint8_t* bytes, std::size_t count) {
    constexpr std::array<std::uint8_t, 2> kLinkIdHeader = {0x44, 0x01};
    constexpr std::array<std::uint8_t, 4> kStaticHeader = {0x09, 0x01, 0x00, 0x00};
    if (count == 0) {
        return kNotYet;
    }
    switch (bytes[0]) {
    case 0xAA:
        return {Command::kIdentity, 1};
    case 0x55:
        return {Command::kLegacyModel, 1};
    case 'S':
        return {Command::kStop, 1};
    case 'C':
        return {Command::kClose, 1};
    case 0x12:
        return RecogniseFlash(bytes, count);
    case kLinkIdHeader[0]:
        return Agrees(kLinkIdHeader, bytes, count) ? Whole(Command::kLinkId, kLinkIdBytes, count)
                                                   : kNone;
    case kStaticHeader[0]:
        return Agrees(kStaticHeader, bytes, count)
                   ? Whole(Command::kStaticValue, kPacketBytes, count)
                   : kNone;
    case 0x00:
        return Whole(Command::kStart, kStartBytes, count);
    case 0x01:
        return Whole(Command::kPacket, kPacketBytes, count);
    default:
        return kNone;
    }
}

const char* NameOf(Command command) {
    switch (command) {
    case Command::kIdentity:
        return "identity";
    case Command::kLegacyModel:
        return "legacy-model";
    case Command::kReadFlash:
        return "read-flash";
    case Command::kWriteFlash:
        return "write-flash";
    case Command::kStop:
        return "stop";
    case Command::kClose:
        return "close";
    case Command::kLinkId:
        return "link-id";
    case Command::kStaticValue:
        return "static-value";
    case Command::kStart:
        return "start";
    case Command::kPacket:
        return "packet";
    case Command::kUnknown:
        return "unknown";
    case Command::kIncomplete:
        return "incomplete";
    }
    return "";
}

} // namespace emulator
