#include "lab/serve/Ticket.h"

#include "lab/serve/ClientText.h"

#include <utility>

namespace lab::serve {

void Ticket::Done() {
    End(std::nullopt);
}

void Ticket::Failed(const Failure& failure) {
    End(ForClient(failure));
}

void Ticket::End(const std::optional<HttpFailure>& failure) {
    Listener late;
    {
        const MutexGuard lock(m_lock);
        m_hasEnded = true;
        m_failure = failure;
        late = m_late;
    }
    m_ended.NotifyAll();
    if (late) {
        late(failure);
    }
}

bool Ticket::Wait(std::chrono::steady_clock::time_point deadline) {
    const MutexGuard lock(m_lock);
    while (!m_hasEnded && m_ended.WaitUntil(m_lock, deadline)) {
    }
    if (m_failure) {
        throw HttpFailure(*m_failure);
    }
    return m_hasEnded;
}

bool Ticket::Withdraw() {
    const MutexGuard lock(m_lock);
    m_isWithdrawn = !m_hasEnded;
    return m_isWithdrawn;
}

bool Ticket::IsWithdrawn() const {
    const MutexGuard lock(m_lock);
    return m_isWithdrawn;
}

void Ticket::SetLate(const Listener& ended) {
    std::optional<HttpFailure> failure;
    {
        const MutexGuard lock(m_lock);
        if (!m_hasEnded) {
            m_late = ended;
            return;
        }
        failure = m_failure;
    }
    ended(failure);
}

} // namespace lab::serve
