#include "tools/ravo/StatusLine.h"

#include "lab/common/Failure.h"
#include "lab/common/TimeText.h"

#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

using namespace lab;

namespace {

constexpr std::size_t kUsualColumns = 80;

std::size_t Columns() {
    winsize size{};
    const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return isKnown ? size.ws_col : kUsualColumns;
}

// The last column stays free: some terminals wrap the line after it.
std::string Fitting(const std::vector<std::string>& parts, std::size_t columns) {
    std::string line;
    for (const std::string& part : parts) {
        const std::string longer = line + (line.empty() ? "" : "  ") + part;
        if (longer.size() >= columns) {
            break;
        }
        line = longer;
    }
    return line.empty() && !parts.empty() ? parts.front().substr(0, columns - 1) : line;
}

std::string Joined(const std::vector<std::string>& parts) {
    std::string line;
    for (const std::string& part : parts) {
        line += (line.empty() ? "" : "  ") + part;
    }
    return line;
}

} // namespace

StatusLine::StatusLine(Wanted wanted)
    : m_isTerminal(::isatty(STDERR_FILENO) == 1),
      m_isShown(wanted == Wanted::kAlways || (wanted == Wanted::kOnTerminal && m_isTerminal)) {}

StatusLine::~StatusLine() {
    Clear();
}

// Every second at first, then every ten, then every minute: a log of a day stays readable.
bool StatusLine::IsDue(double elapsed) {
    if (elapsed < m_nextPlainLine) {
        return false;
    }
    constexpr double kMinute = 60.0;
    const double interval = elapsed < 9.5 ? 1.0 : elapsed < kMinute - 0.5 ? 10.0 : kMinute;
    m_nextPlainLine = (std::floor(elapsed / interval) + 1.0) * interval;
    return true;
}

void StatusLine::Show(double elapsed, const std::vector<std::string>& parts) {
    if (!m_isShown) {
        return;
    }
    if (m_isTerminal) {
        std::fprintf(stderr, "\r%s\033[K", Fitting(parts, Columns()).c_str());
        m_isOnScreen = true;
    } else if (IsDue(elapsed)) {
        std::fprintf(stderr, "%s\n", Joined(parts).c_str());
    }
    std::fflush(stderr);
}

void StatusLine::Clear() {
    if (m_isOnScreen) {
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        m_isOnScreen = false;
    }
    m_nextPlainLine = 0.0;
}

std::vector<std::string> SearchParts(double elapsed, const std::string& what) {
    return {Format("searching for the simulator, %.0f s:", elapsed) + " " + what};
}

std::vector<std::string> PlayParts(const PlayPosition& position, const Record& record) {
    const std::string length = record.isEndless ? "" : " of " + ClockText(record.Seconds());
    std::vector<std::string> parts = {
        ClockText(position.elapsed), "position " + ClockText(position.position) + length,
        Format("%lld/s", static_cast<long long>(record.FramesPerSecond())),
        Format("delays %d", position.delays)};
    if (std::isfinite(position.due)) {
        parts.push_back(ClockText(position.due - position.played) + " left");
    }
    parts.push_back(Printable(record.name));
    return parts;
}

} // namespace cli
