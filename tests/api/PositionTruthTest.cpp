// A host's calculation from the position that the library reports, compared with the frames that
// have left the emulated simulator's outputs: at every millisecond of the test's own clock, so that
// the load of the machine has no influence.
#include "api/ravo.h"
#include "engine/OutputPosition.h"
#include "tests/tools/emulator/FirmwareFixture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <random>
#include <string>

namespace {

constexpr std::uint32_t kBufferFrames = 250;
constexpr double kRate = 1000.0;
const Bytes kStart1000 = {0x00, 0xE8, 0xDF, 0x05}; // 65536 - 6000 + 79

struct Circumstances {
    std::string name;
    double clockPpm = 0.0;
    Milliseconds asksLate{0};
    int mostReadLateness = 0; // in microseconds; each request is read at most this late
    std::function<Milliseconds(int request)> answersAfter = [](int) { return 2ms; };
};

void PrintTo(const Circumstances& circumstances, std::ostream* out) {
    *out << circumstances.name;
}

std::int64_t Nanoseconds(Clock::time_point time) {
    return std::chrono::nanoseconds(time.time_since_epoch()).count();
}

// As the header tells hosts to calculate it, from exported fields alone.
double Reckon(const RAVO_OUTPUT_POSITION& at, Clock::time_point now) {
    if (at.Requests == 0) {
        return 0.0;
    }
    const double rate = at.MeasuredRate > 0.0 ? at.MeasuredRate : at.NominalRate;
    const double since = static_cast<double>(Nanoseconds(now) - at.LastRequestTime) * rate / 1e9;
    return static_cast<double>(at.FramesPlayed) +
           std::clamp(since, 0.0, static_cast<double>(at.FramesPerRequest));
}

// A simulator that plays, and a host that answers it, both on the same clock.
class VirtualPlay {
  public:
    explicit VirtualPlay(const Circumstances& circumstances) : m_circumstances(circumstances) {
        m_behaviour.clockPpm = circumstances.clockPpm;
        m_behaviour.asksLate = circumstances.asksLate;
        m_firmware.emplace(m_settings, m_behaviour, m_journal, nullptr);
        BeginOutputPosition(Nanoseconds(m_now), kRate, kBufferFrames);
        m_firmware->Receive(kStart1000.data(), kStart1000.size(), m_now);
        SendBuffer();
    }

    // Every event within the time happens at its own time.
    void Pass(Clock::duration time) {
        const Clock::time_point end = m_now + time;
        for (auto next = NextEvent(); next && *next <= end; next = NextEvent()) {
            m_now = std::max(m_now, *next);
            Happen();
        }
        m_now = end;
        Happen();
    }

    double Error() const {
        RAVO_OUTPUT_POSITION at;
        EXPECT_TRUE(RAVOGetOutputPosition(&at));
        return Reckon(at, m_now) - static_cast<double>(m_journal.FramesLeftBy(m_now));
    }

    emulator::Counters Seen() const { return m_journal.Count(); }

  private:
    std::optional<Clock::time_point> NextEvent() const {
        std::optional<Clock::time_point> next = m_firmware->NextEvent();
        const std::optional<Clock::time_point> said = m_firmware->Out().NextDue();
        if (said && (!next || *said < *next)) {
            next = said;
        }
        for (const std::deque<Clock::time_point>* queue : {&m_reads, &m_answers}) {
            if (!queue->empty() && (!next || queue->front() < *next)) {
                next = queue->front();
            }
        }
        return next;
    }

    void Happen() {
        m_firmware->Advance(m_now, true);
        Listen();
        for (; !m_reads.empty() && m_reads.front() <= m_now; m_reads.pop_front()) {
            CountRequest(Nanoseconds(m_now));
            m_answers.push_back(m_now + m_circumstances.answersAfter(++m_requests));
        }
        for (; !m_answers.empty() && m_answers.front() <= m_now; m_answers.pop_front()) {
            SendBuffer();
        }
    }

    void Listen() {
        Bytes said;
        while (const Bytes* piece = m_firmware->Out().Due(m_now)) {
            said.insert(said.end(), piece->begin(), piece->end());
            m_firmware->Out().Said(piece->size());
        }
        for (std::size_t i = 0; i < said.size(); i += said[i] == 'X' ? 3U : 2U) {
            if (said[i] == 'X') {
                CountDelay(5U * (100U * said[i + 1] + said[i + 2]));
            } else {
                m_reads.push_back(m_now + Lateness());
            }
        }
    }

    std::chrono::microseconds Lateness() {
        const auto most = static_cast<unsigned>(m_circumstances.mostReadLateness);
        return std::chrono::microseconds(most == 0 ? 0 : m_random() % most);
    }

    void SendBuffer() {
        const Bytes buffer = Buffer12(m_sequence, 2048);
        m_sequence = (m_sequence + 50) % 256;
        m_firmware->Receive(buffer.data(), buffer.size(), m_now);
        m_firmware->Advance(m_now, true);
        CountFramesSent(kBufferFrames);
    }

    Circumstances m_circumstances;
    Settings m_settings = Settings::Of(Unit::kTwelveBit);
    Behaviour m_behaviour = m_settings.behaviour;
    Journal m_journal{m_settings};
    std::optional<Firmware> m_firmware;
    Clock::time_point m_now{1000s};
    unsigned m_sequence = 0;
    int m_requests = 0;
    std::deque<Clock::time_point> m_reads; // requests that the host has not read yet
    std::deque<Clock::time_point> m_answers;
    std::mt19937 m_random{1}; // NOLINT: the same numbers every time are wanted
};

double RateErrorPpm(const Circumstances& circumstances) {
    RAVO_OUTPUT_POSITION at;
    EXPECT_TRUE(RAVOGetOutputPosition(&at));
    return std::abs(at.MeasuredRate / (kRate * (1.0 + circumstances.clockPpm * 1e-6)) - 1.0) * 1e6;
}

const Circumstances kCircumstances[] = {
    {"Prompt"},
    {"FastClock", 200.0, 0ms, 3000},
    {"SlowClock", -200.0, 0ms, 3000},
    {"RequestsHeldBack", 200.0, 2ms, 1000},
    {"AnswersJustInTime", 200.0, 0ms, 3000, [](int) { return 240ms; }},
    {"AnswersInAnyTime", -200.0, 0ms, 3000, [](int k) { return Milliseconds(k * 37 % 240); }},
    {"Underruns", 200.0, 0ms, 3000, [](int k) { return k % 97 == 90 ? 700ms : 2ms; }},
};

class PositionTruth : public testing::TestWithParam<Circumstances> {};

INSTANTIATE_TEST_SUITE_P(In, PositionTruth, testing::ValuesIn(kCircumstances),
                         [](const auto& chosen) { return chosen.param.name; });

// Ten minutes at 1000 frames per second, where a frame is a millisecond: half a minute at each, and
// then at every 23rd, which covers every part of a buffer.
TEST_P(PositionTruth, IsWithinFiveMillisecondsAtAnyMoment) {
    VirtualPlay play(GetParam());
    for (int now = 0; now < 600'000;) {
        const int step = now < 30'000 ? 1 : 23;
        play.Pass(Milliseconds(step));
        now += step;
        ASSERT_LE(play.Error(), 1.0) << "ahead at " << now << " ms";
        ASSERT_GE(play.Error(), -5.0) << "behind at " << now << " ms";
        if (now == 20'000) {
            EXPECT_LT(RateErrorPpm(GetParam()), 20.0);
        }
    }
    EXPECT_LT(RateErrorPpm(GetParam()), 3.0);
    EXPECT_EQ(play.Seen().underruns > 0, GetParam().name == "Underruns");
    EXPECT_EQ(play.Seen().sequenceGaps, 0U);
}

// The host cannot know that a request was sent late.  The calculated position lags by this delay,
// and by the frame that leaves as the clock starts; it is never ahead.
TEST(PositionTruthTest, IsBehindByWhatTheRequestsAreHeldBack) {
    VirtualPlay play({"", 0.0, 40ms});
    for (int now = 1; now <= 20'000; ++now) {
        play.Pass(1ms);
        ASSERT_LE(play.Error(), 1.0) << now;
        ASSERT_GE(play.Error(), -42.0) << now;
        if (now % 250 == 100) {
            EXPECT_NEAR(play.Error(), -40.0, 1.5) << now;
        }
    }
}

} // namespace
