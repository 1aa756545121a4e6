#include "tools/emulator/Outbox.h"

#include <algorithm>
#include <utility>

namespace emulator {

void Outbox::Send(Bytes bytes, Clock::time_point now) {
    m_pieces.emplace(now, std::move(bytes));
}

void Outbox::Reply(Bytes bytes, ReplyFault& fault, Clock::time_point now) {
    if (fault.replies == 0) {
        Send(std::move(bytes), now);
        return;
    }
    fault.replies -= fault.replies > 0 ? 1 : 0;
    bytes.resize(std::min(bytes.size(), fault.truncateTo));
    bytes.insert(bytes.begin(), fault.garbageBefore.begin(), fault.garbageBefore.end());

    const std::size_t pieceBytes = fault.pieceBytes == 0 ? bytes.size() : fault.pieceBytes;
    Clock::time_point due = now + fault.late;
    for (std::size_t from = 0; from < bytes.size(); from += pieceBytes) {
        const std::size_t to = std::min(bytes.size(), from + pieceBytes);
        m_pieces.emplace(due, Bytes(bytes.data() + from, bytes.data() + to));
        due += fault.pieceGap;
    }
}

const Bytes* Outbox::Due(Clock::time_point now) const {
    const bool isDue = !m_pieces.empty() && m_pieces.begin()->first <= now;
    return isDue ? &m_pieces.begin()->second : nullptr;
}

void Outbox::Said(std::size_t count) {
    const auto first = m_pieces.begin();
    Bytes& bytes = first->second;
    if (count >= bytes.size()) {
        m_pieces.erase(first);
    } else {
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    }
}

std::optional<Clock::time_point> Outbox::NextDue() const {
    if (m_pieces.empty()) {
        return std::nullopt;
    }
    return m_pieces.begin()->first;
}

} // namespace emulator
