#include "lab/session/Answer.h"

#include "lab/common/Failure.h"
#include "lab/machine/Locks.h"
#include "lab/machine/Ports.h"
#include "ravo/search.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

namespace lab {
namespace {

using std::chrono::milliseconds;
using namespace std::string_view_literals;

constexpr std::string_view kIdentity = "RV20\0"sv;

Finding Failed(const char* code, const std::string& sentence, const std::string& cure) {
    return {State::kFailed, "answer", code, sentence, cure};
}

// The port, held for one question.
class Line {
  public:
    explicit Line(const std::string& path)
        : m_handle(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
    ~Line() {
        if (m_handle != -1) {
            // Otherwise the close would wait for output that no one reads.
            ::tcflush(m_handle, TCIOFLUSH);
            ::close(m_handle);
        }
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    bool IsOpen() const { return m_handle != -1; }

    std::string Ask(char question) const {
        MakeRaw();
        ::tcflush(m_handle, TCIFLUSH);
        return ::write(m_handle, &question, 1) == 1 ? Listen() : "";
    }

  private:
    void MakeRaw() const {
        termios attributes{};
        ::tcgetattr(m_handle, &attributes);
        ::cfmakeraw(&attributes);
        ::cfsetospeed(&attributes, B115200);
        ::tcsetattr(m_handle, TCSANOW, &attributes);
    }

    // Reads until the device pauses; waits for the first byte much longer than the library does.
    std::string Listen() const {
        constexpr milliseconds kFirst{5000};
        constexpr milliseconds kPause{200};
        constexpr std::size_t kEnough = 16;
        std::string heard;
        pollfd wait{m_handle, POLLIN, 0};
        while (heard.size() < kEnough &&
               ::poll(&wait, 1, static_cast<int>((heard.empty() ? kFirst : kPause).count())) > 0) {
            std::array<char, kEnough> piece{};
            const ssize_t count = ::read(m_handle, piece.data(), piece.size() - heard.size());
            if (count <= 0) {
                break;
            }
            heard.append(piece.data(), static_cast<std::size_t>(count));
        }
        return heard;
    }

    int m_handle;
};

// "MODEM" (4D 4F 44 45 4D)
std::string Quote(const std::string& bytes) {
    std::string hexadecimal;
    for (const char byte : bytes) {
        hexadecimal += Format(hexadecimal.empty() ? "%02X" : " %02X",
                              static_cast<unsigned int>(static_cast<unsigned char>(byte)));
    }
    return "\"" + Printable(ToUtf8(bytes)) + "\" (" + hexadecimal + ")";
}

bool MayBeOpened(const std::string& path) {
    return Line(path).IsOpen();
}

Finding CannotOpen(const std::string& path) {
    const int reason = errno;
    if (reason == EBUSY) {
        return Failed("busy", "a program that cannot be inspected has opened it exclusively",
                      "See which one: sudo ravo doctor");
    }
    return Failed("cannot-open", Format("cannot be opened: %s", std::strerror(reason)),
                  "Plug the simulator in again. A container must be given it: --device " + path);
}

Finding Explain(const std::string& heard) {
    if (heard.empty()) {
        return Failed("silent", "nothing answers",
                      "Is it the simulator? Switch it off and on, and plug it in again.");
    }
    if (heard.rfind(kIdentity, 0) == 0) {
        return Failed(
            "late", "answers like the simulator, but too late or not every time",
            "Plug it into the machine itself rather than a hub; reduce the load of the machine.");
    }
    return Failed("wrong-answer", "another device answers: " + Quote(heard),
                  "Plug in the simulator as well. If this is the simulator, switch it off and on.");
}

// What the library's last look at the port found; RAVO_FINDING_NO_ANSWER when it made none.
RAVO_SEARCH_ENTRY LastLook(int port) {
    RAVO_SEARCH_ENTRY entry{};
    for (int index = 0; RAVOGetSearchReport(index, &entry); ++index) {
        if (entry.Port == port) {
            return entry;
        }
    }
    entry = {};
    entry.Finding = RAVO_FINDING_NO_ANSWER;
    return entry;
}

Finding Taken(const RAVO_SEARCH_ENTRY& look) {
    const char* program = look.OwnerName[0] == '\0' ? "a program" : look.OwnerName;
    const std::string owner = look.Finding == RAVO_FINDING_LOCKED
                                  ? Format("%s (process %d)", program, look.Owner)
                                  : "another program";
    return Failed("taken", owner + " took it while it was being asked", "Look again: ravo doctor");
}

// Describes the device on a port on which the library finds no simulator. A device that answers is
// asked once more, with more patience than the library has.
Finding Diagnose(const Machine& machine, int port) {
    const std::string path = PortPath(machine, port);
    if (::access(path.c_str(), F_OK) != 0) {
        return Failed("gone", "disappeared while it was being asked",
                      "Check cable and power; plug it into the machine itself rather than a hub.");
    }
    const RAVO_SEARCH_ENTRY look = LastLook(port);
    const PortLock lock(machine, port);
    if (!lock.IsTaken()) {
        return Taken(look);
    }
    if (look.Finding == RAVO_FINDING_CANNOT_WRITE) {
        return Failed("takes-nothing", "takes no bytes",
                      "Is it the simulator? Switch it off and on, and plug it in again.");
    }
    const Line line(path);
    constexpr char kProbe = '\xAA';
    return line.IsOpen() ? Explain(line.Ask(kProbe)) : CannotOpen(path);
}

std::optional<SimulatorInformation> Find(int port, std::chrono::seconds timeout,
                                         const Interrupt& interrupt) {
    const Simulator simulator(port);
    return simulator.Await(timeout, interrupt) ? std::optional(DescribeSimulator()) : std::nullopt;
}

Finding Welcome(const SimulatorInformation& simulator) {
    return {State::kOk, "answer", "simulator",
            Format("%s, serial number %s, %d-bit converters", simulator.model.c_str(),
                   simulator.serial.c_str(), simulator.dacBits),
            ""};
}

} // namespace

Answer AskPort(const Machine& machine, int port, std::chrono::seconds timeout,
               const Interrupt& interrupt) {
    const std::string path = PortPath(machine, port);
    if (!MayBeOpened(path)) {
        return {CannotOpen(path), std::nullopt};
    }
    const std::optional<SimulatorInformation> simulator = Find(port, timeout, interrupt);
    if (simulator) {
        return {Welcome(*simulator), simulator};
    }
    return {interrupt.Signal() == 0 ? Diagnose(machine, port) : Finding{}, std::nullopt};
}

} // namespace lab
