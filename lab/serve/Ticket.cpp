#include "lab/serve/Ticket.h"

#include <utility>

namespace lab::serve {

void Ticket::Done() {
    End(std::nullopt);
}

void Ticket::Failed(const Failure& failure) {
    End(HttpFailure(HttpStatusOf(failure), failure.Where(), failure.Problem(), failure.Cure()));
}

void Ticket::End(std::optional<HttpFailure> failure) {
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        m_hasEnded = true;
        m_failure = std::move(failure);
    }
    m_ended.notify_all();
}

bool Ticket::Wait(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(m_lock);
    m_ended.wait_until(lock, deadline, [this] { return m_hasEnded; });
    if (m_failure) {
        throw HttpFailure(*m_failure);
    }
    return m_hasEnded;
}

bool Ticket::Withdraw() {
    const std::lock_guard<std::mutex> lock(m_lock);
    m_isWithdrawn = !m_hasEnded;
    return m_isWithdrawn;
}

bool Ticket::IsWithdrawn() {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_isWithdrawn;
}

void Ticket::SetLate() {
    const std::lock_guard<std::mutex> lock(m_lock);
    m_isLate = true;
}

bool Ticket::IsLate() {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_isLate;
}

} // namespace lab::serve
