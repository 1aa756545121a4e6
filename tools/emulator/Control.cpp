#include "tools/emulator/Control.h"

#include "tools/emulator/Summary.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace emulator {
namespace {

constexpr std::size_t kLongestLine = std::size_t{64} * 1024;
constexpr long long kLargestNumber = 1'000'000'000;

// The words after the command's name.
using Words = std::vector<std::string>;

const std::string& Word(const Words& words, std::size_t index) {
    if (index >= words.size()) {
        throw std::invalid_argument("a value is missing");
    }
    return words[index];
}

long long Number(const Words& words, std::size_t index) {
    const std::string& word = Word(words, index);
    std::size_t used = 0;
    long long number = -1;
    try {
        number = std::stoll(word, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used != word.size() || number < 0 || number > kLargestNumber) {
        throw std::invalid_argument("'" + word + "' is not a number from 0 to 1000000000");
    }
    return number;
}

// The number that the first word is, or NaN.
double Real(const Words& words) {
    const std::string& word = Word(words, 0);
    std::size_t used = 0;
    try {
        const double number = std::stod(word, &used);
        return used == word.size() && std::isfinite(number) ? number : NAN;
    } catch (const std::exception&) {
        return NAN;
    }
}

double Factor(const Words& words) {
    const double number = Real(words);
    if (!(number >= 0)) {
        throw std::invalid_argument("'" + words[0] + "' is not a factor of 0 or more");
    }
    return number;
}

double Ppm(const Words& words) {
    const double number = Real(words);
    if (!IsClockPpm(number)) {
        throw std::invalid_argument("'" + words[0] + "' is not a number from -100000 to 100000");
    }
    return number;
}

bool Switch(const Words& words) {
    const std::string& word = Word(words, 0);
    if (word != "on" && word != "off") {
        throw std::invalid_argument("'" + word + "' is neither on nor off");
    }
    return word == "on";
}

Line LineState(const Words& words) {
    const std::string& word = Word(words, 0);
    constexpr std::array<std::pair<const char*, Line>, 4> kStates = {{{"working", Line::kWorking},
                                                                      {"full", Line::kFull},
                                                                      {"dead", Line::kDead},
                                                                      {"mute", Line::kMute}}};
    for (const auto& [name, state] : kStates) {
        if (word == name) {
            return state;
        }
    }
    throw std::invalid_argument("'" + word + "' is none of working, full, dead, mute");
}

Bytes Hex(const Words& words) {
    std::string text;
    for (const std::string& word : words) {
        text += word;
    }
    return ParseHex(text);
}

struct ControlCommand {
    const char* name;
    const char* arguments;
    const char* meaning;
    // Returns the reply; an empty one stands for "ok".
    std::string (*execute)(Simulator&, const Words&);
};

// A command that changes the behaviour.
template <typename Change>
std::string Changing(Simulator& simulator, const Change& change) {
    simulator.Change(change);
    return {};
}

std::string Vanish(Simulator& simulator, const Words& /*words*/) {
    simulator.Vanish();
    return {};
}

std::string Return(Simulator& simulator, const Words& words) {
    if (words.empty()) {
        simulator.Return();
    } else {
        simulator.Return(static_cast<int>(Number(words, 0)));
    }
    return {};
}

std::string LoseCarrier(Simulator& simulator, const Words& /*words*/) {
    simulator.LoseCarrier();
    return {};
}

std::string SetLine(Simulator& simulator, const Words& words) {
    const Line line = LineState(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.line = line; });
}

std::string Take(Simulator& simulator, const Words& words) {
    const auto bytes = static_cast<std::size_t>(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.takesBytes = bytes; });
}

std::string Lose(Simulator& simulator, const Words& words) {
    const auto bytes = static_cast<std::size_t>(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.losesBytes = bytes; });
}

std::string SetIdentity(Simulator& simulator, const Words& words) {
    const Bytes identity = Hex(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.identity = identity; });
}

std::string SetFlash(Simulator& simulator, const Words& words) {
    const auto position = static_cast<std::size_t>(Number(words, 0));
    const long long value = Number(words, 1);
    if (position >= FlashTable{}.size() || value > UINT8_MAX) {
        throw std::invalid_argument("positions are 0 to 63 and values 0 to 255");
    }
    return Changing(simulator, [&](Behaviour& behaviour) {
        behaviour.flash[position] = static_cast<std::uint8_t>(value);
    });
}

std::string Truncate(Simulator& simulator, const Words& words) {
    const auto bytes = static_cast<std::size_t>(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.replies.truncateTo = bytes; });
}

std::string Late(Simulator& simulator, const Words& words) {
    const Milliseconds late(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.replies.late = late; });
}

std::string Split(Simulator& simulator, const Words& words) {
    const auto bytes = static_cast<std::size_t>(Number(words, 0));
    const Milliseconds gap(words.size() > 1 ? Number(words, 1) : 0);
    return Changing(simulator, [&](Behaviour& behaviour) {
        behaviour.replies.pieceBytes = bytes;
        behaviour.replies.pieceGap = gap;
    });
}

std::string Garbage(Simulator& simulator, const Words& words) {
    const Bytes garbage = Hex(words);
    return Changing(simulator,
                    [&](Behaviour& behaviour) { behaviour.replies.garbageBefore = garbage; });
}

std::string Replies(Simulator& simulator, const Words& words) {
    const int replies = static_cast<int>(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.replies.replies = replies; });
}

std::string Say(Simulator& simulator, const Words& words) {
    simulator.Say(Hex(words));
    return {};
}

std::string SayStatus(Simulator& simulator, const Words& /*words*/) {
    simulator.SayStatus();
    return {};
}

std::string StatusEvery(Simulator& simulator, const Words& words) {
    const int requests = static_cast<int>(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.statusEvery = requests; });
}

std::string Ask(Simulator& simulator, const Words& words) {
    const bool asks = Switch(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.asks = asks; });
}

std::string RefuseStart(Simulator& simulator, const Words& words) {
    const bool refuses = Switch(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.refusesStart = refuses; });
}

std::string Echo(Simulator& simulator, const Words& words) {
    const bool echoes = Switch(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.echoes = echoes; });
}

std::string KeepUnsent(Simulator& simulator, const Words& words) {
    const bool keeps = Switch(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.keepsUnsent = keeps; });
}

std::string SetSpeed(Simulator& simulator, const Words& words) {
    const double speed = Factor(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.speed = speed; });
}

std::string SetClock(Simulator& simulator, const Words& words) {
    const double ppm = Ppm(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.clockPpm = ppm; });
}

std::string AskLate(Simulator& simulator, const Words& words) {
    const Milliseconds late(Number(words, 0));
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.asksLate = late; });
}

std::string Heal(Simulator& simulator, const Words& /*words*/) {
    return Changing(simulator, [](Behaviour& behaviour) {
        Behaviour sound;
        sound.flash = behaviour.flash;
        sound.legacyReply = behaviour.legacyReply;
        sound.linkId = behaviour.linkId;
        sound.speed = behaviour.speed;
        sound.clockPpm = behaviour.clockPpm;
        behaviour = sound;
    });
}

std::string Count(Simulator& simulator, const Words& /*words*/) {
    return JsonSummary(simulator.Seen());
}

constexpr std::array<ControlCommand, 25> kCommands = {{
    {"vanish", "", "pull the plug: the name goes, the port is hung up", Vanish},
    {"return", "[PORT]", "put it back, under the same or another number", Return},
    {"carrier", "", "hang the port up while its name stays", LoseCarrier},
    {"line", "STATE", "working; full: takes nothing; dead: says nothing either; mute", SetLine},
    {"take", "BYTES", "take so many more bytes, then the line is full", Take},
    {"lose", "BYTES", "lose so many bytes from the host on their way", Lose},
    {"identity", "HEX", "answer the identity probe with these bytes", SetIdentity},
    {"flash", "POSITION VALUE", "change a byte of the flash table", SetFlash},
    {"truncate", "BYTES", "cut replies to commands to so many bytes", Truncate},
    {"late", "MS", "hold replies back", Late},
    {"split", "BYTES [MS]", "send replies in pieces, with a pause between", Split},
    {"garbage", "HEX", "put these bytes before each reply", Garbage},
    {"replies", "COUNT", "spoil only so many replies more", Replies},
    {"say", "HEX", "say these bytes now", Say},
    {"status", "", "say a status record now", SayStatus},
    {"status-every", "COUNT", "say one before every so many requests; 0 for none", StatusEvery},
    {"ask", "on|off", "ask for further buffers, or stop asking", Ask},
    {"ask-late", "MS", "hold requests and delay reports back", AskLate},
    {"refuse-start", "on|off", "ignore start commands", RefuseStart},
    {"echo", "on|off", "echo what is said until the host configures the port", Echo},
    {"keep-unsent", "on|off", "what is said to a closed port arrives after its opening",
     KeepUnsent},
    {"speed", "FACTOR", "of the sample clock; 0 plays as fast as the host delivers", SetSpeed},
    {"clock-ppm", "PPM", "by how much the sample clock is too fast, in millionths", SetClock},
    {"heal", "", "end all faults but a missing or hung-up port", Heal},
    {"count", "", "the figures so far, as JSON", Count},
}};

std::string ExecuteWords(Simulator& simulator, const std::string& name, const Words& words) {
    for (const ControlCommand& command : kCommands) {
        if (name == command.name) {
            const std::string reply = command.execute(simulator, words);
            return reply.empty() ? "ok" : reply;
        }
    }
    throw std::invalid_argument("no such command; the help of ravo-emulator lists them");
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), path);
    }
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    return address;
}

[[noreturn]] void Fail(const std::string& what, int& handle) {
    const int error = errno;
    if (handle != -1) {
        close(std::exchange(handle, -1));
    }
    throw std::system_error(error, std::generic_category(), what);
}

int Connect(const std::string& path) {
    const sockaddr_un address = AddressOf(path);
    int handle = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (handle == -1 ||
        connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Fail("no emulator listens on " + path, handle);
    }
    return handle;
}

// A socket that its owner left behind may be removed; one that answers may not.
void RemoveAbandoned(const std::string& path) {
    try {
        close(Connect(path));
    } catch (const std::system_error& error) {
        if (error.code().value() == ECONNREFUSED) {
            unlink(path.c_str());
        }
    }
}

bool SendLine(int connection, const std::string& line) {
    const std::string whole = line + "\n";
    std::size_t done = 0;
    while (done < whole.size()) {
        const ssize_t count =
            send(connection, whole.data() + done, whole.size() - done, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace

std::string Execute(Simulator& simulator, const std::string& line) {
    std::istringstream stream(line);
    std::string name;
    stream >> name;
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    try {
        return ExecuteWords(simulator, name, words);
    } catch (const std::exception& error) {
        return "error: " + (name.empty() ? "" : name + ": ") + error.what();
    }
}

bool IsKnown(const std::string& line) {
    std::istringstream stream(line);
    std::string name;
    stream >> name;
    return std::any_of(kCommands.begin(), kCommands.end(),
                       [&](const ControlCommand& command) { return name == command.name; });
}

std::string ControlHelp() {
    std::string help;
    for (const ControlCommand& command : kCommands) {
        std::string usage = std::string("  ") + command.name + " " + command.arguments;
        usage.resize(std::max<std::size_t>(usage.size() + 1, 26), ' ');
        help += usage + command.meaning + "\n";
    }
    return help;
}

Bytes ParseHex(const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char c) { return c != ' '; });
    if (digits.empty() || digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        throw std::invalid_argument("'" + text + "' is not a row of bytes in hexadecimal");
    }
    Bytes bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

ControlServer::ControlServer(std::string path, Simulator& simulator)
    : m_path(std::move(path)), m_simulator(simulator) {
    Listen();
    m_end = eventfd(0, EFD_CLOEXEC);
    if (m_end == -1) {
        Fail("eventfd", m_listener);
    }
    m_thread = std::thread(&ControlServer::Serve, this);
}

ControlServer::~ControlServer() {
    const std::uint64_t one = 1;
    while (write(m_end, &one, sizeof one) == -1 && errno == EINTR) {
    }
    m_thread.join();
    close(m_listener);
    close(m_end);
    unlink(m_path.c_str());
}

void ControlServer::Listen() {
    const sockaddr_un address = AddressOf(m_path);
    RemoveAbandoned(m_path);
    m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_listener == -1 ||
        bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listener, 4) != 0) {
        Fail("cannot listen on " + m_path, m_listener);
    }
}

void ControlServer::Serve() {
    for (;;) {
        std::array<pollfd, 2> waits = {{{m_end, POLLIN, 0}, {m_listener, POLLIN, 0}}};
        poll(waits.data(), waits.size(), -1);
        if (waits[0].revents != 0) {
            return;
        }
        const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection != -1) {
            ServeConnection(connection);
            close(connection);
        }
    }
}

void ControlServer::ServeConnection(int connection) {
    std::string pending;
    for (;;) {
        std::array<pollfd, 2> waits = {{{m_end, POLLIN, 0}, {connection, POLLIN, 0}}};
        poll(waits.data(), waits.size(), -1);
        if (waits[0].revents != 0) {
            return;
        }
        std::array<char, 1024> piece{};
        const ssize_t count = recv(connection, piece.data(), piece.size(), MSG_DONTWAIT);
        if (count == 0 || (count == -1 && errno != EAGAIN && errno != EINTR)) {
            return;
        }
        pending.append(piece.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        for (std::size_t end = pending.find('\n'); end != std::string::npos;
             end = pending.find('\n')) {
            if (!SendLine(connection, Execute(m_simulator, pending.substr(0, end)))) {
                return;
            }
            pending.erase(0, end + 1);
        }
        if (pending.size() > kLongestLine) {
            return;
        }
    }
}

std::string Tell(const std::string& path, const std::string& line) {
    int connection = Connect(path);
    if (!SendLine(connection, line)) {
        Fail("the emulator on " + path + " does not take the command", connection);
    }
    std::string reply;
    std::array<char, 1024> piece{};
    while (reply.find('\n') == std::string::npos) {
        const ssize_t count = recv(connection, piece.data(), piece.size(), 0);
        if (count <= 0) {
            Fail("the emulator on " + path + " does not answer", connection);
        }
        reply.append(piece.data(), static_cast<std::size_t>(count));
    }
    close(connection);
    return reply.substr(0, reply.find('\n'));
}

} // namespace emulator
