#include "tools/worker/Channel.h"

#include <array>
#include <cerrno>
#include <new>
#include <unistd.h>

namespace worker {
namespace {

constexpr uint64_t kLongestHead = uint64_t{1} << 28;
constexpr uint64_t kLongestPayload = uint64_t{1} << 40;

using Lengths = std::array<uint64_t, 2>;

bool ReadAll(int file, char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t got = ::read(file, bytes, size);
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        bytes += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool WriteAll(int file, const void* data, std::size_t size) {
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(file, bytes, size);
        if (written == -1 && errno == EINTR) {
            continue;
        }
        if (written == -1) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace

bool Channel::Receive(Message& message) const {
    Lengths lengths{};
    if (!ReadAll(m_in, reinterpret_cast<char*>(lengths.data()), sizeof lengths) ||
        lengths[0] > kLongestHead || lengths[1] > kLongestPayload) {
        return false;
    }
    std::string head(lengths[0], '\0');
    if (!ReadAll(m_in, head.data(), head.size())) {
        return false;
    }
    message.head = nlohmann::json::parse(head, nullptr, false);
    message.payload = Payload(lengths[1]);
    return message.head.is_object() &&
           ReadAll(m_in, message.payload.Data(), message.payload.Size());
}

bool Channel::Send(const nlohmann::json& head, const std::vector<Piece>& payload) {
    // File names and texts of records may hold bytes that are not UTF-8.
    const std::string text = head.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    Lengths lengths{text.size(), 0};
    for (const Piece& piece : payload) {
        lengths[1] += piece.size;
    }
    const lab::MutexGuard guard(m_sending);
    bool isSent = WriteAll(m_out, lengths.data(), sizeof lengths) &&
                  WriteAll(m_out, text.data(), text.size());
    for (const Piece& piece : payload) {
        isSent = isSent && WriteAll(m_out, piece.data, piece.size);
    }
    return isSent;
}

} // namespace worker
