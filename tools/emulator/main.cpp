// ravo-emulator: an emulated simulator, for machines without a real one.
#include "lab/common/RunProgram.h"
#include "lab/common/StandardStreams.h"
#include "tools/emulator/ChildCommand.h"
#include "tools/emulator/Control.h"
#include "tools/emulator/Identity.h"
#include "tools/emulator/RecordWriter.h"
#include "tools/emulator/Sandbox.h"
#include "tools/emulator/Simulator.h"
#include "tools/emulator/Summary.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

using namespace emulator;

namespace {

// A control line, and the time at which it is carried out, counted from the appearance of the
// simulator.
struct TimedFault {
    double seconds = 0.0;
    std::string line;
};

struct Options {
    std::string unit = "16";
    int port = 0;
    double speed = 1.0;
    double clockPpm = 0.0;
    std::size_t bufferBytes = 2 * kBufferBytes;
    std::string identity;
    std::vector<std::string> flash;
    int linkId = -1;
    bool isUncalibrated = false;
    bool hasNoCalibrationFile = false;
    double range = 0.0;
    std::string record;
    bool showsSummary = false;
    std::string json;
    std::vector<std::string> faults;
    bool isAbsent = false;
    std::string control;
    std::vector<std::string> tell;
    bool usesNoSandbox = false;
    std::vector<std::string> command;
};

constexpr const char* kExitCodes =
    "Exit status: that of COMMAND (128 and the signal if a signal ended it); without COMMAND 0\n"
    "after SIGINT or SIGTERM. 125 if the emulator itself failed, 126 if COMMAND cannot be\n"
    "executed, 127 if it is not found. With --tell: 0 if the command was carried out, else 1.\n";

constexpr const char* kDescription =
    "An emulated simulator on a pseudo-terminal. Runs COMMAND in a private /dev, /var/lock and\n"
    "/usr/local/tarnwick in which the simulator is present as /dev/ttyACM0, and decodes the\n"
    "bytes it receives. Without COMMAND it serves until it is interrupted.\n"
    "Example: ravo-emulator -o outputs --summary -- ravo play 100.hea --seconds 10";

std::string Footer() {
    return "Faults, for --fault, --tell and the lines of the control socket:\n" + ControlHelp() +
           "--fault '@2.5 vanish' does it 2.5 seconds after the simulator has appeared.\n\n" +
           kExitCodes;
}

// CLI11 would print a bound of three hundred digits, and accept "nan".
CLI::Validator FiniteNumber(const std::string& kind, bool (*isOfKind)(double)) {
    return {[kind, isOfKind](std::string& text) {
                double value = 0.0;
                const bool isNumber = CLI::detail::lexical_cast(text, value);
                return isNumber && std::isfinite(value) && isOfKind(value)
                           ? std::string()
                           : "\"" + text + "\" is not a number " + kind;
            },
            ""};
}

void AddDeviceOptions(CLI::App& app, Options& options) {
    app.add_option("--unit", options.unit, "16 or 12 bits, or a legacy unit")
        ->check(CLI::IsMember({"16", "12", "legacy"}))
        ->capture_default_str();
    app.add_option("--port", options.port, "the N of /dev/ttyACMN")
        ->check(CLI::Range(0, 127))
        ->capture_default_str();
    app.add_option("--speed", options.speed,
                   "factor of the sample clock; 0 plays as fast as the host delivers")
        ->check(FiniteNumber("of 0 or more", [](double value) { return value >= 0.0; }))
        ->capture_default_str();
    app.add_option("--clock-ppm", options.clockPpm,
                   "by how much the sample clock is too fast, in millionths")
        ->check(FiniteNumber("from -100000 to 100000", IsClockPpm))
        ->capture_default_str();
    app.add_option("--buffer", options.bufferBytes, "bytes that the simulator can hold, from 3200")
        ->check(CLI::Range(kBufferBytes, std::size_t{1} << 30U))
        ->capture_default_str();
    app.add_option("--identity", options.identity,
                   "answer to the identity probe, in hexadecimal (5256323000 is right)");
    app.add_option("--flash", options.flash, "POSITION=VALUE changes a byte of the flash table");
    app.add_option("--link-id", options.linkId, "answer to the link id request")
        ->check(CLI::Range(0, 255));
    app.add_flag("--uncalibrated", options.isUncalibrated,
                 "12-bit converters with errors, and the calibration file that describes them");
    app.add_flag("--no-calibration-file", options.hasNoCalibrationFile,
                 "with --uncalibrated: the errors without the file");
    app.add_flag("--absent", options.isAbsent, "appear only when told to return");
}

void AddOutputOptions(CLI::App& app, Options& options) {
    app.add_option("-o,--output", options.record,
                   "write the outputs as a WFDB record (a second start makes NAME_2)");
    app.add_option("--range", options.range,
                   "full scale of the record in mV instead of the start command's whole number")
        ->check(FiniteNumber("above 0", [](double value) { return value > 0.0; }));
    app.add_flag("--summary", options.showsSummary, "print the figures at the end");
    app.add_option("--json", options.json, "write the figures as JSON to a file, - for stdout");
}

void AddControlOptions(CLI::App& app, Options& options) {
    app.add_option("--fault", options.faults, "carry out a fault (see below); may be repeated")
        ->take_all()
        ->type_name("LINE")
        ->allow_extra_args(false);
    app.add_option("--control", options.control, "listen on this socket for faults, one per line");
    app.add_option("--tell", options.tell, "send a fault to the emulator on a control socket")
        ->type_name("SOCKET LINE")
        ->expected(2);
    app.add_flag("--no-sandbox", options.usesNoSandbox,
                 "use the machine's own /dev, where no private one is allowed");
    app.add_option("COMMAND", options.command, "the command to run, after --");
}

std::vector<TimedFault> ParseFaults(const std::vector<std::string>& lines) {
    std::vector<TimedFault> faults;
    for (const std::string& line : lines) {
        TimedFault fault{0.0, line};
        if (!line.empty() && line[0] == '@') {
            std::size_t used = 0;
            try {
                fault.seconds = std::stod(line.substr(1), &used);
            } catch (const std::exception&) {
                used = 0;
            }
            if (used == 0 || !std::isfinite(fault.seconds) || fault.seconds < 0) {
                throw std::invalid_argument("--fault '" + line + "': @SECONDS LINE is expected");
            }
            fault.line = line.substr(1 + used);
        }
        if (!IsKnown(fault.line)) {
            throw std::invalid_argument("--fault '" + line + "': no such fault; --help lists them");
        }
        faults.push_back(fault);
    }
    std::stable_sort(faults.begin(), faults.end(), [](const TimedFault& a, const TimedFault& b) {
        return a.seconds < b.seconds;
    });
    return faults;
}

void SetFlashByte(FlashTable& flash, const std::string& setting) {
    std::size_t position = 0;
    unsigned value = 0;
    int used = 0;
    const bool isUnderstood =
        std::sscanf(setting.c_str(), "%2zu=%3u%n", &position, &value, &used) == 2 &&
        static_cast<std::size_t>(used) == setting.size();
    if (!isUnderstood || position >= flash.size() || value > UINT8_MAX) {
        throw std::invalid_argument("--flash '" + setting +
                                    "': POSITION=VALUE is expected, 0 to 63 and 0 to 255");
    }
    flash[position] = static_cast<std::uint8_t>(value);
}

Settings SettingsFrom(const Options& options) {
    static const std::map<std::string, Unit> kUnits = {
        {"16", Unit::kSixteenBit}, {"12", Unit::kTwelveBit}, {"legacy", Unit::kLegacy}};
    Settings settings = Settings::Of(kUnits.at(options.unit), options.port);
    settings.isPresent = !options.isAbsent;
    settings.bufferBytes = options.bufferBytes;
    settings.keepFrames = 0; // counting and writing do not need frames in memory
    settings.behaviour.speed = options.speed;
    settings.behaviour.clockPpm = options.clockPpm;
    if (!options.identity.empty()) {
        settings.behaviour.identity = ParseHex(options.identity);
    }
    for (const std::string& setting : options.flash) {
        SetFlashByte(settings.behaviour.flash, setting);
    }
    if (options.linkId >= 0) {
        settings.behaviour.linkId = static_cast<std::uint8_t>(options.linkId);
    }
    return settings;
}

void WriteCalibrationFile(const ConverterModel& model, const Settings& settings) {
    const std::string path = CalibrationFilePath(settings.unit, settings.behaviour);
    if (!model.WriteCalibrationFile(path)) {
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    }
}

// Checked first, so that a mistyped directory is reported before hours of play.
void RequireWritableDirectory(const std::string& record) {
    const std::string directory = record.substr(0, record.rfind('/') + 1);
    if (access(directory.empty() ? "." : directory.c_str(), W_OK | X_OK) != 0) {
        throw std::runtime_error("cannot write " + record + ": " + std::strerror(errno));
    }
}

// Runs the simulator until the command has ended or a signal requests the end.
class Session {
  public:
    Session(Simulator& simulator, std::vector<TimedFault> faults, ChildCommand* command)
        : m_simulator(simulator), m_faults(std::move(faults)), m_command(command) {}

    // Blocked before any thread is made, so that the signals wait for WaitForSignal.
    static void BlockSignals() {
        const sigset_t waited = WaitedSignals();
        sigprocmask(SIG_BLOCK, &waited, nullptr);
        // The parent may have left it ignored, and waiting for an ignored signal does not work.
        std::signal(SIGCHLD, SIG_DFL);
    }

    // Returns the exit status.
    int Run() {
        CarryOutDueFaults();
        if (m_command != nullptr) {
            m_command->LetGo();
        }
        for (;;) {
            const bool isAskedToEnd = WaitForSignal();
            if (m_command != nullptr && m_command->HasEnded()) {
                return m_command->Status();
            }
            if (m_command == nullptr && isAskedToEnd) {
                return 0;
            }
            CarryOutDueFaults();
        }
    }

  private:
    static sigset_t WaitedSignals() {
        sigset_t waited;
        sigemptyset(&waited);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
            sigaddset(&waited, signal);
        }
        return waited;
    }

    // Waits for a signal or the time of the next fault.  Returns whether the signal requests the
    // end.
    bool WaitForSignal() const {
        const sigset_t waited = WaitedSignals();
        const timespec timeout = TimeUntilFault();
        siginfo_t info = {};
        const int signal =
            m_faults.empty() ? sigwaitinfo(&waited, &info) : sigtimedwait(&waited, &info, &timeout);
        const bool isRequest = signal > 0 && signal != SIGCHLD;
        // A signal from the terminal's keyboard reaches the command as well.
        if (isRequest && m_command != nullptr && info.si_code != SI_KERNEL) {
            m_command->Signal(signal);
        }
        return isRequest;
    }

    timespec TimeUntilFault() const {
        if (m_faults.empty()) {
            return {};
        }
        const std::chrono::duration<double> passed = Clock::now() - m_begin;
        const double left = std::clamp(m_faults.front().seconds - passed.count(), 0.0, 1e6);
        const double whole = std::floor(left);
        return {static_cast<time_t>(whole), static_cast<long>((left - whole) * 1e9)};
    }

    void CarryOutDueFaults() {
        const std::chrono::duration<double> passed = Clock::now() - m_begin;
        while (!m_faults.empty() && m_faults.front().seconds <= passed.count()) {
            const std::string reply = Execute(m_simulator, m_faults.front().line);
            if (reply.rfind("error: ", 0) == 0) {
                throw std::runtime_error("--fault " + reply.substr(std::strlen("error: ")));
            }
            m_faults.erase(m_faults.begin());
        }
    }

    Simulator& m_simulator;
    std::vector<TimedFault> m_faults;
    ChildCommand* m_command;
    const Clock::time_point m_begin = Clock::now();
};

void Announce(Simulator& simulator, const Options& options) {
    if (!options.command.empty()) {
        return;
    }
    std::printf("%s\n", simulator.Path().c_str());
    lab::RequireWrittenOutput();
    if (!options.usesNoSandbox) {
        const char* userNamespace = geteuid() == 0 ? "" : "--user --preserve-credentials ";
        std::fprintf(stderr,
                     "The simulator is in a private /dev. To work beside it in another shell:\n"
                     "  nsenter --target %d %s--mount --wd=.\n",
                     getpid(), userNamespace);
    }
}

bool WriteJson(const std::string& path, const std::string& json) {
    std::FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        return false;
    }
    const bool isWritten = std::fprintf(file, "%s\n", json.c_str()) > 0;
    return std::fclose(file) == 0 && isWritten;
}

void Report(const Journal& journal, const Options& options) {
    if (options.showsSummary) {
        std::printf("%s", TextSummary(journal).c_str());
    }
    if (options.json == "-") {
        std::printf("%s\n", JsonSummary(journal).c_str());
    } else if (!options.json.empty() && !WriteJson(options.json, JsonSummary(journal))) {
        throw std::runtime_error("cannot write " + options.json + ": " + std::strerror(errno));
    }
}

int Serve(const Options& options) {
    std::vector<TimedFault> faults = ParseFaults(options.faults);
    const Settings settings = SettingsFrom(options);
    Session::BlockSignals();
    std::string whyNot;
    if (!options.usesNoSandbox && !EnterSandbox(whyNot)) {
        throw std::runtime_error(whyNot + " Or give --no-sandbox, which uses the machine's own "
                                          "/dev and needs the right to write there.");
    }
    std::optional<ChildCommand> command;
    if (!options.command.empty()) {
        command.emplace(options.command);
    }
    const bool isUncalibrated = options.isUncalibrated && settings.unit != Unit::kSixteenBit;
    const ConverterModel model =
        isUncalibrated ? ConverterModel::Uncalibrated() : ConverterModel::Ideal();
    if (isUncalibrated && !options.hasNoCalibrationFile) {
        WriteCalibrationFile(model, settings);
    }
    std::unique_ptr<RecordWriter> writer;
    if (!options.record.empty()) {
        writer =
            std::make_unique<RecordWriter>(options.record, settings.unit, options.range, model);
        RequireWritableDirectory(options.record);
    }

    int status = kOwnFailure;
    {
        Simulator simulator(settings, writer.get());
        std::optional<ControlServer> control;
        if (!options.control.empty()) {
            control.emplace(options.control, simulator);
        }
        Announce(simulator, options);
        status = Session(simulator, std::move(faults), command ? &*command : nullptr).Run();
        control.reset();
        // The command's last bytes still count, and so does a play that it left running.
        simulator.TakeRest();
        simulator.Vanish();
        Report(simulator.Seen(), options);
    }
    if (writer && !writer->Error().empty()) {
        throw std::runtime_error(writer->Error());
    }
    return status;
}

int TellOther(const Options& options) {
    const std::string reply = Tell(options.tell[0], options.tell[1]);
    const bool failed = reply.rfind("error: ", 0) == 0;
    std::fprintf(failed ? stderr : stdout, "%s\n", reply.c_str());
    return failed ? 1 : 0;
}

int Run(int argc, char** argv) {
    CLI::App app(kDescription, "ravo-emulator");
    Options options;
    app.set_version_flag("--version", "ravo-emulator " RAVO_VERSION);
    AddDeviceOptions(app, options);
    AddOutputOptions(app, options);
    AddControlOptions(app, options);
    app.footer(Footer());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kOwnFailure;
    }
    return options.tell.empty() ? Serve(options) : TellOther(options);
}

} // namespace

int main(int argc, char** argv) {
    return lab::RunProgram("ravo-emulator", kOwnFailure, [&] { return Run(argc, argv); });
}
