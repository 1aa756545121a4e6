#include "lab/session/Simulator.h"

#include "lab/common/Failure.h"
#include "lab/machine/Locks.h"
#include "lab/machine/Ports.h"
#include "lab/session/Connected.h"

#include "api/ravo.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>
#include <vector>

namespace lab {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{20};
constexpr std::chrono::seconds kProgressInterval{1};

// Identifying one port, identity and model, takes about two seconds.
constexpr std::chrono::seconds kPortPatience{5};

// Some old units never identify themselves.
constexpr int kRepetitions = 3;

std::atomic<bool> s_isConnected{false};
std::atomic<int> s_losses{0};

void TakeConnection(bool connected) {
    s_isConnected.store(connected);
    if (!connected) {
        s_losses.fetch_add(1);
    }
}

void StartSearch(std::optional<int> port) {
    s_isConnected.store(false);
    const bool isSearching = port ? RAVOInitPort(*port, TakeConnection) : RAVOInit(TakeConnection);
    if (!isSearching) {
        Fail(kNoSimulator, "ravo", "cannot start the thread that searches for the simulator.");
    }
}

std::string PortsText(std::optional<int> port) {
    return port ? Format("/dev/ttyACM%d", *port) : "/dev/ttyACM*";
}

// The first port that another program holds, with the program: "/dev/ttyACM0 is in use by ravo
// (process 712)"; empty when a port is free or there is none.
std::string WhoHoldsAll(const std::vector<int>& ports) {
    const Machine machine;
    std::string first;
    for (const int port : ports) {
        const std::string holder = LockHolder(machine, port);
        if (holder.empty()) {
            return "";
        }
        if (first.empty()) {
            first = PortPath(machine, port) + " is in use by " + holder;
        }
    }
    return first;
}

std::string WhatIsAwaited(std::optional<int> port) {
    const Machine machine;
    const std::vector<int> present = PortsPresent(machine, port);
    if (present.empty()) {
        return "there is no " + PortsText(port);
    }
    const std::string holder = WhoHoldsAll(present);
    return holder.empty() ? "waiting for an answer on " + PortsText(port) : holder;
}

void RequireUsable(const Machine& machine, const std::vector<int>& ports) {
    for (const int number : ports) {
        const std::string path = PortPath(machine, number);
        if (::access(path.c_str(), R_OK | W_OK) != 0) {
            Fail(kNoSimulator, path, Format("permission denied: %s.", std::strerror(errno)),
                 "Run `ravo doctor` for the fix.");
        }
        const std::string holder = LockHolder(machine, number);
        if (!holder.empty()) {
            Fail(kNoSimulator, path, "is in use by " + holder + ".",
                 "Wait for its end with --wait, or end it.");
        }
    }
}

[[noreturn]] void FailSearch(std::optional<int> port, const std::string& serial) {
    const Machine machine;
    const std::vector<int> present = PortsPresent(machine, port);
    if (present.empty()) {
        Fail(kNoSimulator, PortsText(port), "there is no such port, so no simulator.",
             "Plug the simulator in and switch it on; without one, run this under ravo-emulator.");
    }
    RequireUsable(machine, present);
    if (!serial.empty()) {
        Fail(kNoSimulator, PortsText(port),
             "no simulator with the serial number " + Printable(serial) + " answers.",
             "`ravo devices` lists those that do.");
    }
    Fail(kNoSimulator, PortsText(port), "no port answers like a simulator.",
         "`ravo doctor` says why. A port that was just plugged in may need 20 s.");
}

// Without a reply there are only two letters; a late reply is not a serial number.
bool IsSerialNumber(const std::string& text) {
    constexpr std::size_t kPrefix = 2;
    return text.size() > kPrefix &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::string FieldText(const char* field, std::size_t size) {
    const std::string text(field, ::strnlen(field, size));
    const auto last = text.find_last_not_of(' ');
    return Printable(last == std::string::npos ? "" : text.substr(0, last + 1));
}

} // namespace

Simulator::Simulator(std::optional<int> port, std::string serial)
    : m_port(port), m_serial(std::move(serial)), m_repetitions(kRepetitions) {
    if (m_serial.empty()) {
        StartSearch(port);
    }
}

Simulator::~Simulator() {
    RAVOFree();
    s_isConnected.store(false);
}

// A 16-bit unit that is taken for a 12-bit one would play nothing but wrong voltages.
bool Simulator::IsAskedAgain() const {
    if (!m_serial.empty() || m_repetitions == 0 || DescribeSimulator().isKnown) {
        return false;
    }
    --m_repetitions;
    RAVOFree();
    StartSearch(m_port);
    return true;
}

bool Simulator::AwaitUntil(steady_clock::time_point end, const Interrupt& interrupt) const {
    while (!IsConnected() || IsAskedAgain()) {
        if (steady_clock::now() >= end ||
            interrupt.WaitUntil(steady_clock::now() + kPollInterval)) {
            return false;
        }
    }
    return true;
}

// Identifies the simulator on the port and keeps the connection if it is the requested one.
bool Simulator::TryPort(int port, steady_clock::time_point end, const Interrupt& interrupt) const {
    StartSearch(port);
    const auto patience = std::min(end, steady_clock::now() + kPortPatience);
    if (AwaitUntil(patience, interrupt) && DescribeSimulator().serial == m_serial) {
        return true;
    }
    RAVOFree();
    s_isConnected.store(false);
    return false;
}

bool Simulator::TryPorts(steady_clock::time_point end, const Interrupt& interrupt) const {
    const Machine machine;
    for (const int port : PortsPresent(machine, m_port)) {
        if (LockHolder(machine, port).empty() && TryPort(port, end, interrupt)) {
            return true;
        }
        if (interrupt.Signal() != 0) {
            break;
        }
    }
    return false;
}

bool Simulator::Await(steady_clock::duration time, const Interrupt& interrupt) const {
    const auto end = steady_clock::now() + time;
    if (m_serial.empty()) {
        return AwaitUntil(end, interrupt);
    }
    constexpr std::chrono::milliseconds kPause{200};
    while (!TryPorts(end, interrupt)) {
        const auto now = steady_clock::now();
        if (now >= end || interrupt.WaitUntil(std::min(end, now + kPause))) {
            return false;
        }
    }
    return true;
}

bool Simulator::WaitConnected(std::chrono::seconds timeout, const Interrupt& interrupt) const {
    SimulatorChoice choice;
    choice.timeout = static_cast<int>(timeout.count());
    return WaitConnected(choice, interrupt, nullptr);
}

bool Simulator::WaitConnected(const SimulatorChoice& choice, const Interrupt& interrupt,
                              const SearchProgress& progress) const {
    const auto start = steady_clock::now();
    auto end = start + std::chrono::seconds(choice.timeout);
    const steady_clock::duration step = m_serial.empty() ? kProgressInterval : kPortPatience;
    while (interrupt.Signal() == 0) {
        if (Await(std::min(step, end - steady_clock::now()), interrupt)) {
            return true;
        }
        const auto now = steady_clock::now();
        const bool isHeld = !WhoHoldsAll(PortsPresent(Machine(), m_port)).empty();
        if (isHeld && choice.isPatient) {
            end = now + std::chrono::seconds(choice.timeout);
        }
        if (now >= end) {
            FailSearch(m_port, m_serial);
        }
        if (progress && interrupt.Signal() == 0) {
            progress(std::chrono::duration<double>(now - start).count(), WhatIsAwaited(m_port));
        }
    }
    return false;
}

bool Simulator::IsConnected() const {
    return IsSimulatorConnected();
}

int Simulator::Losses() const {
    return s_losses.load();
}

bool IsSimulatorConnected() {
    return s_isConnected.load();
}

SimulatorInformation DescribeSimulator() {
    SimulatorInformation simulator;
    MODEL_INFORMATION model{};
    if (RAVOGetDeviceInformation(&model)) {
        simulator.model = FieldText(model.ModelName, sizeof model.ModelName);
    }
    simulator.isKnown = IsSerialNumber(RAVOGetSerialNumber());
    simulator.serial = Printable(RAVOGetSerialNumber());
    RAVO_OUTPUT_INFORMATION output{};
    if (RAVOGetOutputInformation(&output)) {
        simulator.device = output.DevicePath;
        simulator.dacBits = static_cast<int>(output.DACBits);
        simulator.isCalibrated = output.CalibrationLoaded != 0;
        simulator.calibrationFile = output.CalibrationFile;
    }
    return simulator;
}

std::string LibraryVersion() {
    const unsigned int version = RAVOGetVersion();
    return Format("%u.%u.%u.%u", version >> 24, (version >> 16) & 0xFF, (version >> 8) & 0xFF,
                  version & 0xFF);
}

} // namespace lab
