#include "tools/emulator/Control.h"

#include "tools/emulator/Summary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace emulator {
namespace {

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
    throw std::invalid_argument("'" + word + "' is not one of working, full, dead, mute");
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

std::string Send(Simulator& simulator, const Words& words) {
    simulator.Send(Hex(words));
    return {};
}

std::string SendStatus(Simulator& simulator, const Words& /*words*/) {
    simulator.SendStatus();
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

std::string CountLeft(Simulator& simulator, const Words& /*words*/) {
    return std::to_string(simulator.FramesLeftBy(Clock::now()));
}

constexpr std::array<ControlCommand, 26> kCommands = {{
    {"vanish", "", "pull the plug: the name disappears, the port is hung up", Vanish},
    {"return", "[PORT]", "plug it in again, under the same or another number", Return},
    {"carrier", "", "hang the port up while its name stays", LoseCarrier},
    {"line", "STATE",
     "working; full: accepts nothing; dead: sends nothing either; mute: accepts but sends nothing",
     SetLine},
    {"take", "BYTES", "accept this many more bytes, then the line is full", Take},
    {"lose", "BYTES", "lose this many bytes from the host on their way", Lose},
    {"identity", "HEX", "answer the identity probe with these bytes", SetIdentity},
    {"flash", "POSITION VALUE", "change a byte of the flash table", SetFlash},
    {"truncate", "BYTES", "cut replies to commands to this many bytes", Truncate},
    {"late", "MS", "hold replies back", Late},
    {"split", "BYTES [MS]", "send replies in pieces, with a pause between", Split},
    {"garbage", "HEX", "put these bytes before each reply", Garbage},
    {"replies", "COUNT", "spoil only this many more replies", Replies},
    {"say", "HEX", "send these bytes now", Send},
    {"status", "", "send a status record now", SendStatus},
    {"status-every", "COUNT", "send one before every n-th request; 0 for none", StatusEvery},
    {"ask", "on|off", "ask for further buffers, or stop asking", Ask},
    {"ask-late", "MS", "hold requests and delay reports back", AskLate},
    {"refuse-start", "on|off", "ignore start commands", RefuseStart},
    {"echo", "on|off", "echo what is sent until the host configures the port", Echo},
    {"keep-unsent", "on|off", "bytes sent to a closed port arrive when it is opened", KeepUnsent},
    {"speed", "FACTOR", "of the sample clock; 0 plays as fast as the host delivers", SetSpeed},
    {"clock-ppm", "PPM", "by how much the sample clock is too fast, in millionths", SetClock},
    {"heal", "", "end all faults but a missing or hung-up port", Heal},
    {"count", "", "the figures so far, as JSON", Count},
    {"left", "", "how many frames have left the outputs", CountLeft},
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

} // namespace emulator
