#include "lab/plan/Display.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Numbers.h"
#include "lab/evidence/Times.h"

#include <cstdio>
#include <ctime>
#include <sys/ioctl.h>
#include <unistd.h>

namespace lab {
namespace {

constexpr double kTerminalInterval = 0.2; // seconds
constexpr double kPlainInterval = 10.0;
constexpr std::size_t kUsualWidth = 80;

std::size_t TerminalWidth() {
    winsize size{};
    const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return isKnown ? size.ws_col : kUsualWidth;
}

// The time of day in `left` seconds.
std::string ClockIn(double left) {
    const std::time_t then = std::time(nullptr) + static_cast<std::time_t>(left);
    std::tm local{};
    ::localtime_r(&then, &local);
    return Format("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
}

} // namespace

Display::Display(bool isQuiet, std::size_t steps, double seconds)
    : m_isQuiet(isQuiet), m_isTerminal(::isatty(STDERR_FILENO) == 1), m_steps(steps) {
    Say(Format("%s, %s, done about %s", Counted(steps, "step").c_str(),
               DurationText(seconds).c_str(), ClockIn(seconds).c_str()));
}

Display::~Display() {
    Clear();
}

void Display::Begin(std::size_t step, const std::string& name, const std::string& what) {
    Clear();
    m_head = Format("step %zu of %zu  %s", step + 1, m_steps, name.c_str());
    m_nextUpdate = MonotonicSeconds() + (m_isTerminal ? 0.0 : kPlainInterval);
    if (!m_isTerminal) {
        Say(m_head + (what.empty() ? "" : "  " + Printable(what)));
    }
}

void Display::Update(const std::string& position, double left) {
    const double now = MonotonicSeconds();
    if (m_isQuiet || now < m_nextUpdate) {
        return;
    }
    m_nextUpdate = now + (m_isTerminal ? kTerminalInterval : kPlainInterval);
    const std::string line =
        m_head + "  " + position + "  left " + DurationText(left) + "  done " + ClockIn(left);
    if (m_isTerminal) {
        std::fprintf(stderr, "\r%s\033[K", line.substr(0, TerminalWidth() - 1).c_str());
        m_isShown = true;
    } else {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
    std::fflush(stderr);
}

void Display::Say(const std::string& sentence) {
    Clear();
    if (!m_isQuiet) {
        std::fprintf(stderr, "%s\n", sentence.c_str());
    }
}

void Display::Clear() {
    if (m_isShown) {
        std::fputs("\r\033[K", stderr);
        m_isShown = false;
    }
}

} // namespace lab
