// Plays at a real simulator's pace through the kernel's driver: the frames that arrive, and the
// time for an answer.
#include "KernelPort.h"
#include "tests/api/ExpectedCodes.h"

#include <array>
#include <cmath>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace {

using emulator::Codes;

double ProcessorTime() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

void ReportTimes(const std::string& what, const std::vector<std::chrono::microseconds>& times) {
    Report(what + ", median", static_cast<double>(Quantile(times, 0.5).count()), "us");
    Report(what + ", 99.9 %", static_cast<double>(Quantile(times, 0.999).count()), "us");
}

// A sine of 1 mV peak to peak at 1 Hz on all eight leads, 1000 frames per second.
Codes SineFrame(const Converter& converter, std::uint64_t k) {
    std::array<double, 8> voltages{};
    voltages.fill(0.5 * std::sin(static_cast<double>(k % 1000) / 1000.0 * 6.283185307179586));
    return converter.Frame(voltages);
}

class Paced : public KernelPort, public testing::WithParamInterface<Unit> {};

INSTANTIATE_TEST_SUITE_P(Units, Paced,
                         testing::Values(Unit::kSixteenBit, Unit::kTwelveBit, Unit::kLegacy));

TEST_P(Paced, EveryFrameArrivesInTimeAndAsItWasMade) {
    const Simulator simulator(Settings::Of(GetParam()));
    Search();
    ASSERT_TRUE(IsTold(1, true));
    ASSERT_TRUE(Play());
    ASSERT_TRUE(simulator.Seen().WaitForFrames(8000, kHang));
    RAVOStopOutput();

    const emulator::Counters count = simulator.Seen().Count();
    EXPECT_EQ(count.underruns, 0U);
    EXPECT_EQ(count.delayReports, 0U);
    EXPECT_EQ(count.sequenceGaps, 0U);
    EXPECT_EQ(count.unknownBytes, 0U);
    EXPECT_EQ(count.strayHeaderBytes, 0U);
    EXPECT_EQ(count.packetsOutsidePlay, 0U);
    const Converter converter(GetParam());
    const std::vector<Codes> frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 8000U);
    for (std::uint64_t k = 0; k < frames.size(); ++k) {
        ASSERT_EQ(frames[k], SineFrame(converter, k)) << "frame " << k;
    }
    ReportTimes("answer to a request", simulator.Seen().AnswerTimes());
}

// ---- What limits an answer ---------------------------------------------------------------------

void MakeRaw(int port) {
    termios settings{};
    tcgetattr(port, &settings);
    cfmakeraw(&settings);
    tcsetattr(port, TCSANOW, &settings);
}

// As the library writes: 64 bytes, then a wait until the port is writable.
bool WritePiece(int port, const std::uint8_t* bytes) {
    pollfd writable{port, POLLOUT, 0};
    return poll(&writable, 1, 20000) == 1 &&
           write(port, bytes, emulator::kPacketBytes) == emulator::kPacketBytes;
}

TEST_F(KernelPort, ABufferIsFiftyWritesEachWaitingForTheLast) {
    Settings settings = Settings::Of(Unit::kSixteenBit);
    settings.behaviour.asks = false;
    const Simulator simulator(settings);
    Simulator& device = const_cast<Simulator&>(simulator);
    const int port = open(device.Path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_NE(port, -1);
    MakeRaw(port);
    constexpr std::size_t kBuffers = 40;
    const std::vector<std::uint8_t> unknown(emulator::kPacketBytes, 0xFF);
    std::vector<std::chrono::microseconds> pieces;
    std::vector<std::chrono::microseconds> buffers;
    auto last = Clock::now();
    for (std::size_t buffer = 0; buffer < kBuffers; ++buffer) {
        const auto begin = last;
        for (std::size_t piece = 0; piece < emulator::kBufferPackets; ++piece) {
            ASSERT_TRUE(WritePiece(port, unknown.data()));
            const auto now = Clock::now();
            pieces.push_back(std::chrono::duration_cast<std::chrono::microseconds>(now - last));
            last = now;
        }
        buffers.push_back(std::chrono::duration_cast<std::chrono::microseconds>(last - begin));
    }
    // Not writable while a byte is under way, so each piece costs a round trip.
    device.Change([](Behaviour& behaviour) { behaviour.line = emulator::Line::kDead; });
    EXPECT_TRUE(WritePiece(port, unknown.data()));
    pollfd writable{port, POLLOUT, 0};
    EXPECT_EQ(poll(&writable, 1, 500), 0);
    device.Change([](Behaviour& behaviour) { behaviour.line = emulator::Line::kWorking; });
    EXPECT_EQ(poll(&writable, 1, 20000), 1);
    close(port);
    ReportTimes("a bare write of 64 bytes", pieces);
    ReportTimes("50 bare writes of 64 bytes", buffers);
}

// ---- Processor time ----------------------------------------------------------------------------

// Of the library, its monitor's commands not included, and of the emulated simulator, which shares
// the process.
TEST_F(KernelPort, ProcessorTime) {
    const Simulator simulator(Settings::Of(Unit::kSixteenBit));
    Search();
    ASSERT_TRUE(IsTold(1, true));
    const double atRest = ProcessorTime();
    std::this_thread::sleep_for(seconds(5));
    Report("processor time connected, per second", (ProcessorTime() - atRest) / 5, "s");
    ASSERT_TRUE(Play());
    const double playing = ProcessorTime();
    std::this_thread::sleep_for(seconds(5));
    Report("processor time playing, per second", (ProcessorTime() - playing) / 5, "s");
}

} // namespace
