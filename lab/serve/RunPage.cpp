#include "lab/serve/RunPage.h"

#include "lab/machine/CalibrationFile.h"
#include "lab/serve/HttpFailure.h"
#include "lab/session/Connected.h"

#include <filesystem>
#include <utility>

namespace lab::serve {
namespace {

constexpr int kConflict = 409;

[[noreturn]] void RefuseOrder(const char* order) {
    Refuse(kConflict, order, "is controlled by the test plan while it runs.",
           "Wait for the end of the plan, or end it where it was started.");
}

const char* ResultText(Ending ending) {
    return ending == Ending::kInterrupted ? "stopped" : EndingText(ending);
}

} // namespace

RunPage::RunPage(const std::string& folder, std::optional<int> port, double speedUp,
                 StageListener listener)
    : BrowsingStage(folder), m_speedUp(speedUp), m_listener(std::move(listener)),
      m_sampler(speedUp, m_listener.samples, [this] { return m_listener.viewers() > 0; }),
      m_findings(
          port, [this] { return LookAtSimulator(); }, m_listener.stateChanged) {}

RunPage::~RunPage() {
    BrowsingStage::StopBrowsing();
}

BenchState RunPage::State(int viewers) const {
    BenchState state;
    state.findings = m_findings.Now();
    state.speedUp = m_speedUp;
    state.viewers = viewers;
    const MutexGuard lock(m_lock);
    state.player = m_player;
    state.player.isConnected = m_isKnown && IsSimulatorConnected();
    state.isSilent = m_player.playing != nullptr && HasStoppedAsking(m_speedUp);
    state.run = m_progress;
    if (state.player.isConnected) {
        state.findings.clear();
    }
    return state;
}

HttpAnswer RunPage::Play(const HttpRequest& /*request*/) {
    RefuseOrder("play");
}

HttpAnswer RunPage::Stop(const HttpRequest& /*request*/) {
    RefuseOrder("stop");
}

HttpAnswer RunPage::SwitchNoise(const HttpRequest& /*request*/) {
    RefuseOrder("noise");
}

// ---- The run ------------------------------------------------------------------------------------

void RunPage::Progress(const RunProgress& progress) {
    bool isStep = false;
    {
        const MutexGuard lock(m_lock);
        isStep = m_progress.current != progress.current || m_progress.outcome != progress.outcome;
        m_progress = progress;
    }
    if (isStep) {
        m_listener.stateChanged();
    }
}

void RunPage::Connected(const SimulatorInformation& simulator) {
    {
        const MutexGuard lock(m_lock);
        m_isKnown = true;
        m_player.isConnected = true;
        m_player.simulator = simulator;
        m_player.calibration = CheckCalibration(simulator.dacBits, simulator.calibrationFile);
    }
    m_listener.stateChanged();
}

// Nothing else checks between two plays; a simulator that has returned may be at another port.
bool RunPage::LookAtSimulator() {
    const bool isConnected = IsSimulatorConnected();
    const SimulatorInformation simulator =
        isConnected ? DescribeSimulator() : SimulatorInformation();
    bool isNew = false;
    {
        const MutexGuard lock(m_lock);
        isNew = m_isKnown && m_player.isConnected != isConnected;
        m_player.isConnected = isConnected;
        if (m_isKnown && simulator.serial == m_player.simulator.serial) {
            m_player.simulator = simulator;
        }
    }
    if (isNew) {
        m_listener.stateChanged();
    }
    return isConnected;
}

void RunPage::PlayBegun(const std::string& material, const PlayRequest& request,
                        const Record& record) {
    const auto playing = MakePlaying(material, request, record, m_noiseIndex);
    playing->record.noise = std::filesystem::path(record.noise).filename().string();
    m_sampler.Begin(playing);
    {
        const MutexGuard lock(m_lock);
        m_player.playing = playing;
        m_player.isNoiseOn = !record.noise.empty();
    }
    m_listener.stateChanged();
}

void RunPage::PlayEnded(const PlayResult& result) {
    m_sampler.Finish(result.framesPlayed);
    {
        const MutexGuard lock(m_lock);
        if (m_player.playing != nullptr) {
            m_noiseIndex = NoiseIndexAfter(*m_player.playing, result.framesSent);
            m_player.last =
                EndedPlay{m_player.playing->material, ResultText(result.ending), result.seconds};
        }
        m_player.playing = nullptr;
        m_player.isNoiseOn = false;
        m_player.framesBefore += result.framesPlayed;
        m_player.delaysBefore += result.delays;
    }
    m_findings.LookNow();
    m_listener.stateChanged();
}

} // namespace lab::serve
