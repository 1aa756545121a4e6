#include "lab/session/Play.h"

#include "lab/common/WallClock.h"
#include "lab/material/LoadedSamples.h"
#include "lab/session/Due.h"

#include "api/ravo.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace lab {
namespace {

using std::chrono::steady_clock;

constexpr double kOutputLimit = 5.0; // millivolts
constexpr std::chrono::milliseconds kProgressInterval{200};
constexpr std::chrono::milliseconds kWatchInterval{50};

// The library gives up on a silent simulator after 10 s; this limit is for cases that it does not
// notice.
constexpr std::chrono::seconds kSilence{11};

// At most this much of the time between two checks counts as silence. A process that was stopped or
// starved could not check, and the responses of that time are still pending.
constexpr std::chrono::seconds kLongestLook{1};

// A write to a simulator that is unplugged fails and ends the output before the monitor reports the
// loss, which takes up to 1.3 s on the kernel's driver, and longer when the monitor is starved.
// Nothing else shows that a simulator that has returned by then was lost.
constexpr std::chrono::seconds kLossPatience{5};

// The delay callback runs on the library's own thread and takes no user argument.
std::atomic<int> s_largestDelay{0};

void TakeDelay(int delay) {
    int largest = s_largestDelay.load();
    while (delay > largest && !s_largestDelay.compare_exchange_weak(largest, delay)) {
    }
}

// ---- The output ---------------------------------------------------------------------------------

RAVO_OUTPUT_POSITION OutputPosition() {
    RAVO_OUTPUT_POSITION position{};
    RAVOGetOutputPosition(&position);
    return position;
}

// One output that has been started, watched until it ends.
class Watch {
  public:
    Watch(const PlayRequest& request, const Record& record, const Simulator& simulator,
          const Interrupt& interrupt)
        : m_request(request), m_record(record), m_simulator(simulator), m_interrupt(interrupt),
          m_framesDue(FramesDue(request, record)), m_losses(simulator.Losses()) {}

    Ending Run(const std::function<void(const PlayPosition&)>& progress) {
        auto nextProgress = m_start;
        for (;;) {
            const auto now = steady_clock::now();
            TakePosition(now);
            if (progress && now >= nextProgress) {
                progress(Position());
                nextProgress = now + kProgressInterval;
            }
            if (const std::optional<Ending> ending = EndingNow(now)) {
                return *ending;
            }
            if (m_interrupt.WaitUntil(now + kWatchInterval)) {
                return Ending::kInterrupted;
            }
        }
    }

    int64_t DueFramesPlayed() const {
        const auto played = static_cast<int64_t>(m_position.FramesPlayed);
        return m_framesDue == 0 ? played : std::min(played, m_framesDue);
    }

    double Elapsed() const { return std::chrono::duration<double>(m_now - m_start).count(); }

  private:
    void TakePosition(steady_clock::time_point now) {
        const RAVO_OUTPUT_POSITION position = OutputPosition();
        const bool hasRequested = position.Requests != m_position.Requests;
        m_silence = hasRequested
                        ? steady_clock::duration::zero()
                        : m_silence + std::min<steady_clock::duration>(now - m_now, kLongestLook);
        m_position = position;
        m_now = now;
    }

    // The output counts as running only once its last thread runs, however late that is. An end
    // counts unless a loss of the simulator explains it in the meantime.
    bool HasEnded(steady_clock::time_point now) {
        const bool isOutputting = RAVOIsOutputting();
        m_hasRun = m_hasRun || isOutputting;
        if (!m_hasRun || isOutputting) {
            return false;
        }
        m_end = std::min(m_end, now);
        return now - m_end > kLossPatience;
    }

    // The proof takes precedence: frames that have left the outputs can no longer be lost.
    std::optional<Ending> EndingNow(steady_clock::time_point now) {
        if (IsProven()) {
            return Ending::kFinished;
        }
        if (!m_simulator.IsConnected() || m_simulator.Losses() != m_losses) {
            return Ending::kLost;
        }
        if (HasEnded(now) || m_silence > kSilence) {
            TakePosition(now); // the last request may have arrived since
            return IsProven() ? Ending::kFinished : Ending::kShort;
        }
        return std::nullopt;
    }

    bool IsProven() const { return m_framesDue != 0 && DueFramesPlayed() == m_framesDue; }

    PlayPosition Position() const {
        const auto rate = static_cast<double>(m_record.FramesPerSecond());
        PlayPosition position;
        position.elapsed = Elapsed();
        position.framesPlayed = DueFramesPlayed();
        position.played = static_cast<double>(position.framesPlayed) / rate;
        position.due = SecondsDue(m_request, m_record);
        position.position =
            m_record.skippedSeconds +
            PositionAfter(m_record, StartInRecord(m_request, m_record), position.played);
        position.measuredRate = m_position.MeasuredRate;
        position.delays = static_cast<int>(m_position.DelayReports);
        return position;
    }

    const PlayRequest& m_request;
    const Record& m_record;
    const Simulator& m_simulator;
    const Interrupt& m_interrupt;
    const int64_t m_framesDue;
    const int m_losses;
    const steady_clock::time_point m_start = steady_clock::now();
    steady_clock::time_point m_now = m_start;
    steady_clock::duration m_silence{};
    bool m_hasRun = false;
    steady_clock::time_point m_end = steady_clock::time_point::max(); // of the output
    RAVO_OUTPUT_POSITION m_position{};
};

// ---- The result ---------------------------------------------------------------------------------

// For the leads that are fed: a gain on any other lead has no effect.
std::map<std::string, double> GainOf(const Record& record) {
    std::map<std::string, double> gain;
    for (const std::size_t signal : record.FeedingSignals()) {
        const auto output = static_cast<std::size_t>(record.signals[signal].lead);
        if (record.gain[output] != 1.0) {
            gain[kOutputNames[output]] = record.gain[output];
        }
    }
    return gain;
}

std::string NoiseOf(const MaterialRequest& request) {
    return request.noise.empty()
               ? request.builtinNoise
               : Format("%s at %g dB", request.noise.c_str(), request.signalToNoise);
}

PlayResult Describe(const PlayRequest& request, const Record& record) {
    const SimulatorInformation simulator = DescribeSimulator();
    PlayResult result;
    result.record = record.name;
    result.source = record.origin;
    result.path = result.source == "file" ? record.source : "";
    result.device = simulator.device;
    result.model = simulator.model;
    result.serial = simulator.serial;
    result.calibration = CalibrationState(simulator);
    result.version = LibraryVersion();
    result.noise = NoiseOf(request.material);
    result.start = request.start;
    result.rate = static_cast<double>(record.rate);
    result.resampledFrom = record.resampledFrom;
    result.offset = record.offset;
    result.missing = record.MissingSamples();
    result.framesDue = FramesDue(request, record);
    result.secondsDue = result.framesDue == 0 ? 0.0 : SecondsDue(request, record);
    const auto map = record.Map();
    result.map = {map.begin(), map.end()};
    result.gain = GainOf(record);
    result.clipped = ClippedLeads(record);
    return result;
}

void TakeFigures(PlayResult& result, const Record& record, const Watch& watch) {
    const RAVO_OUTPUT_POSITION position = OutputPosition();
    const auto played = static_cast<int64_t>(position.FramesPlayed);
    result.elapsed = watch.Elapsed();
    result.framesPlayed = watch.DueFramesPlayed();
    result.seconds =
        static_cast<double>(result.framesPlayed) / static_cast<double>(record.FramesPerSecond());
    result.framesSent = static_cast<int64_t>(position.FramesSent);
    result.framesBeyondEnd =
        result.framesDue == 0 ? 0 : std::max<int64_t>(played - result.framesDue, 0);
    result.requests = position.Requests;
    result.nominalRate = position.NominalRate;
    result.measuredRate = position.MeasuredRate;
    result.startedAt = WallClockText(position.FirstRequestTime);
    result.endedAt = WallClockText(position.LastRequestTime);
    result.delays = static_cast<int>(position.DelayReports);
    result.largestDelay = s_largestDelay.load();
}

} // namespace

void RequireStart(const PlayRequest& request, const Record& record) {
    const double start = StartInRecord(request, record);
    if (start != std::floor(start)) {
        Fail(kUsage, Format("--start %.10g", request.start), "is not a whole second.",
             "This material starts at whole seconds.");
    }
    RequireStart(record, static_cast<int>(start));
}

PlayResult PlayLoaded(const PlayRequest& request, const Record& record, const Simulator& simulator,
                      const Interrupt& interrupt,
                      const std::function<void(const PlayPosition&)>& progress) {
    RequirePlayable(record);
    RequireStart(request, record);
    RequireCalibration(DescribeSimulator(), request.requireCalibrated);
    PlayResult result = Describe(request, record);
    Watch watch(request, record, simulator, interrupt);
    s_largestDelay.store(0);
    if (!StartOutput(request, record, TakeDelay)) {
        result.ending = Ending::kLost;
        result.isRefused = simulator.IsConnected();
        return result;
    }
    result.ending = watch.Run(progress);
    result.signal = interrupt.Signal();
    RAVOStopOutput();
    TakeFigures(result, record, watch);
    return result;
}

std::map<std::string, double> ClippedLeads(const Record& record) {
    std::map<std::string, double> clipped;
    if (record.isEndless) {
        return clipped;
    }
    std::array<double, kOutputCount> largest{};
    ForEachSample(0, static_cast<int>(std::ceil(record.Seconds())), [&](const double* leads) {
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            largest[i] = std::max(largest[i], std::fabs(leads[LeadOfOutput(i)]));
        }
    });
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        if (largest[i] > kOutputLimit) {
            clipped[kOutputNames[i]] = largest[i];
        }
    }
    return clipped;
}

} // namespace lab
