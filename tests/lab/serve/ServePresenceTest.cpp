#include "Client.h"
#include "ServeFixture.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

TEST_F(ServeTest, ASimulatorThatComesBackUnderAnotherPortIsTaken) {
    emulator::Simulator simulator(Unit(1));
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"sine\"}");
    simulator.Vanish();
    const json lost = server.Await([](const json& state) {
        return IsIdle(state) && !IsConnected(state) && !state.at("findings").empty();
    });
    EXPECT_EQ(lost.at("last").at("result"), "lost");
    EXPECT_EQ(lost.at("findings")[0].at("state"), "failed");
    simulator.Return(3);
    const json back = server.Await(IsConnected);
    EXPECT_EQ(back.at("simulator").at("device"), "/dev/ttyACM3");
    EXPECT_TRUE(back.at("findings").empty()) << back.dump();
    Play(server, "{\"material\":\"sine\"}");
}

TEST_F(ServeTest, TheSecondServerOfOneSimulatorSaysWhoHasIt) {
    emulator::Simulator simulator(Unit());
    const ServerProgram first({"--root", m_folder.Path()});
    first.Await(IsConnected);
    const ServerProgram second({"--root", m_folder.Path()});
    const std::string holder = "ravo-serve (process " + std::to_string(first.Id()) + ")";
    second.Await([&](const json& state) {
        const json& findings = state.at("findings");
        return std::any_of(findings.begin(), findings.end(), [&](const json& finding) {
            return finding.at("found").get<std::string>().find(holder) != std::string::npos;
        });
    });
}

TEST_F(ServeTest, ASignalEndsOutputAndFreesThePort) {
    emulator::Simulator simulator(Unit());
    ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"sine\"}");
    EXPECT_TRUE(std::filesystem::exists(kLock));
    EXPECT_EQ(server.End(SIGTERM), 128 + SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(kLock));
    EXPECT_GE(simulator.Seen().Count().stops, 1U);
}

TEST_F(ServeTest, ASilentSimulatorHoldsUpNobody) {
    emulator::Simulator simulator(Unit());
    ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"sine\"}");
    simulator.Change([](emulator::Behaviour& behaviour) { behaviour.asks = false; });
    server.Await([](const json& state) { return state.at("output").at("silent").get<bool>(); });
    const auto starts = simulator.Seen().Count().starts;
    ExpectRefused(server.Post("/api/play", "{\"material\":\"square\"}"), 503);
    EXPECT_EQ(simulator.Seen().Count().starts, starts);
    EXPECT_EQ(server.End(SIGTERM), 128 + SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(kLock));
}

TEST_F(ServeTest, EveryViewerSeesEachChangeAndGoneOnesAreNotCounted) {
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Viewer first(server);
    {
        Viewer second(server);
        server.Await([](const json& state) { return state.at("viewers") == 2; });
        Play(server, "{\"material\":\"sine\"}");
        while (!IsPlaying(first.Next("state"))) {
        }
        while (!IsPlaying(second.Next("state"))) {
        }
    }
    server.Await([](const json& state) { return state.at("viewers") == 1; });
    while (first.Next("state").at("viewers") != 1) {
    }
}

TEST_F(ServeTest, AViewerWhoseMachineIsGoneIsNotCounted) {
    const ServerProgram server({"--root", m_folder.Path()});
    Viewer gone(server);
    Viewer there(server);
    server.Await([](const json& state) { return state.at("viewers") == 2; });
    gone.Vanish();
    server.Await([](const json& state) { return state.at("viewers") == 1; });
    while (there.Next("state").at("viewers") != 1) {
    }
}

// The stop of the previous play waits for a request that never comes.
TEST_F(ServeTest, APlayThatIsRefusedAfterItsAnswerTellsSo) {
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"sine\"}");
    simulator.Change([](emulator::Behaviour& behaviour) { behaviour.asks = false; });
    const auto starts = simulator.Seen().Count().starts;
    ExpectRefusedPlay(server, "{\"material\":\"square\"}", 503);
    EXPECT_TRUE(server.State().at("pending").is_null());
    EXPECT_EQ(simulator.Seen().Count().starts, starts);
}

// Loading a long record takes a while. If a stop comes too late for one, on a fast machine that is
// busy, it comes in time for a longer one.
TEST_F(ServeTest, APlayIsGivenUpWhileItLoads) {
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    bool isGivenUp = false;
    constexpr std::uintmax_t kHour = 3600 * kRate;
    for (std::uintmax_t samples = 2 * kHour; samples <= 16 * kHour && !isGivenUp; samples *= 2) {
        m_folder.Write("long.hea", "long 1 250 " + std::to_string(samples) +
                                       "\nlong.dat 16 1000/mV 16 0 0 0 0 I\n");
        std::filesystem::resize_file(m_folder.Write("long.dat", ""), 2 * samples);
        Play(server, "{\"material\":\"sine\"}");
        const auto starts = simulator.Seen().Count().starts;
        ExpectTaken(server.Post("/api/play", "{\"material\":\"long.hea\"}",
                                "Content-Type: application/json\r\nPrefer: respond-async\r\n"));
        server.Await([](const json& state) {
            return !state.at("last").is_null() && state.at("last").at("result") == "replaced";
        });
        const json stopped = Give(server, "/api/stop", "", [](const json& state) {
            return IsIdle(state) && state.at("pending").is_null();
        });
        EXPECT_TRUE(stopped.at("refused").is_null()) << stopped;
        isGivenUp = stopped.at("last").at("material") == "sine";
        EXPECT_EQ(simulator.Seen().Count().starts, starts + (isGivenUp ? 0 : 1));
    }
    if (!isGivenUp) {
        GTEST_SKIP() << "Every stop came after the load.";
    }
}

// The process that checks material is stopped in the middle of a check, so that the check takes a
// minute.
TEST_F(ServeTest, AnOrderDoesNotWaitForTheCheckOfAnEarlierOne) {
    m_folder.WriteRamp("ramp", 8);
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"sine\"}");
    ASSERT_EQ(::kill(server.ChildId(), SIGSTOP), 0);
    const Reply late = server.Post("/api/play", "{\"material\":\"ramp.hea\"}");
    EXPECT_EQ(late.status, 202);
    const json pending = {{"order", "play"}, {"material", "ramp.hea"}};
    EXPECT_EQ(late.Json().at("pending"), pending);
    EXPECT_EQ(server.State().at("pending"), pending);
    ExpectTaken(server.Post("/api/noise", "{\"on\":false}"));
    Play(server, "{\"material\":\"square\"}");
    server.Await([](const json& state) { return state.at("pending").is_null(); });
    EXPECT_EQ(simulator.Seen().Count().starts, 2U);
}

TEST_F(ServeTest, AThousandHalfRequestsHoldUpNobody) {
    const ServerProgram server({"--root", m_folder.Path()});
    std::vector<std::unique_ptr<Connection>> half;
    for (int i = 0; i < 1000; ++i) {
        try {
            half.push_back(std::make_unique<Connection>(server.Port()));
        } catch (const std::runtime_error&) {
            break; // as many as this process may open
        }
        half.back()->Send("GET /api/state HT");
        if (i % 100 == 99) {
            half.pop_back(); // room for the next request
            EXPECT_EQ(server.Get("/").status, 200);
            ExpectTaken(server.Post("/api/stop", "{}"));
        }
    }
    EXPECT_GT(half.size(), 500U);
}
