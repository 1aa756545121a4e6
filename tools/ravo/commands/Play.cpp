#include "lab/common/Failure.h"
#include "lab/common/Json.h"
#include "lab/material/Record.h"
#include "lab/session/Simulator.h"
#include "tools/ravo/commands/Commands.h"
#include "tools/ravo/commands/MaterialOptions.h"
#include "tools/ravo/commands/Validators.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace cli {

using namespace lab;

namespace {

using std::chrono::steady_clock;

constexpr double kOutputLimit = 5.0; // millivolts
constexpr std::chrono::milliseconds kTerminalInterval{200};
constexpr std::chrono::milliseconds kPlainInterval{1000};
constexpr std::chrono::milliseconds kWatchInterval{100};

// The display thread reports output only once it runs.
constexpr std::chrono::seconds kStartGrace{2};

// The simulator's clock begins with the first buffer, a little after the host's.
constexpr std::chrono::milliseconds kStartLatency{50};

struct PlayOptions {
    MaterialRequest material;
    int start = 0;
    double seconds = 0.0; // 0: to the end
    bool isLoop = false;
    bool isJson = false;
    std::optional<int> port;
    int timeout = 10;
    double speedUp = 1.0;
};

// The delay callback runs on the library's own thread.
struct Delays {
    std::atomic<int> count{0};
    std::atomic<int> largest{0};
};

Delays s_delays;

void TakeDelay(int delay) {
    s_delays.count.fetch_add(1);
    int largest = s_delays.largest.load();
    while (delay > largest && !s_delays.largest.compare_exchange_weak(largest, delay)) {
    }
}

enum class Ending { kFinished, kInterrupted, kLost };

struct Outcome {
    Ending ending = Ending::kFinished;
    double elapsed = 0.0; // seconds by the clock
    double played = 0.0;  // seconds of material
    int signal = 0;
};

// ---- What is to be played -----------------------------------------------------------------------

// Seconds of material: what was asked for, but without looping not beyond the end.
double SecondsToPlay(const Record& record, const PlayOptions& options) {
    const double endless = std::numeric_limits<double>::infinity();
    const double wanted = options.seconds > 0.0 ? options.seconds : endless;
    return options.isLoop ? wanted : std::min(wanted, record.Seconds() - options.start);
}

void WarnOfClipping(const Record& record) {
    if (record.isEndless) {
        return;
    }
    std::array<double, kOutputCount> largest{};
    ForEachSample(0, static_cast<int>(std::ceil(record.Seconds())), [&](const double* leads) {
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            largest[i] = std::max(largest[i], std::fabs(leads[LeadOfOutput(i)]));
        }
    });
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        if (largest[i] > kOutputLimit) {
            Warn(Format("%s: lead %s reaches %.3f mV and is clipped at %g mV",
                        Printable(record.name).c_str(), kOutputNames[i], largest[i], kOutputLimit));
        }
    }
}

// ---- Progress -----------------------------------------------------------------------------------

std::string ClockText(double seconds) {
    const auto tenths = static_cast<int64_t>(seconds * 10.0);
    const auto minutes = tenths / 600;
    return Format("%lld:%02lld.%lld", static_cast<long long>(minutes),
                  static_cast<long long>(tenths / 10 % 60), static_cast<long long>(tenths % 10));
}

// Where in the material the simulator is after `played` seconds from `start`. Native text repeats
// from its beginning, everything else from the start position.
double PositionAfter(const Record& record, int start, double played) {
    const double end = record.Seconds();
    if (start + played <= end) {
        return start + played;
    }
    return record.type == WAVEFORM_TYPE_TARNWICK ? std::fmod(start + played, end)
                                                 : start + std::fmod(played, end - start);
}

class Progress {
  public:
    Progress(const Record& record, int start, bool isQuiet)
        : m_record(record), m_start(start), m_isQuiet(isQuiet),
          m_isTerminal(::isatty(STDERR_FILENO) == 1) {}

    std::chrono::milliseconds Interval() const {
        return m_isTerminal ? kTerminalInterval : kPlainInterval;
    }

    void Show(double elapsed, double played) const {
        if (m_isQuiet) {
            return;
        }
        const std::string length = m_record.isEndless ? "" : " of " + ClockText(m_record.Seconds());
        const std::string line =
            Format("%s  position %s%s  %lld/s  delays %d", ClockText(elapsed).c_str(),
                   ClockText(PositionAfter(m_record, m_start, played)).c_str(), length.c_str(),
                   static_cast<long long>(m_record.FramesPerSecond()), s_delays.count.load());
        std::fprintf(stderr, m_isTerminal ? "\r%s\033[K" : "%s\n", line.c_str());
        std::fflush(stderr);
    }

    void Finish() const {
        if (m_isTerminal && !m_isQuiet) {
            std::fputs("\r\033[K", stderr);
        }
    }

  private:
    const Record& m_record;
    int m_start;
    bool m_isQuiet;
    bool m_isTerminal;
};

// ---- Playing ------------------------------------------------------------------------------------

steady_clock::duration ToClock(double seconds) {
    constexpr double kForever = 1e8;
    return std::chrono::duration_cast<steady_clock::duration>(
        std::chrono::duration<double>(std::min(seconds, kForever)));
}

bool IsOutputLost(const Simulator& simulator, steady_clock::duration sinceStart) {
    return !simulator.IsConnected() || (!RAVOIsOutputting() && sinceStart > kStartGrace);
}

// Waits for the end of the material by the clock: the simulator plays in real time, and the host
// learns nothing of where it is.
Outcome WatchOutput(const PlayOptions& options, const Simulator& simulator,
                    const Interrupt& interrupt, const Progress& progress, double seconds,
                    steady_clock::time_point start) {
    const auto end = start + kStartLatency + ToClock(seconds / options.speedUp);
    auto nextLine = start;
    Outcome outcome;
    for (;;) {
        const auto now = steady_clock::now();
        outcome.elapsed = std::chrono::duration<double>(now - start).count();
        outcome.played = std::min(outcome.elapsed * options.speedUp, seconds);
        if (now >= nextLine) {
            progress.Show(outcome.elapsed, outcome.played);
            nextLine += progress.Interval();
        }
        if (IsOutputLost(simulator, now - start)) {
            outcome.ending = Ending::kLost;
            return outcome;
        }
        if (now >= end) {
            return outcome;
        }
        if (interrupt.WaitUntil(std::min({end, nextLine, now + kWatchInterval}))) {
            outcome.ending = Ending::kInterrupted;
            outcome.signal = interrupt.Signal();
            return outcome;
        }
    }
}

// Looping is always on: the end of the preview, which runs at twice real time, would otherwise end
// the output half-way.
Outcome PlayLoaded(const PlayOptions& options, const Record& record, const Simulator& simulator,
                   const Interrupt& interrupt) {
    RAVOEnableLoop(true);
    const auto start = steady_clock::now();
    if (!RAVOOutputWaveform(options.start, nullptr, TakeDelay)) {
        Fail(kOutputLost, "simulator", "does not take the start command.",
             "Is it still plugged in and switched on?");
    }
    const Progress progress(record, options.start, options.isJson);
    const Outcome outcome =
        WatchOutput(options, simulator, interrupt, progress, SecondsToPlay(record, options), start);
    RAVOStopOutput();
    progress.Finish();
    return outcome;
}

// ---- Results ------------------------------------------------------------------------------------

const char* EndingText(Ending ending) {
    return ending == Ending::kFinished      ? "finished"
           : ending == Ending::kInterrupted ? "interrupted"
                                            : "lost";
}

void PrintText(const PlayOptions& options, const Record& record, const Outcome& outcome,
               const SimulatorInformation& simulator) {
    std::printf("played %s on %s %s at %s\n", Printable(record.name).c_str(),
                simulator.model.c_str(), simulator.serial.c_str(), simulator.device.c_str());
    std::printf("  %.1f s from second %d, %lld samples per second, %s\n", outcome.played,
                options.start, static_cast<long long>(record.rate), EndingText(outcome.ending));
    std::printf("  delays reported: %d\n", s_delays.count.load());
}

void PrintJson(const PlayOptions& options, const Record& record, const Outcome& outcome,
               const SimulatorInformation& simulator) {
    Json json;
    json.BeginObject()
        .Field("record", record.name)
        .Field("source", record.source)
        .Field("device", simulator.device)
        .Field("model", simulator.model)
        .Field("serial", simulator.serial)
        .Field("calibrated", simulator.isCalibrated)
        .Field("start", options.start)
        .Field("seconds", outcome.played)
        .Field("elapsed", outcome.elapsed)
        .Field("rate", record.rate)
        .Field("delays", s_delays.count.load())
        .Field("largestDelay", s_delays.largest.load())
        .Field("result", EndingText(outcome.ending))
        .EndObject();
    std::printf("%s\n", json.Text().c_str());
}

int Play(const PlayOptions& options) {
    const Interrupt interrupt;
    const Record record = LoadRecord(options.material);
    for (const std::string& warning : record.warnings) {
        Warn(warning);
    }
    RequirePlayable(record);
    RequireStart(record, options.start);
    WarnOfClipping(record);

    const Simulator simulator(options.port);
    if (!simulator.WaitConnected(std::chrono::seconds(options.timeout), interrupt)) {
        return kInterrupted + interrupt.Signal();
    }
    const SimulatorInformation information = DescribeSimulator();
    const Outcome outcome = PlayLoaded(options, record, simulator, interrupt);
    const auto print = options.isJson ? PrintJson : PrintText;
    print(options, record, outcome, information);
    if (outcome.ending == Ending::kLost) {
        Fail(kOutputLost, information.device,
             Format("output ended after %.1f s: the simulator is gone or no longer asks for data.",
                    outcome.elapsed),
             "Check the cable; a busy machine or hub can also starve it.");
    }
    return outcome.ending == Ending::kInterrupted ? kInterrupted + outcome.signal : kDone;
}

} // namespace

void AddPlay(CLI::App& app, Action& action) {
    auto options = std::make_shared<PlayOptions>();
    CLI::App* command = app.add_subcommand("play", "Play a record or a waveform on the simulator");
    command
        ->add_option(
            "MATERIAL", options->material.name,
            "Record file (.hea, .ecg, .dcd, .txt, .edf), builtin:NAME, or sine, triangle, square, "
            "rectangle-pulse, triangle-pulse, calibration, staircase")
        ->required();
    command->add_option("--start", options->start, "Second of the record to start at")
        ->check(CLI::Range(0, 1'000'000));
    command->add_option("--seconds", options->seconds, "Seconds to play; else to the end")
        ->check(Between(0.001, 1e8));
    command->add_flag("--loop", options->isLoop,
                      "Start over at the end, until Ctrl-C or --seconds");
    command->add_option("--port", options->port, "Use /dev/ttyACMN")->check(CLI::Range(0, 127));
    command->add_option("--timeout", options->timeout, "Seconds to search for the simulator")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command
        ->add_option("--speed-up", options->speedUp,
                     "For emulated simulators that run this many times faster than real time")
        ->check(Between(1.0, 1000.0));
    command->add_flag("--json", options->isJson, "Result as JSON, no progress");
    AddMaterialOptions(*command, options->material);
    command->callback([options, &action] { action = [options] { return Play(*options); }; });
}

} // namespace cli
