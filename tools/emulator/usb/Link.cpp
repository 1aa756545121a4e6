#include "tools/emulator/usb/Link.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace emulator::usb {
namespace {

enum Command : std::uint32_t { kSubmit = 1, kUnlink = 2, kSubmitAnswer = 3, kUnlinkAnswer = 4 };

constexpr std::size_t kWords = 12; // 48 bytes for every command
using Header = std::array<std::uint32_t, kWords>;

// Positions in the header, in words of four bytes.
enum Word : std::size_t {
    kCommand = 0,
    kNumber = 1,
    kDirection = 3,
    kEndpoint = 4,
    kUnlinkedNumber = 5, // of an unlink
    kStatus = 5,         // of an answer
    kLength = 6,
    kSetup = 10,
};

bool ReceiveWhole(int socket, void* bytes, std::size_t count) {
    ssize_t got = 0;
    do {
        got = recv(socket, bytes, count, MSG_WAITALL);
    } while (got == -1 && errno == EINTR);
    return got == static_cast<ssize_t>(count);
}

void SendWhole(int socket, Header header, const std::uint8_t* bytes, std::size_t count) {
    std::transform(header.begin(), header.end(), header.begin(), htonl);
    std::vector<std::uint8_t> message(sizeof header);
    std::memcpy(message.data(), header.data(), sizeof header);
    message.insert(message.end(), bytes, bytes + count);
    std::size_t sent = 0;
    while (sent < message.size()) {
        const ssize_t now =
            send(socket, message.data() + sent, message.size() - sent, MSG_NOSIGNAL);
        if (now == -1 && errno != EINTR) {
            return; // the other end is gone; the next receive reports it
        }
        sent += now > 0 ? static_cast<std::size_t>(now) : 0;
    }
}

} // namespace

bool Link::Receive(Message& message) const {
    Header header{};
    if (!ReceiveWhole(m_socket, header.data(), sizeof header)) {
        return false;
    }
    message = {};
    Transfer& transfer = message.transfer;
    std::memcpy(transfer.setup.data(), &header[kSetup], transfer.setup.size());
    std::transform(header.begin(), header.end(), header.begin(), ntohl);
    message.isUnlink = header[kCommand] == kUnlink;
    message.unlinked = header[kUnlinkedNumber];
    transfer.number = header[kNumber];
    transfer.endpoint = header[kEndpoint];
    transfer.isToHost = header[kDirection] != 0;
    transfer.length = message.isUnlink ? 0 : header[kLength];
    if (!transfer.isToHost) {
        transfer.data.resize(transfer.length);
    }
    return transfer.data.empty() ||
           ReceiveWhole(m_socket, transfer.data.data(), transfer.data.size());
}

void Link::End(const Transfer& transfer, Status status, const std::uint8_t* bytes,
               std::size_t count) const {
    Header header{};
    header[kCommand] = kSubmitAnswer;
    header[kNumber] = transfer.number;
    header[kStatus] = static_cast<std::uint32_t>(status);
    header[kLength] = static_cast<std::uint32_t>(count);
    SendWhole(m_socket, header, bytes, transfer.isToHost ? count : 0);
}

void Link::AnswerUnlink(const Message& message, Status status) const {
    Header header{};
    header[kCommand] = kUnlinkAnswer;
    header[kNumber] = message.transfer.number;
    header[kStatus] = static_cast<std::uint32_t>(status);
    SendWhole(m_socket, header, nullptr, 0);
}

} // namespace emulator::usb
