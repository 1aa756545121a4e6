#include "tools/emulator/Simulator.h"

#include "tests/support/HostLine.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <system_error>
#include <thread>
#include <unistd.h>

using namespace emulator;
using namespace std::chrono_literals;

namespace {

constexpr Milliseconds kPatience = 30s;
constexpr Milliseconds kQuiet = 150ms; // for showing that nothing arrives

const Bytes kIdentity = {'R', 'V', '2', '0', 0};
const Bytes kStart500 = {0x00, 0xD1, 0x6F, 0x05};
const Bytes kRequest = {'N', 0};

// A buffer of empty frames.
Bytes EmptyBuffer(unsigned firstSequence) {
    Bytes buffer(kBufferBytes, 0);
    for (unsigned packet = 0; packet < kBufferPackets; ++packet) {
        buffer[packet * kPacketBytes] = 1;
        buffer[packet * kPacketBytes + 1] = static_cast<std::uint8_t>(firstSequence + packet);
    }
    buffer[322] = 0x45;
    return buffer;
}

class SimulatorTest : public testing::Test {
  protected:
    SimulatorTest() { Make(Settings::Of(Unit::kTwelveBit, 3)); }
    void Make(const Settings& settings) {
        m_simulator.reset();
        m_simulator = std::make_unique<Simulator>(settings);
    }
    const Journal& Seen() const { return m_simulator->Seen(); }

    std::unique_ptr<Simulator> m_simulator;
};

bool Exists(const std::string& path) {
    return std::filesystem::is_symlink(path);
}

TEST_F(SimulatorTest, LivesUnderItsNumberFromConstructionToDestruction) {
    EXPECT_EQ(m_simulator->Path(), "/dev/ttyACM3");
    EXPECT_TRUE(Exists("/dev/ttyACM3"));
    m_simulator.reset();
    EXPECT_FALSE(Exists("/dev/ttyACM3"));
}

TEST_F(SimulatorTest, AnswersOverTheLine) {
    const HostLine host("/dev/ttyACM3");
    EXPECT_EQ(host.Ask({0xAA}, 5), kIdentity);
    EXPECT_EQ(host.Ask({0x12, 0x55, 0xAA, 0, 0}, 64).size(), 64U);
    EXPECT_EQ(host.Ask({0x55}, 19).size(), 19U);
    EXPECT_EQ(host.Ask({0x44, 0x01, 0x10}, 3), (Bytes{0x44, 0x01, 0x5A}));
}

TEST_F(SimulatorTest, EveryByteValuePassesUnchanged) {
    const HostLine host("/dev/ttyACM3");
    Bytes table(64);
    for (int base = 0; base < 256; base += 60) {
        for (std::size_t i = 4; i < table.size(); ++i) {
            table[i] = static_cast<std::uint8_t>(base + static_cast<int>(i) - 4);
        }
        table[0] = 0x12;
        table[1] = 0x55;
        table[2] = 0xAA;
        table[3] = 0xFF;
        EXPECT_EQ(host.Ask(table, 64), table);
    }
}

TEST_F(SimulatorTest, SpeaksToAHostThatDoesNotConfigureThePort) {
    const int handle = open("/dev/ttyACM3", O_RDWR | O_NOCTTY);
    ASSERT_NE(handle, -1);
    const std::uint8_t probe = 0xAA;
    ASSERT_EQ(write(handle, &probe, 1), 1);
    Bytes reply(5);
    ASSERT_EQ(read(handle, reply.data(), reply.size()), 5);
    EXPECT_EQ(reply, kIdentity);
    close(handle);
}

TEST_F(SimulatorTest, PlaysAtTheClocksPace) {
    const HostLine host("/dev/ttyACM3");
    const auto begin = Clock::now();
    ASSERT_TRUE(host.Write(kStart500));
    unsigned sequence = 0;
    for (int buffer = 0; buffer < 4; ++buffer, sequence += 50) {
        ASSERT_TRUE(host.Write(EmptyBuffer(sequence)));
        EXPECT_EQ(host.Read(2, kPatience), kRequest);
    }
    // The request after the fourth buffer is sent when the first three have been played out.
    EXPECT_GE(Clock::now() - begin, 3 * 250 * 2ms - 2ms);
    ASSERT_TRUE(host.Write({'S'}));
    ASSERT_TRUE(Seen().WaitForStops(1, kPatience));
    const Counters count = Seen().Count();
    EXPECT_EQ(count.frames, 1000U);
    EXPECT_EQ(count.packets, 200U);
    EXPECT_EQ(count.markers, 4U);
    EXPECT_EQ(count.sequenceGaps, 0U);
    EXPECT_EQ(count.requests, 4U);
    EXPECT_EQ(Seen().AnswerTimes().size(), 3U);
}

TEST_F(SimulatorTest, ALateHostUnderruns) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.speed = 10; });
    const HostLine host("/dev/ttyACM3");
    ASSERT_TRUE(host.Write(kStart500));
    ASSERT_TRUE(host.Write(EmptyBuffer(0)));
    EXPECT_EQ(host.Read(2), kRequest);
    ASSERT_TRUE(
        Seen().WaitFor([](const Counters& count) { return count.underruns == 1; }, kPatience));
    EXPECT_EQ(Seen().Count().delayReports, 0U);
    ASSERT_TRUE(host.Write(EmptyBuffer(50)));
    const Bytes report = host.Read(3);
    ASSERT_EQ(report.size(), 3U);
    EXPECT_EQ(report[0], 'X');
    EXPECT_GT(report[1] * 100 + report[2], 0);
    EXPECT_GE(Seen().Count().delayReports, 1U);
}

TEST_F(SimulatorTest, WithoutAPaceAThousandBuffersPassWithoutLoss) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.speed = 0; });
    const HostLine host("/dev/ttyACM3");
    ASSERT_TRUE(host.Write(kStart500));
    for (unsigned buffer = 0; buffer < 1000; ++buffer) {
        ASSERT_TRUE(host.Write(EmptyBuffer(buffer * 50)));
        ASSERT_EQ(host.Read(2), kRequest);
    }
    const Counters count = Seen().Count();
    EXPECT_EQ(count.frames, 250'000U);
    EXPECT_EQ(count.markers, 1000U);
    EXPECT_EQ(count.sequenceGaps, 0U);
    EXPECT_EQ(count.underruns, 0U);
    EXPECT_EQ(count.unknownBytes, 0U);
}

TEST_F(SimulatorTest, KeepsTheFramesOfSeveralStartsApart) {
    Settings settings = Settings::Of(Unit::kTwelveBit, 3);
    settings.keepBytes = true;
    Make(settings);
    const HostLine host("/dev/ttyACM3");
    Bytes sent = kStart500;
    const Bytes buffer = EmptyBuffer(0);
    sent.insert(sent.end(), buffer.begin(), buffer.end());
    sent.push_back('S');
    ASSERT_TRUE(host.Write(sent));
    ASSERT_TRUE(Seen().WaitForStops(1, kPatience));
    ASSERT_TRUE(host.Write(kStart500));
    ASSERT_TRUE(Seen().WaitForStarts(2, kPatience));
    EXPECT_EQ(Seen().Starts()[1].firstFrame, 250U);
    sent.insert(sent.end(), kStart500.begin(), kStart500.end());
    EXPECT_EQ(Seen().ReceivedBytes(), sent);
}

TEST_F(SimulatorTest, VanishingHangsTheHostUp) {
    const HostLine host("/dev/ttyACM3");
    ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
    m_simulator->Vanish();
    EXPECT_FALSE(Exists("/dev/ttyACM3"));
    EXPECT_TRUE(host.IsHungUp(kPatience));
    std::uint8_t byte = 0;
    EXPECT_EQ(read(host.Handle(), &byte, 1), 0);
    EXPECT_EQ(write(host.Handle(), &byte, 1), -1);
    EXPECT_FALSE(m_simulator->IsPresent());
}

TEST_F(SimulatorTest, ReturnsUnderTheSameOrAnotherNumber) {
    m_simulator->Vanish();
    m_simulator->Return();
    EXPECT_TRUE(Exists("/dev/ttyACM3"));
    EXPECT_EQ(HostLine("/dev/ttyACM3").Ask({0xAA}, 5), kIdentity);
    m_simulator->Vanish();
    m_simulator->Return(5);
    EXPECT_FALSE(Exists("/dev/ttyACM3"));
    EXPECT_EQ(HostLine("/dev/ttyACM5").Ask({0xAA}, 5), kIdentity);
}

TEST_F(SimulatorTest, ReturnsSwitchedOnAfresh) {
    {
        const HostLine host("/dev/ttyACM3");
        ASSERT_TRUE(host.Write(kStart500));
        ASSERT_TRUE(Seen().WaitForStarts(1, kPatience));
    }
    m_simulator->Vanish();
    m_simulator->Return();
    const HostLine host("/dev/ttyACM3");
    ASSERT_TRUE(host.Write(EmptyBuffer(0)));
    ASSERT_TRUE(Seen().WaitFor([](const Counters& count) { return count.packetsOutsidePlay == 50; },
                               kPatience));
}

TEST_F(SimulatorTest, ComesAndGoesAHundredTimes) {
    for (int round = 0; round < 100; ++round) {
        const HostLine host("/dev/ttyACM3");
        ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
        m_simulator->Vanish();
        m_simulator->Return();
    }
}

TEST_F(SimulatorTest, ATakenNameIsRefusedWithASentence) {
    try {
        const Simulator second(Settings::Of(Unit::kLegacy, 3));
        FAIL() << "two simulators under one name";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("/dev/ttyACM3 is taken"), std::string::npos);
    }
    EXPECT_TRUE(Exists("/dev/ttyACM3"));
    m_simulator->Vanish();
    const Simulator second(Settings::Of(Unit::kLegacy, 3));
    EXPECT_THROW(m_simulator->Return(), std::system_error);
}

TEST_F(SimulatorTest, StartsAbsentWhenAskedTo) {
    Settings settings = Settings::Of(Unit::kSixteenBit, 9);
    settings.isPresent = false;
    Make(settings);
    EXPECT_FALSE(Exists("/dev/ttyACM9"));
    m_simulator->Return();
    EXPECT_TRUE(Exists("/dev/ttyACM9"));
}

TEST_F(SimulatorTest, LossOfCarrierHangsUpWhileTheNameStays) {
    const HostLine host("/dev/ttyACM3");
    ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
    m_simulator->LoseCarrier();
    EXPECT_TRUE(host.IsHungUp(kPatience));
    EXPECT_TRUE(Exists("/dev/ttyACM3"));
    EXPECT_EQ(HostLine("/dev/ttyACM3").Ask({0xAA}, 5), kIdentity);
}

TEST_F(SimulatorTest, AnswersOneHostAfterTheOther) {
    for (int host = 0; host < 20; ++host) {
        EXPECT_EQ(HostLine("/dev/ttyACM3").Ask({0xAA}, 5), kIdentity);
    }
}

TEST_F(SimulatorTest, WhatAHostDidNotReadIsGoneAfterItsClosing) {
    {
        const HostLine host("/dev/ttyACM3");
        ASSERT_TRUE(host.Write({0xAA, 0xAA}));
        ASSERT_TRUE(Seen().WaitForCommand(Command::kIdentity, 2, kPatience));
    }
    ASSERT_TRUE(
        Seen().WaitFor([](const Counters& count) { return count.hostClosings == 1; }, kPatience));
    const HostLine next("/dev/ttyACM3");
    EXPECT_EQ(next.Ask({0x44, 0x01, 0x00}, 3), (Bytes{0x44, 0x01, 0x5A}));
}

TEST_F(SimulatorTest, WhatWasSaidToNobodyIsLostOrKept) {
    m_simulator->Send({1, 2, 3});
    EXPECT_EQ(HostLine("/dev/ttyACM3").Ask({0xAA}, 5), kIdentity);
    ASSERT_TRUE(
        Seen().WaitFor([](const Counters& count) { return count.hostClosings == 1; }, kPatience));
    m_simulator->Change([](Behaviour& behaviour) { behaviour.keepsUnsent = true; });
    m_simulator->Send({1, 2, 3});
    const HostLine host("/dev/ttyACM3");
    EXPECT_EQ(host.Read(3), (Bytes{1, 2, 3}));
}

TEST_F(SimulatorTest, BytesWrittenJustBeforeClosingArrive) {
    HostLine host("/dev/ttyACM3");
    Bytes sent = kStart500;
    const Bytes buffer = EmptyBuffer(0);
    sent.insert(sent.end(), buffer.begin(), buffer.end());
    sent.push_back('S');
    sent.push_back('C');
    ASSERT_TRUE(host.Write(sent));
    host.Close();
    EXPECT_TRUE(Seen().WaitForCommand(Command::kClose, 1, kPatience));
    EXPECT_EQ(Seen().Count().frames, 250U);
}

// Whatever the simulator is doing when the port is opened and closed, the bytes in between are
// received.
TEST_F(SimulatorTest, NoShortVisitIsMissed) {
    for (std::uint64_t visit = 1; visit <= 2000; ++visit) {
        {
            const HostLine host("/dev/ttyACM3");
            ASSERT_TRUE(host.Write({'C'}));
        }
        ASSERT_TRUE(Seen().WaitForCommand(Command::kClose, visit, kPatience)) << visit;
    }
}

TEST_F(SimulatorTest, AWrongIdentity) {
    m_simulator->Change([](Behaviour& behaviour) {
        behaviour.identity = {'M', 'O', 'D', 'E', 'M'};
    });
    EXPECT_EQ(HostLine("/dev/ttyACM3").Ask({0xAA}, 5), (Bytes{'M', 'O', 'D', 'E', 'M'}));
}

TEST_F(SimulatorTest, TheTableThatAHostWritesIsKept) {
    Bytes table(64, 0x42);
    table[0] = 0x12;
    table[1] = 0x55;
    table[2] = 0xAA;
    table[3] = 0xFF;
    const HostLine host("/dev/ttyACM3");
    ASSERT_EQ(host.Ask(table, 64), table);
    const FlashTable kept = m_simulator->CurrentBehaviour().flash;
    EXPECT_EQ(Bytes(kept.begin(), kept.end()), table);
}

TEST_F(SimulatorTest, LateRepliesInPieces) {
    m_simulator->Change([](Behaviour& behaviour) {
        behaviour.replies.late = 80ms;
        behaviour.replies.pieceBytes = 1;
        behaviour.replies.pieceGap = 20ms;
    });
    const HostLine host("/dev/ttyACM3");
    const auto begin = Clock::now();
    EXPECT_EQ(host.Ask({0xAA}, 5), kIdentity);
    EXPECT_GE(Clock::now() - begin, 160ms);
}

TEST_F(SimulatorTest, AFullLineIsUnwritableUntilItIsTakenFromAgain) {
    const HostLine host("/dev/ttyACM3");
    ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
    m_simulator->Change([](Behaviour& behaviour) { behaviour.line = Line::kFull; });
    EXPECT_FALSE(host.IsWritable(kQuiet));
    EXPECT_FALSE(host.Write({0xAA}, kQuiet));
    m_simulator->Send({'N', 0});
    EXPECT_EQ(host.Read(2), kRequest);
    m_simulator->Change([](Behaviour& behaviour) { behaviour.line = Line::kWorking; });
    EXPECT_TRUE(host.IsWritable(kPatience));
    EXPECT_EQ(host.Ask({0xAA}, 5), kIdentity);
}

TEST_F(SimulatorTest, ALineFillsUpAfterSoManyBytes) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.takesBytes = 1024; });
    const HostLine host("/dev/ttyACM3");
    EXPECT_FALSE(host.Write(Bytes(100'000, 0xFE), 500ms));
    EXPECT_TRUE(Seen().WaitFor([](const Counters& seen) { return seen.bytes == 1024; }, kPatience));
    EXPECT_EQ(m_simulator->CurrentBehaviour().line, Line::kFull); // has been carried out by now
    EXPECT_FALSE(host.IsWritable(0ms));
    EXPECT_EQ(Seen().Count().bytes, 1024U);
}

TEST_F(SimulatorTest, AFullLineStaysFullThroughALossOfCarrierAndAReturn) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.line = Line::kFull; });
    EXPECT_FALSE(HostLine("/dev/ttyACM3").IsWritable(0ms));
    m_simulator->LoseCarrier();
    EXPECT_FALSE(HostLine("/dev/ttyACM3").IsWritable(0ms));
    m_simulator->Vanish();
    m_simulator->Return();
    EXPECT_FALSE(HostLine("/dev/ttyACM3").IsWritable(0ms));
}

TEST_F(SimulatorTest, BytesAreLostOnTheirWay) {
    m_simulator->Change([](Behaviour& behaviour) {
        behaviour.speed = 0;
        behaviour.losesBytes = 64 + 4;
    });
    const HostLine host("/dev/ttyACM3");
    ASSERT_TRUE(host.Write(Bytes(68, 0xFE)));
    ASSERT_TRUE(host.Write(kStart500));
    ASSERT_TRUE(host.Write(EmptyBuffer(0)));
    ASSERT_EQ(host.Read(2), kRequest);
    EXPECT_EQ(Seen().Count().unknownBytes, 0U);
    m_simulator->Change([](Behaviour& behaviour) { behaviour.losesBytes = 64; });
    ASSERT_TRUE(host.Write(EmptyBuffer(50)));
    ASSERT_TRUE(Seen().WaitForFrames(250 + 245, kPatience));
    EXPECT_EQ(Seen().Count().sequenceGaps, 1U);
    EXPECT_TRUE(host.ReadFor(kQuiet).empty());
}

TEST_F(SimulatorTest, ADeadLineTakesNothingAndSaysNothing) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.line = Line::kDead; });
    const HostLine host("/dev/ttyACM3");
    ASSERT_TRUE(host.Write({0xAA}));
    EXPECT_TRUE(host.ReadFor(kQuiet).empty());
    EXPECT_EQ(Seen().Count().bytes, 0U);
    EXPECT_FALSE(host.Write(Bytes(100'000, 0), 500ms));
    m_simulator->Send({1});
    EXPECT_TRUE(host.ReadFor(kQuiet).empty());
}

TEST_F(SimulatorTest, AMuteLineTakesEverythingAndSaysNothing) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.line = Line::kMute; });
    const HostLine host("/dev/ttyACM3");
    EXPECT_TRUE(host.Write(Bytes(100'000, 0xAA)));
    EXPECT_TRUE(host.ReadFor(kQuiet).empty());
}

TEST_F(SimulatorTest, AFreshPortEchoesUntilItIsConfigured) {
    m_simulator->Change([](Behaviour& behaviour) { behaviour.echoes = true; });
    const int handle = open("/dev/ttyACM3", O_RDWR | O_NOCTTY);
    ASSERT_NE(handle, -1);
    ASSERT_TRUE(
        Seen().WaitFor([](const Counters& count) { return count.hostOpenings == 1; }, kPatience));
    // The bytes that the simulator sends come back to it. It would answer an echoed probe for ever,
    // so it sends a byte without a meaning here.
    m_simulator->Send({0xFE});
    EXPECT_TRUE(
        Seen().WaitFor([](const Counters& count) { return count.unknownBytes >= 1; }, kPatience));
    close(handle);
}

TEST_F(SimulatorTest, StatusRecordsAndGarbageReachTheHost) {
    const HostLine host("/dev/ttyACM3");
    ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
    m_simulator->SendStatus();
    const Bytes status = host.Read(15);
    ASSERT_EQ(status.size(), 15U);
    EXPECT_EQ(status[0], 'S');
    m_simulator->Send({0xDE, 0xAD, 0x00});
    EXPECT_EQ(host.Read(3), (Bytes{0xDE, 0xAD, 0x00}));
}

TEST_F(SimulatorTest, AHostThatDoesNotReadIsGivenTheRestLater) {
    const HostLine host("/dev/ttyACM3");
    ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
    Bytes much(50'000);
    for (std::size_t i = 0; i < much.size(); ++i) {
        much[i] = static_cast<std::uint8_t>(i * 7);
    }
    m_simulator->Send(much);
    EXPECT_EQ(host.Read(much.size()), much);
}

TEST_F(SimulatorTest, WaitingUsesNoProcessorTime) {
    const auto timeUsed = [] {
        timespec time = {};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    {
        const HostLine host("/dev/ttyACM3");
        ASSERT_EQ(host.Ask({0xAA}, 5), kIdentity);
        ASSERT_TRUE(host.Write(kStart500));
        ASSERT_TRUE(host.Write(EmptyBuffer(0)));
    }
    ASSERT_TRUE(
        Seen().WaitFor([](const Counters& count) { return count.underruns == 1; }, kPatience));
    // No host has the port open, and the outputs have run dry: a loop that did not sleep would use
    // all of the time.
    const auto before = timeUsed();
    std::this_thread::sleep_for(500ms);
    EXPECT_LT(timeUsed() - before, 250ms);
}

TEST_F(SimulatorTest, TwoSimulatorsLiveSideBySide) {
    Settings settings = Settings::Of(Unit::kSixteenBit, 0);
    settings.behaviour.identity = {'M', 'O', 'D', 'E', 'M'};
    const Simulator other(settings);
    EXPECT_EQ(HostLine("/dev/ttyACM0").Ask({0xAA}, 5), settings.behaviour.identity);
    EXPECT_EQ(HostLine("/dev/ttyACM3").Ask({0xAA}, 5), kIdentity);
}

} // namespace
