#include "lab/session/Simulator.h"

#include "lab/common/Failure.h"
#include "lab/machine/Ports.h"

#include "api/ravo.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace lab {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{20};

std::atomic<bool> s_isConnected{false};

void TakeConnection(bool connected) {
    s_isConnected.store(connected);
}

[[noreturn]] void FailSearch(std::optional<int> port) {
    const Machine machine;
    const std::vector<int> present = PortsPresent(machine, port);
    const std::string where = port ? Format("/dev/ttyACM%d", *port) : "/dev/ttyACM*";
    if (present.empty()) {
        Fail(kNoSimulator, where, "there is no such port, so no simulator.",
             "Plug the simulator in and switch it on; without one, run this under ravo-emulator.");
    }
    for (const int number : present) {
        const std::string path = PortPath(machine, number);
        if (::access(path.c_str(), R_OK | W_OK) != 0) {
            Fail(kNoSimulator, path, Format("may not be used: %s.", std::strerror(errno)),
                 "`ravo doctor` says who may, and how you may.");
        }
    }
    Fail(kNoSimulator, where, "no port answers as a simulator does.",
         "`ravo doctor` says why. Just plugged in, a port may need 20 s.");
}

std::string FieldText(const char* field, std::size_t size) {
    const std::string text(field, ::strnlen(field, size));
    const auto last = text.find_last_not_of(' ');
    return Printable(last == std::string::npos ? "" : text.substr(0, last + 1));
}

} // namespace

Simulator::Simulator(std::optional<int> port) : m_port(port) {
    s_isConnected.store(false);
    const bool isSearching = port ? RAVOInitPort(*port, TakeConnection) : RAVOInit(TakeConnection);
    if (!isSearching) {
        Fail(kNoSimulator, "ravo", "cannot start the thread that searches for the simulator.");
    }
}

Simulator::~Simulator() {
    RAVOFree();
}

bool Simulator::Await(std::chrono::seconds timeout, const Interrupt& interrupt) const {
    const auto end = steady_clock::now() + timeout;
    while (!IsConnected()) {
        if (steady_clock::now() >= end ||
            interrupt.WaitUntil(steady_clock::now() + kPollInterval)) {
            return false;
        }
    }
    return true;
}

bool Simulator::WaitConnected(std::chrono::seconds timeout, const Interrupt& interrupt) const {
    const bool isConnected = Await(timeout, interrupt);
    if (!isConnected && interrupt.Signal() == 0) {
        FailSearch(m_port);
    }
    return isConnected;
}

bool Simulator::IsConnected() const {
    return s_isConnected.load();
}

SimulatorInformation DescribeSimulator() {
    SimulatorInformation simulator;
    MODEL_INFORMATION model{};
    if (RAVOGetDeviceInformation(&model)) {
        simulator.model = FieldText(model.ModelName, sizeof model.ModelName);
    }
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
