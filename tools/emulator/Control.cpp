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

// The number that the first word is, as a count or a time of this type.
template <typename Type>
Type First(const Words& words) {
    return static_cast<Type>(Number(words, 0));
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

// A command that sets one field of the behaviour to what its words say.
template <auto field, auto valueOf>
std::string Set(Simulator& simulator, const Words& words) {
    const auto value = valueOf(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.*field = value; });
}

template <auto field, auto valueOf>
std::string SetReplies(Simulator& simulator, const Words& words) {
    const auto value = valueOf(words);
    return Changing(simulator, [&](Behaviour& behaviour) { behaviour.replies.*field = value; });
}

std::string Vanish(Simulator& simulator, const Words& /*words*/) {
    simulator.Vanish();
    return {};
}

std::string Return(Simulator& simulator, const Words& words) {
    if (words.empty()) {
        simulator.Return();
    } else {
        simulator.Return(First<int>(words));
    }
    return {};
}

std::string LoseCarrier(Simulator& simulator, const Words& /*words*/) {
    simulator.LoseCarrier();
    return {};
}

std::string SetFlash(Simulator& simulator, const Words& words) {
    const auto position = First<std::size_t>(words);
    const long long value = Number(words, 1);
    if (position >= FlashTable{}.size() || value > UINT8_MAX) {
        throw std::invalid_argument("positions are 0 to 63 and values 0 to 255");
    }
    return Changing(simulator, [&](Behaviour& behaviour) {
        behaviour.flash[position] = static_cast<std::uint8_t>(value);
    });
}

std::string Split(Simulator& simulator, const Words& words) {
    const auto bytes = First<std::size_t>(words);
    const Milliseconds gap(words.size() > 1 ? Number(words, 1) : 0);
    return Changing(simulator, [&](Behaviour& behaviour) {
        behaviour.replies.pieceBytes = bytes;
        behaviour.replies.pieceGap = gap;
    });
}

std::string Send(Simulator& simulator, const Words& words) {
    simulator.Send(Hex(words));
    return {};
}

std::string SendStatus(Simulator& simulator, const Words& /*words*/) {
    simulator.SendStatus();
    return {};
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
     Set<&Behaviour::line, LineState>},
    {"take", "BYTES", "accept this many more bytes, then the line is full",
     Set<&Behaviour::takesBytes, First<std::size_t>>},
    {"lose", "BYTES", "lose this many bytes from the host on their way",
     Set<&Behaviour::losesBytes, First<std::size_t>>},
    {"identity", "HEX", "answer the identity probe with these bytes",
     Set<&Behaviour::identity, Hex>},
    {"flash", "POSITION VALUE", "change a byte of the flash table", SetFlash},
    {"truncate", "BYTES", "cut replies to commands to this many bytes",
     SetReplies<&ReplyFault::truncateTo, First<std::size_t>>},
    {"late", "MS", "hold replies back", SetReplies<&ReplyFault::late, First<Milliseconds>>},
    {"split", "BYTES [MS]", "send replies in pieces, with a pause between", Split},
    {"garbage", "HEX", "put these bytes before each reply",
     SetReplies<&ReplyFault::garbageBefore, Hex>},
    {"replies", "COUNT", "spoil only this many more replies",
     SetReplies<&ReplyFault::replies, First<int>>},
    {"say", "HEX", "send these bytes now", Send},
    {"status", "", "send a status record now", SendStatus},
    {"status-every", "COUNT", "send one before every n-th request; 0 for none",
     Set<&Behaviour::statusEvery, First<int>>},
    {"ask", "on|off", "ask for further buffers, or stop asking", Set<&Behaviour::asks, Switch>},
    {"ask-late", "MS", "hold requests and delay reports back",
     Set<&Behaviour::asksLate, First<Milliseconds>>},
    {"refuse-start", "on|off", "ignore start commands", Set<&Behaviour::refusesStart, Switch>},
    {"echo", "on|off", "echo what is sent until the host configures the port",
     Set<&Behaviour::echoes, Switch>},
    {"keep-unsent", "on|off", "bytes sent to a closed port arrive when it is opened",
     Set<&Behaviour::keepsUnsent, Switch>},
    {"speed", "FACTOR", "of the sample clock; 0 plays as fast as the host delivers",
     Set<&Behaviour::speed, Factor>},
    {"clock-ppm", "PPM", "by how much the sample clock is too fast, in millionths",
     Set<&Behaviour::clockPpm, Ppm>},
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
