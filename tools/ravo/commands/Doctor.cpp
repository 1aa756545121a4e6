#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/machine/CalibrationFile.h"
#include "lab/machine/Locks.h"
#include "lab/machine/Modem.h"
#include "lab/machine/Ports.h"
#include "lab/machine/Processes.h"
#include "lab/session/Answer.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/CommonOptions.h"
#include "tools/ravo/JsonFailure.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sys/utsname.h>

namespace cli {

using namespace lab;

namespace {

// Incremented when a field changes its meaning or is removed, not when one is added.
constexpr int kJsonFormat = 1;

struct DoctorOptions {
    std::optional<int> port;
    int timeout = 5;
    bool isJson = false;
};

struct Report {
    std::vector<Finding> findings;
    std::optional<SimulatorInformation> simulator; // the first one that is ready to play
};

std::string KernelText() {
    utsname kernel{};
    ::uname(&kernel);
    return Format("%s %s %s", kernel.sysname, kernel.release, kernel.machine);
}

const char* Name(State state) {
    switch (state) {
    case State::kOk:
        return "ok";
    case State::kWarning:
        return "warning";
    case State::kFailed:
        return "failed";
    }
    return "";
}

// ---- The examination ----------------------------------------------------------------------------

class Examination {
  public:
    Examination(const DoctorOptions& options, const Interrupt& interrupt)
        : m_options(options), m_interrupt(interrupt) {}

    Report Run() {
        Note(CheckPorts(m_machine, m_options.port));
        const bool isLockable = Note(CheckLockDirectory(m_machine));
        for (const int port : PortsPresent(m_machine, m_options.port)) {
            m_path = PortPath(m_machine, port);
            const bool isFree = ExaminePort(port);
            ExamineDevice(port, isLockable && isFree);
            if (m_interrupt.Signal() != 0) {
                break;
            }
        }
        return std::move(m_report);
    }

  private:
    // Keeps the finding. Returns whether it permits the next check.
    bool Note(Finding finding) {
        finding.port = m_path;
        m_report.findings.push_back(std::move(finding));
        return m_report.findings.back().state != State::kFailed;
    }

    // Checks without opening the port. Returns whether it may be opened.
    bool ExaminePort(int port) {
        const bool isPermitted = Note(CheckPermission(m_machine, m_path));
        const bool isUnused = Note(CheckUse(m_machine, m_path));
        const bool isUnlocked = Note(CheckLock(m_machine, port));
        Note(CheckModemProbing(m_machine, m_path));
        return isPermitted && isUnused && isUnlocked;
    }

    void ExamineDevice(int port, bool isFree) {
        if (!isFree) {
            Note({State::kWarning, "answer", "not-asked", "not asked, because of the finding above",
                  ""});
        } else if (m_report.simulator) {
            Note({State::kOk, "answer", "not-asked", "not asked: the simulator is found", ""});
        } else {
            const std::chrono::seconds timeout(m_options.timeout);
            const Answer answer = AskPort(m_machine, port, timeout, m_interrupt);
            Note(answer.finding);
            m_report.simulator = answer.simulator;
            if (answer.simulator) {
                Note(
                    CheckCalibration(answer.simulator->dacBits, answer.simulator->calibrationFile));
            }
        }
    }

    const DoctorOptions& m_options;
    const Interrupt& m_interrupt;
    const Machine m_machine;
    std::string m_path;
    Report m_report;
};

ExitStatus StatusOf(const Report& report) {
    if (!report.simulator) {
        return kNoSimulator;
    }
    for (const Finding& finding : report.findings) {
        if (finding.check == "calibration" && finding.state == State::kFailed) {
            return kMaterial;
        }
    }
    return kDone;
}

// The first finding that keeps the simulator from playing.
Failure FailureOf(const Report& report) {
    const auto worst =
        std::find_if(report.findings.begin(), report.findings.end(),
                     [](const Finding& finding) { return finding.state == State::kFailed; });
    if (worst == report.findings.end()) {
        return Failure(StatusOf(report), "/dev/ttyACM*", "no usable simulator found.");
    }
    return Failure(StatusOf(report), worst->port.empty() ? worst->check : worst->port,
                   worst->sentence + ".", worst->cure);
}

// ---- The report ---------------------------------------------------------------------------------

void PrintCure(const std::string& cure) {
    for (std::size_t at = 0; at < cure.size();) {
        const std::size_t end = std::min(cure.find('\n', at), cure.size());
        std::printf("           %s\n", cure.substr(at, end - at).c_str());
        at = end + 1;
    }
}

std::string Verdict(const Report& report) {
    if (!report.simulator) {
        return "No usable simulator found.";
    }
    const std::string ready = "Simulator ready on " + report.simulator->device;
    return ready + (StatusOf(report) == kDone ? "." : ", but its calibration file is unusable.");
}

void PrintText(const Report& report) {
    std::printf("ravo %s, %s\n", LibraryVersion().c_str(), KernelText().c_str());
    for (const Finding& finding : report.findings) {
        const std::string where = finding.port.empty() ? "" : finding.port + " ";
        std::printf("%-7s  %s%s: %s\n", Name(finding.state), where.c_str(), finding.check.c_str(),
                    finding.sentence.c_str());
        PrintCure(finding.cure);
    }
    std::printf("%s\n", Verdict(report).c_str());
}

void AddOptional(Json& json, const char* key, const std::string& text) {
    json.Key(key);
    text.empty() ? json.Null() : json.Value(text);
}

void AddFindings(Json& json, const std::vector<Finding>& findings) {
    json.Key("findings").BeginArray();
    for (const Finding& finding : findings) {
        json.BeginObject();
        AddOptional(json, "port", finding.port);
        json.Field("check", finding.check)
            .Field("state", Name(finding.state))
            .Field("code", finding.code)
            .Field("found", finding.sentence);
        AddOptional(json, "cure", finding.cure);
        json.EndObject();
    }
    json.EndArray();
}

void PrintJson(const Report& report) {
    Json json;
    json.BeginObject()
        .Field("format", kJsonFormat)
        .Field("version", LibraryVersion())
        .Field("kernel", KernelText())
        .Field("plays", report.simulator.has_value());
    AddOptional(json, "device", report.simulator ? report.simulator->device : "");
    AddFindings(json, report.findings);
    if (StatusOf(report) != kDone) {
        WriteError(json, FailureOf(report));
    }
    json.EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int Diagnose(const DoctorOptions& options) {
    const Interrupt interrupt;
    const Report report = Examination(options, interrupt).Run();
    if (interrupt.Signal() != 0) {
        return kInterrupted + interrupt.Signal();
    }
    options.isJson ? PrintJson(report) : PrintText(report);
    return StatusOf(report);
}

} // namespace

void AddDoctor(CLI::App& app, Action& action) {
    auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand(
        "doctor", "Find out what keeps the simulator from playing, and how to fix it");
    AddPortOption(*command, options->port);
    AddTimeoutOption(*command, options->timeout);
    AddJsonOption(*command, options->isJson);
    command->footer("Exit status: 0 simulator ready, 2 its calibration file is unusable,\n"
                    "3 no usable simulator found.");
    command->callback([options, &action] { action = [options] { return Diagnose(*options); }; });
}

} // namespace cli
