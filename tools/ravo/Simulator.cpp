#include "tools/ravo/Simulator.h"

#include "tools/ravo/Message.h"

#include "api/ravo.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <glob.h>
#include <unistd.h>
#include <vector>

namespace cli {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollInterval{20};

std::atomic<bool> s_isConnected{false};

void TakeConnection(bool connected) {
    s_isConnected.store(connected);
}

std::vector<std::string> PortsPresent(std::optional<int> port) {
    if (port) {
        const std::string path = Format("/dev/ttyACM%d", *port);
        return ::access(path.c_str(), F_OK) == 0 ? std::vector{path} : std::vector<std::string>{};
    }
    std::vector<std::string> paths;
    glob_t found{};
    if (::glob("/dev/ttyACM*", 0, nullptr, &found) == 0) {
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    ::globfree(&found);
    return paths;
}

[[noreturn]] void FailSearch(std::optional<int> port) {
    const auto paths = PortsPresent(port);
    const std::string where = port ? Format("/dev/ttyACM%d", *port) : "/dev/ttyACM*";
    if (paths.empty()) {
        Fail(kNoSimulator, where, "there is no such port, so no simulator.",
             "Plug the simulator in and switch it on; without one, run this under ravo-emulator.");
    }
    for (const std::string& path : paths) {
        if (::access(path.c_str(), R_OK | W_OK) != 0) {
            Fail(kNoSimulator, path, Format("may not be used: %s.", std::strerror(errno)),
                 "Give your user the port, as a rule by adding it to the group dialout, and log in "
                 "again.");
        }
    }
    Fail(kNoSimulator, where, "no port answers as a simulator does.",
         "Does another program hold it (/var/lock/tarnwick.ACM*.lock)? Just plugged in, a port may "
         "need 20 s.");
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

bool Simulator::WaitConnected(std::chrono::seconds timeout, const Interrupt& interrupt) const {
    const auto end = steady_clock::now() + timeout;
    while (!IsConnected()) {
        if (steady_clock::now() >= end) {
            FailSearch(m_port);
        }
        if (interrupt.WaitUntil(steady_clock::now() + kPollInterval)) {
            return false;
        }
    }
    return true;
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

} // namespace cli
