#include "tools/emulator/Control.h"

#include "tests/support/HostLine.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using namespace emulator;
using namespace std::chrono_literals;

namespace {

const std::string kPath = "/dev/ttyACM0";

class ControlTest : public testing::Test {
  protected:
    std::string Do(const std::string& line) { return Execute(m_simulator, line); }
    Behaviour Now() { return m_simulator.CurrentBehaviour(); }

    Simulator m_simulator{Settings::Of(Unit::kTwelveBit)};
};

TEST_F(ControlTest, PullsThePlugAndPutsItBack) {
    EXPECT_EQ(Do("vanish"), "ok");
    EXPECT_FALSE(std::filesystem::is_symlink(kPath));
    EXPECT_EQ(Do("return"), "ok");
    EXPECT_TRUE(std::filesystem::is_symlink(kPath));
    EXPECT_EQ(Do("vanish"), "ok");
    EXPECT_EQ(Do("return 4"), "ok");
    EXPECT_TRUE(std::filesystem::is_symlink("/dev/ttyACM4"));
    EXPECT_EQ(Do("carrier"), "ok");
}

TEST_F(ControlTest, SetsEveryFault) {
    EXPECT_EQ(Do("identity 4d 4F4445 4D"), "ok");
    EXPECT_EQ(Now().identity, (Bytes{'M', 'O', 'D', 'E', 'M'}));
    EXPECT_EQ(Do("flash 8 21"), "ok");
    EXPECT_EQ(Now().flash[8], 21);
    EXPECT_EQ(Do("truncate 3"), "ok");
    EXPECT_EQ(Now().replies.truncateTo, 3U);
    EXPECT_EQ(Do("late 250"), "ok");
    EXPECT_EQ(Now().replies.late, 250ms);
    EXPECT_EQ(Do("split 2"), "ok");
    EXPECT_EQ(Now().replies.pieceBytes, 2U);
    EXPECT_EQ(Now().replies.pieceGap, 0ms);
    EXPECT_EQ(Do("split 4 15"), "ok");
    EXPECT_EQ(Now().replies.pieceBytes, 4U);
    EXPECT_EQ(Now().replies.pieceGap, 15ms);
    EXPECT_EQ(Do("garbage FF00"), "ok");
    EXPECT_EQ(Now().replies.garbageBefore, (Bytes{0xFF, 0x00}));
    EXPECT_EQ(Do("replies 1"), "ok");
    EXPECT_EQ(Now().replies.replies, 1);
    EXPECT_EQ(Do("status-every 3"), "ok");
    EXPECT_EQ(Now().statusEvery, 3);
    EXPECT_EQ(Do("clock-ppm -200"), "ok");
    EXPECT_EQ(Now().clockPpm, -200.0);
    EXPECT_EQ(Do("clock-ppm 100001"), "error: clock-ppm: '100001' is not a number from -100000 "
                                      "to 100000");
    EXPECT_EQ(Do("ask-late 12"), "ok");
    EXPECT_EQ(Now().asksLate, 12ms);
    EXPECT_EQ(Do("ask off"), "ok");
    EXPECT_FALSE(Now().asks);
    EXPECT_EQ(Do("refuse-start on"), "ok");
    EXPECT_TRUE(Now().refusesStart);
    EXPECT_EQ(Do("echo on"), "ok");
    EXPECT_TRUE(Now().echoes);
    EXPECT_EQ(Do("keep-unsent on"), "ok");
    EXPECT_TRUE(Now().keepsUnsent);
    EXPECT_EQ(Do("speed 2.5"), "ok");
    EXPECT_EQ(Now().speed, 2.5);
    EXPECT_EQ(Do("line mute"), "ok");
    EXPECT_EQ(Now().line, Line::kMute);
    EXPECT_EQ(Do("line dead"), "ok");
    EXPECT_EQ(Now().line, Line::kDead);
    EXPECT_EQ(Do("lose 64"), "ok");
    EXPECT_EQ(Now().losesBytes, 64U);
    EXPECT_EQ(Do("take 0"), "ok");
    EXPECT_EQ(Now().line, Line::kFull);
    EXPECT_EQ(Do("take 100"), "ok");
    EXPECT_EQ(Now().takesBytes, 100U);
}

TEST_F(ControlTest, HealsWhatItBroke) {
    for (const char* fault : {"identity 00", "truncate 1", "ask off", "refuse-start on",
                              "line full", "echo on", "flash 8 3", "speed 4"}) {
        ASSERT_EQ(Do(fault), "ok");
    }
    EXPECT_EQ(Do("heal"), "ok");
    EXPECT_EQ(Now().identity, (Bytes{'R', 'V', '2', '0', 0}));
    EXPECT_EQ(Now().replies.truncateTo, SIZE_MAX);
    EXPECT_TRUE(Now().asks);
    EXPECT_FALSE(Now().refusesStart);
    EXPECT_FALSE(Now().echoes);
    EXPECT_EQ(Now().flash[8], 3); // the unit's identity is not a fault
    EXPECT_EQ(Now().speed, 4.0);
    EXPECT_EQ(HostLine(kPath).Ask({0xAA}, 5), Now().identity);
}

TEST_F(ControlTest, SaysWhatItIsTold) {
    const HostLine host(kPath);
    ASSERT_EQ(host.Ask({0xAA}, 5).size(), 5U);
    EXPECT_EQ(Do("say 4E 00"), "ok");
    EXPECT_EQ(host.Read(2), (Bytes{'N', 0}));
    EXPECT_EQ(Do("status"), "ok");
    EXPECT_EQ(host.Read(15).size(), 15U);
}

TEST_F(ControlTest, CountsAsJson) {
    ASSERT_EQ(HostLine(kPath).Ask({0xAA}, 5).size(), 5U);
    const std::string count = Do("count");
    EXPECT_EQ(count.front(), '{');
    EXPECT_NE(count.find("\"bytes\": 1,"), std::string::npos);
    EXPECT_NE(count.find("\"underruns\": 0,"), std::string::npos);
    EXPECT_EQ(count.back(), '}');
}

TEST_F(ControlTest, TellsHowManyFramesHaveLeft) {
    EXPECT_EQ(Do("left"), "0");
    const HostLine host(kPath);
    ASSERT_TRUE(host.Write({0x00, 0xE8, 0xDF, 0x05})); // 1000 frames per second
    Bytes buffer(3200);
    for (std::size_t packet = 0; packet < 50; ++packet) {
        buffer[packet * 64] = 1;
        buffer[packet * 64 + 1] = static_cast<std::uint8_t>(packet);
    }
    buffer[322] = 'E';
    ASSERT_TRUE(host.Write(buffer));
    ASSERT_TRUE(m_simulator.Seen().WaitForFrames(250, 30s));
    const auto patience = std::chrono::steady_clock::now() + 30s;
    while (Do("left") != "250" && std::chrono::steady_clock::now() < patience) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(Do("left"), "250");
}

TEST_F(ControlTest, AMistakeIsAnsweredWithASentence) {
    for (const char* line : {"",
                             "nonesuch",
                             "truncate",
                             "truncate x",
                             "truncate -1",
                             "truncate 99999999999999999999",
                             "late 5ms",
                             "identity",
                             "identity 5",
                             "identity XY",
                             "ask",
                             "ask maybe",
                             "line broken",
                             "flash 64 0",
                             "flash 0 256",
                             "flash 1",
                             "speed",
                             "speed -1",
                             "speed nan",
                             "speed 1x"}) {
        EXPECT_EQ(Do(line).rfind("error: ", 0), 0U) << line;
    }
    EXPECT_EQ(Do("ask maybe"), "error: ask: 'maybe' is neither on nor off");
}

TEST_F(ControlTest, AReturnToATakenNameIsAnError) {
    const Simulator other(Settings::Of(Unit::kLegacy, 1));
    ASSERT_EQ(Do("vanish"), "ok");
    EXPECT_NE(Do("return 1").find("/dev/ttyACM1 is taken"), std::string::npos);
    EXPECT_EQ(Do("return 2"), "ok");
}

TEST_F(ControlTest, TheHelpNamesWhatIsUnderstood) {
    for (const char* name : {"vanish", "return", "carrier", "truncate", "status-every", "heal"}) {
        EXPECT_NE(ControlHelp().find(std::string("  ") + name + " "), std::string::npos) << name;
    }
}

class ControlServerTest : public ControlTest {
  protected:
    const std::string m_socket = "/dev/control";
    std::unique_ptr<ControlServer> m_server =
        std::make_unique<ControlServer>(m_socket, m_simulator);
};

TEST_F(ControlServerTest, CarriesOutWhatItIsTold) {
    EXPECT_EQ(Tell(m_socket, "truncate 2"), "ok");
    EXPECT_EQ(Now().replies.truncateTo, 2U);
    EXPECT_EQ(Tell(m_socket, "nonesuch").rfind("error: ", 0), 0U);
}

TEST_F(ControlServerTest, TakesSeveralLinesOfOneConnection) {
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    m_socket.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const std::string lines = "late 1\nlate 2\nla";
    ASSERT_EQ(send(connection, lines.data(), lines.size(), 0), static_cast<ssize_t>(lines.size()));
    ASSERT_EQ(send(connection, "te 3\n", 5, 0), 5);
    std::string replies(9, '\0');
    ASSERT_EQ(recv(connection, replies.data(), replies.size(), MSG_WAITALL), 9);
    EXPECT_EQ(replies, "ok\nok\nok\n");
    EXPECT_EQ(Now().replies.late, 3ms);
    close(connection);
}

TEST_F(ControlServerTest, LeavesNothingBehind) {
    m_server.reset();
    EXPECT_FALSE(std::filesystem::exists(m_socket));
    EXPECT_THROW(Tell(m_socket, "count"), std::system_error);
}

TEST_F(ControlServerTest, EndsWhileAConnectionIsOpen) {
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    m_socket.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    m_server.reset();
    close(connection);
}

TEST_F(ControlServerTest, TwoDoNotShareASocket) {
    EXPECT_THROW(ControlServer(m_socket, m_simulator), std::system_error);
    EXPECT_EQ(Tell(m_socket, "late 7"), "ok");
}

TEST_F(ControlServerTest, AnAbandonedSocketIsTakenOver) {
    const int abandoned = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/dev/abandoned";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(abandoned, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(abandoned);
    const ControlServer server(path, m_simulator);
    EXPECT_EQ(Tell(path, "late 8"), "ok");
}

TEST_F(ControlServerTest, APathThatIsTooLongIsRefused) {
    EXPECT_THROW(ControlServer(std::string(200, 'x'), m_simulator), std::system_error);
    EXPECT_THROW(Tell(std::string(200, 'x'), "count"), std::system_error);
}

} // namespace
