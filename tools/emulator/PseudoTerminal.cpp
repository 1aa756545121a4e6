#include "tools/emulator/PseudoTerminal.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace emulator {
namespace {

std::string PathOf(const std::string& directory, int number) {
    return directory + "/ttyACM" + std::to_string(number);
}

[[noreturn]] void Fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void CloseHandle(int& handle) {
    if (handle != -1) {
        close(std::exchange(handle, -1));
    }
}

// The settings with which the kernel opens any terminal for the first time, reduced to those that
// matter on this line: it waits for whole lines, echoes, and translates line ends.
void MakeFresh(termios& settings) {
    settings.c_iflag = ICRNL | IXON;
    settings.c_oflag = OPOST | ONLCR;
    settings.c_cflag = B38400 | CS8 | CREAD | HUPCL;
    settings.c_lflag = ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | ECHOKE | IEXTEN;
}

} // namespace

PseudoTerminal::PseudoTerminal(std::string directory, int number)
    : m_directory(std::move(directory)), m_path(PathOf(m_directory, number)) {}

PseudoTerminal::~PseudoTerminal() {
    Vanish();
}

void PseudoTerminal::Renumber(int number) {
    m_path = PathOf(m_directory, number);
}

void PseudoTerminal::Appear(bool echoes) {
    Open(echoes);
    if (symlink(m_hostSide.c_str(), m_path.c_str()) != 0) {
        const int error = errno;
        Close();
        errno = error;
        Fail(error == EEXIST
                 ? m_path + " is taken: choose another port number, or run a command in a sandbox"
                 : "cannot create " + m_path + ": run a command in a sandbox, or as root");
    }
}

void PseudoTerminal::Vanish() {
    if (IsPresent()) {
        unlink(m_path.c_str());
        Close();
    }
}

void PseudoTerminal::LoseCarrier(bool echoes) {
    if (!IsPresent()) {
        return;
    }
    int oldControl = std::exchange(m_control, -1);
    CloseHandle(m_openings);
    try {
        Open(echoes);
    } catch (...) {
        unlink(m_path.c_str());
        CloseHandle(oldControl);
        throw;
    }
    // The name must exist at every moment: the new end replaces it by renaming.
    const std::string temporary = m_path + ".new";
    if (symlink(m_hostSide.c_str(), temporary.c_str()) == 0) {
        rename(temporary.c_str(), m_path.c_str());
    }
    CloseHandle(oldControl);
}

void PseudoTerminal::Open(bool echoes) {
    m_control = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_control == -1) {
        Fail("no pseudo-terminal");
    }
    std::array<char, 64> name{};
    if (grantpt(m_control) != 0 || unlockpt(m_control) != 0 ||
        ptsname_r(m_control, name.data(), name.size()) != 0) {
        const int error = errno;
        Close();
        errno = error;
        Fail("no pseudo-terminal");
    }
    m_hostSide = name.data();
    m_openings = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_openings != -1 && inotify_add_watch(m_openings, m_hostSide.c_str(), IN_OPEN) == -1) {
        CloseHandle(m_openings);
    }
    // Before its first opening a pseudo-terminal does not report that it is closed; afterwards
    // it does.
    Refresh(echoes);
}

void PseudoTerminal::Close() {
    CloseHandle(m_openings);
    CloseHandle(m_control);
}

bool PseudoTerminal::ConsumeOpeningNotice() {
    std::array<char, 4096> events{};
    bool wasOpened = false;
    while (read(m_openings, events.data(), events.size()) > 0) {
        wasOpened = true;
    }
    return wasOpened;
}

bool PseudoTerminal::IsOpenByHost() const {
    pollfd state{m_control, 0, 0};
    return poll(&state, 1, 0) == 0;
}

std::size_t PseudoTerminal::Read(std::uint8_t* bytes, std::size_t length) {
    const ssize_t count = read(m_control, bytes, length);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::size_t PseudoTerminal::Write(const std::uint8_t* bytes, std::size_t length) {
    const ssize_t count = write(m_control, bytes, length);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

int PseudoTerminal::OpenHostSide() const {
    return open(m_hostSide.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

void PseudoTerminal::Refresh(bool echoes) {
    int hostSide = OpenHostSide();
    if (hostSide != -1) {
        tcflush(hostSide, TCIFLUSH);
        CloseHandle(hostSide);
    }
    Configure(echoes);
}

void PseudoTerminal::Configure(bool echoes) const {
    // On this end these calls reach the settings of the other.
    termios settings = {};
    tcgetattr(m_control, &settings);
    if (echoes) {
        MakeFresh(settings);
    } else {
        cfmakeraw(&settings);
    }
    tcsetattr(m_control, TCSANOW, &settings);
}

void PseudoTerminal::StopLine(bool stop) {
    int hostSide = OpenHostSide();
    if (hostSide != -1) {
        tcflow(hostSide, stop ? TCOOFF : TCOON);
        CloseHandle(hostSide);
    }
}

} // namespace emulator
