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

void Ticket::End(std::optional<HttpFailure> failure) {
    std::function<void(const HttpFailure&)> refused;
    {
        const MutexGuard lock(m_lock);
        m_hasEnded = true;
        m_failure = failure;
        refused = m_refused;
    }
    m_ended.NotifyAll();
    if (refused && failure) {
        refused(*failure);
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

bool Ticket::IsWithdrawn() {
    const MutexGuard lock(m_lock);
    return m_isWithdrawn;
}

void Ticket::SetLate(const std::function<void(const HttpFailure&)>& refused) {
    std::optional<HttpFailure> failure;
    {
        const MutexGuard lock(m_lock);
        m_refused = refused;
        failure = m_failure;
    }
    if (failure) {
        refused(*failure);
    }
}

} // namespace lab::serve
