// The plug is pulled in every phase, and put back.
#include "KernelPort.h"
#include "platform/SharedValue.h"
#include "tools/emulator/usb/UsbPort.h"

#include <atomic>
#include <fstream>

namespace {

class Loss : public KernelPort {
  protected:
    void SetUp() override {
        KernelPort::SetUp();
        if (!IsSkipped()) {
            m_simulator = std::make_unique<Simulator>(Settings::Of(Unit::kSixteenBit));
        }
    }
    void TearDown() override {
        KernelPort::TearDown();
        m_simulator.reset();
    }

    Simulator& Device() { return *m_simulator; }
    void Connect() {
        Search();
        ASSERT_TRUE(IsTold(1, true));
    }
    // The simulator can be plugged in again and plays.
    void ExpectAnotherPlay(size_t timesTold) {
        const std::uint64_t frames = Device().Seen().Count().frames;
        Device().Return();
        ASSERT_TRUE(IsTold(timesTold, true));
        ASSERT_TRUE(Play());
        EXPECT_TRUE(Device().Seen().WaitForFrames(frames + 500, kHang));
        RAVOStopOutput();
    }

  private:
    std::unique_ptr<Simulator> m_simulator;
};

TEST_F(Loss, WhileIdle) {
    Connect();
    const auto begin = Clock::now();
    Device().Vanish();
    ASSERT_TRUE(IsTold(2, false));
    Report("loss while idle is told after", SecondsSince(begin), "s");
    ExpectAnotherPlay(3);
}

// It comes and goes at different times relative to the checks of the search.
TEST_F(Loss, WhileSearching) {
    Device().Vanish();
    Search();
    for (int round = 0; round < 8; ++round) {
        Device().Return();
        std::this_thread::sleep_for(milliseconds(round * round * 10));
        Device().Vanish();
        // A round that led to a connection ends in a loss, before the next begins.
        std::this_thread::sleep_for(milliseconds(300));
        ASSERT_TRUE(Within(kHang, [] { return Listener::Heard().size() % 2 == 0; }));
    }
    ExpectAnotherPlay(Listener::Heard().size() + 1);
}

TEST_F(Loss, WhileIdentifying) {
    Device().Change([](Behaviour& behaviour) { behaviour.replies.late = milliseconds(600); });
    Search();
    ASSERT_TRUE(Device().Seen().WaitForCommand(emulator::Command::kIdentity, 1, kHang));
    Device().Vanish();
    Device().Change([](Behaviour& behaviour) { behaviour.replies = {}; });
    EXPECT_TRUE(Listener::Heard().empty());
    ExpectAnotherPlay(1);
}

void WriteRecord(const std::string& name) {
    constexpr int kSamples = 2000000;
    std::ofstream(name + ".hea") << "long 1 250 " << kSamples << "\nlong.dat 16 200 16 0 0 0 0 I\n";
    std::ofstream samples(name + ".dat", std::ios::binary);
    samples << std::string(2 * kSamples, '\0');
}

TEST_F(Loss, WhileLoading) {
    Connect();
    WriteRecord("/tmp/long");
    std::atomic<bool> isLoaded{false};
    std::thread loader([&] {
        ECG_HEADER* header = RAVOLoadMITHeader("/tmp/long.hea");
        isLoaded = RAVOLoadMITDatabase(header);
        RAVOFreeECGHeader(header);
    });
    Device().Vanish();
    loader.join();
    EXPECT_TRUE(isLoaded);
    ASSERT_TRUE(IsTold(2, false));
    ExpectAnotherPlay(3);
}

TEST_F(Loss, WhilePlaying) {
    Connect();
    ASSERT_TRUE(Play());
    ASSERT_TRUE(Device().Seen().WaitForFrames(700, kHang));
    const auto begin = Clock::now();
    Device().Vanish();
    ASSERT_TRUE(IsTold(2, false));
    Report("loss while playing is told after", SecondsSince(begin), "s");
    EXPECT_FALSE(RAVOIsOutputting());
    EXPECT_FALSE(RAVOOutputWaveform(0, nullptr, nullptr));
    ExpectAnotherPlay(3);
}

TEST_F(Loss, WhileStopping) {
    Connect();
    ASSERT_TRUE(Play());
    ASSERT_TRUE(Device().Seen().WaitForFrames(700, kHang));
    const auto begin = Clock::now();
    std::thread stop([] { RAVOStopOutput(); });
    Device().Vanish();
    stop.join();
    Report("a stop during the loss takes", SecondsSince(begin), "s");
    ASSERT_TRUE(IsTold(2, false));
    ExpectAnotherPlay(3);
}

// The port is hung up while its name stays.
TEST_F(Loss, OfTheCarrierWhilePlaying) {
    Connect();
    ASSERT_TRUE(Play());
    ASSERT_TRUE(Device().Seen().WaitForFrames(700, kHang));
    const auto begin = Clock::now();
    Device().LoseCarrier();
    ASSERT_TRUE(IsTold(2, false));
    Report("loss of the carrier is told after", SecondsSince(begin), "s");
    ASSERT_TRUE(IsTold(3, true));
    Report("and connected again after", SecondsSince(begin), "s");
    EXPECT_FALSE(RAVOIsOutputting());
    ExpectAnotherPlay(3);
}

// ---- Another number, another device ------------------------------------------------------------

// Answers every command with its echo and "OK", as modems do.
class Modem {
  public:
    Modem() : m_port("/dev", 0) {
        m_port.Appear(false);
        m_thread = std::thread([this] { Answer(); });
    }
    ~Modem() {
        m_isEnding = true;
        m_thread.join();
    }
    Modem(const Modem&) = delete;
    Modem& operator=(const Modem&) = delete;

    const std::string& Path() const { return m_port.Path(); }
    std::vector<std::uint8_t> Heard() {
        const std::lock_guard lock(m_mutex);
        return m_heard;
    }
    bool IsOpen() const { return m_port.IsOpenByHost(); }

  private:
    void Answer() {
        while (!m_isEnding) {
            std::vector<std::uint8_t> bytes(64);
            bytes.resize(m_port.Read(bytes.data(), bytes.size()));
            if (bytes.empty()) {
                std::this_thread::sleep_for(milliseconds(2));
                continue;
            }
            const std::lock_guard lock(m_mutex);
            m_heard.insert(m_heard.end(), bytes.begin(), bytes.end());
            const std::string ok = "\r\nOK\r\n";
            bytes.insert(bytes.end(), ok.begin(), ok.end());
            m_port.Write(bytes.data(), bytes.size());
        }
    }

    emulator::UsbPort m_port;
    std::mutex m_mutex;
    std::vector<std::uint8_t> m_heard;
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

TEST_F(Loss, IsFollowedByAReturnUnderAnotherNumberBesideAModem) {
    Connect();
    EXPECT_EQ(DevicePath(), "/dev/ttyACM0");
    ASSERT_TRUE(Play());
    Device().Vanish();
    ASSERT_TRUE(IsTold(2, false));
    Modem modem;
    EXPECT_EQ(modem.Path(), "/dev/ttyACM0");
    // It is asked for its identity in every round of the search, and for nothing else.
    ASSERT_TRUE(Within(kHang, [&] { return modem.Heard().size() >= 2; }));
    ExpectAnotherPlay(3);
    EXPECT_EQ(DevicePath(), "/dev/ttyACM1");
    const std::vector<std::uint8_t> heard = modem.Heard();
    EXPECT_EQ(heard, std::vector<std::uint8_t>(heard.size(), 0xAA));
    EXPECT_FALSE(modem.IsOpen());
}

} // namespace
