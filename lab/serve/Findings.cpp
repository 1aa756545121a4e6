#include "lab/serve/Findings.h"

#include "lab/machine/Locks.h"
#include "lab/machine/Machine.h"
#include "lab/machine/Modem.h"
#include "lab/machine/Ports.h"
#include "lab/machine/Processes.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;

constexpr auto kInterval = 1s;

bool IsOfThisProcess(const Finding& finding) {
    return finding.sentence.find("(process " + std::to_string(::getpid()) + ")") !=
           std::string::npos;
}

void Note(std::vector<Finding>& findings, Finding finding, const std::string& path = {}) {
    if (finding.state != State::kOk && !IsOfThisProcess(finding)) {
        finding.port = path;
        findings.push_back(std::move(finding));
    }
}

bool HasFailed(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.state == State::kFailed; });
}

std::vector<Finding> Look(std::optional<int> wanted) {
    Machine machine;
    machine.patience = 0ms;
    std::vector<Finding> findings;
    Note(findings, CheckPorts(machine, wanted));
    Note(findings, CheckLockDirectory(machine));
    for (const int port : PortsPresent(machine, wanted)) {
        const std::string path = PortPath(machine, port);
        Note(findings, CheckPermission(machine, path), path);
        Note(findings, CheckLock(machine, port), path);
        Note(findings, CheckUse(machine, path), path);
        Note(findings, CheckModemProbing(machine, path), path);
    }
    if (!HasFailed(findings)) {
        findings.push_back(
            {State::kFailed, "answer", "no-answer", "no port has answered like a simulator yet",
             "A port that was just plugged in may need 20 s. `ravo doctor` asks the ports "
             "one by one when this server does not run."});
    }
    return findings;
}

bool AreEqual(const std::vector<Finding>& one, const std::vector<Finding>& other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](const Finding& a, const Finding& b) {
                          return a.code == b.code && a.port == b.port && a.sentence == b.sentence;
                      });
}

} // namespace

Findings::Findings(std::optional<int> port, std::function<bool()> isConnected,
                   std::function<void()> changed)
    : m_port(port), m_isConnected(std::move(isConnected)), m_changed(std::move(changed)),
      m_thread([this] { Work(); }) {}

Findings::~Findings() {
    {
        const MutexGuard lock(m_lock);
        m_isEnding = true;
    }
    m_wake.NotifyAll();
    m_thread.join();
}

std::vector<Finding> Findings::Now() const {
    const MutexGuard lock(m_lock);
    return m_findings;
}

void Findings::LookNow() {
    {
        const MutexGuard lock(m_lock);
        m_isDue = true;
    }
    m_wake.NotifyAll();
}

void Findings::Work() {
    while (AwaitDue()) {
        if (Keep(m_isConnected() ? std::vector<Finding>() : Look(m_port))) {
            m_changed();
        }
    }
}

bool Findings::AwaitDue() {
    const auto deadline = std::chrono::steady_clock::now() + kInterval;
    const MutexGuard lock(m_lock);
    bool isInTime = true;
    while (!m_isDue && !m_isEnding && isInTime) {
        isInTime = m_wake.WaitUntil(m_lock, deadline);
    }
    m_isDue = false;
    return !m_isEnding;
}

bool Findings::Keep(std::vector<Finding> findings) {
    const MutexGuard lock(m_lock);
    if (AreEqual(findings, m_findings)) {
        return false;
    }
    m_findings = std::move(findings);
    return true;
}

} // namespace lab::serve
