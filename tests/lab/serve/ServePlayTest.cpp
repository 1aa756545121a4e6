#include "Client.h"
#include "ServeFixture.h"
#include "tools/emulator/Simulator.h"

#include <csignal>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// ---- With a simulator ---------------------------------------------------------------------------

TEST_F(ServeTest, ViewersGetTheSamplesThatLeaveTheOutputs) {
    m_folder.WriteRamp("ramp", 8);
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Viewer viewer(server);
    EXPECT_TRUE(IsIdle(viewer.Next("state")));
    const json played = Play(server, "{\"material\":\"ramp.hea\",\"start\":2,\"seconds\":3}");
    EXPECT_EQ(played.at("output").at("duration"), 8);

    int next = 2 * kRate;
    bool wasShown = false;
    for (bool isOver = false; !isOver;) {
        const Viewer::Event event = viewer.Next();
        if (event.name == "state") {
            wasShown = wasShown || IsPlaying(event.data);
            isOver = wasShown && IsIdle(event.data);
            continue;
        }
        ASSERT_NO_FATAL_FAILURE(TakeRamp(event, next));
    }
    EXPECT_EQ(next, 5 * kRate);
    const json state = server.State();
    EXPECT_EQ(state.at("last").at("result"), "finished");
    EXPECT_EQ(state.at("last").at("seconds"), 3);
    EXPECT_NE(server.Get("/metrics").body.find("\nravo_frames_played_total 750\n"),
              std::string::npos);
    // The outputs carried the same: full scale is 32000 steps for 5 mV.
    const auto frames = simulator.Seen().Frames();
    ASSERT_GE(frames.size(), 750U);
    for (int n = 0; n < 750; ++n) {
        const auto code =
            static_cast<uint16_t>((n + 500 - 1000) / 1000.0 / 5.0 * 32000.0 + 32768.0);
        ASSERT_EQ(frames[static_cast<std::size_t>(n)][0], code) << n;
    }
}

// Noise that the library adds restarts with each play that ends by itself, and continues in one
// that loops.
TEST_F(ServeTest, ViewersGetTheNoiseThatLeavesTheOutputs) {
    constexpr std::size_t kSeen = 1507; // not a multiple of the 20 frames of a period
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    std::vector<std::vector<double>> seen;
    for (const char* rest : {"\"seconds\":1.507}", "\"seconds\":1.507}", "\"loop\":true}"}) {
        Viewer viewer(server);
        Play(server, std::string("{\"material\":\"builtin:CAL20000\",\"noise\":\"50HZ\",") + rest);
        std::vector<double>& lead = seen.emplace_back();
        while (lead.size() < kSeen) {
            const json event = viewer.Next("samples");
            ASSERT_DOUBLE_EQ(event.at("position").get<double>(),
                             static_cast<double>(lead.size()) / 1000.0);
            for (const json& value : event.at("leads")[0]) {
                lead.push_back(value);
            }
        }
        Give(server, "/api/stop", "", IsIdle);
    }
    const auto frames = simulator.Seen().Frames();
    const auto starts = simulator.Seen().Starts();
    ASSERT_EQ(starts.size(), seen.size());
    for (std::size_t play = 0; play < seen.size(); ++play) {
        for (std::size_t n = 0; n < kSeen; ++n) {
            const double output =
                (frames.at(starts[play].firstFrame + n)[0] - 32768.0) / 32000.0 * 5.0;
            ASSERT_NEAR(seen[play][n], output, 0.0008) << "play " << play << ", frame " << n;
        }
    }
    EXPECT_EQ(seen[0], seen[1]);
}

TEST_F(ServeTest, ALoopStartsOverWhereItBegan) {
    m_folder.WriteRamp("ramp", 2);
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Viewer viewer(server);
    Play(server, "{\"material\":\"ramp.hea\",\"start\":1,\"loop\":true}");
    int number = 0;
    while (number < 3 * kRate) {
        const json event = viewer.Next("samples");
        int index = kRate + number % kRate;
        ASSERT_DOUBLE_EQ(event.at("position").get<double>(), index / 250.0);
        for (const json& value : event.at("leads")[0]) {
            ASSERT_EQ(value.get<double>(), (index - 1000) / 1000.0);
            ++index;
            ++number;
        }
        ASSERT_LE(index, 2 * kRate);
    }
    Give(server, "/api/stop", "", IsIdle);
}

TEST_F(ServeTest, APlayReplacesAPlayAndARefusedOneDoesNot) {
    m_folder.WriteRamp("ramp", 8);
    m_folder.Write("silent.hea", "silent 1 250 4\nsilent.dat 16 1000/mV 16 0 0 0 0 Pressure\n");
    m_folder.Write("silent.dat", "12345678");
    m_folder.Write("what.xyz", "nothing that anybody knows\n");
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"sine\"}");
    const auto starts = simulator.Seen().Count().starts;
    for (const char* body :
         {"{\"material\":\"none.hea\"}", "{\"material\":\"silent.hea\"}",
          "{\"material\":\"ramp.hea\",\"start\":8}", "{\"material\":\"builtin:NOTHING\"}",
          "{\"material\":\"ramp.hea\",\"frequency\":2}",
          "{\"material\":\"ramp.hea\",\"map\":{\"none\":\"I\"}}", "{\"material\":\"what.xyz\"}"}) {
        ExpectRefusedPlay(server, body, 422);
    }
    EXPECT_EQ(server.State().at("output").at("material"), "sine");
    EXPECT_EQ(simulator.Seen().Count().starts, starts);
    Play(server, "{\"material\":\"ramp.hea\"}");
    EXPECT_EQ(server.State().at("output").at("material"), "ramp.hea");
    EXPECT_EQ(server.State().at("last").at("result"), "replaced");
    EXPECT_EQ(simulator.Seen().Count().starts, starts + 1);
}

TEST_F(ServeTest, NoiseIsSwitchedWhileItPlays) {
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    Play(server, "{\"material\":\"builtin:CAL20000\",\"noise\":\"50HZ\",\"loop\":true}");
    EXPECT_EQ(server.State().at("output").at("noise"), "50HZ");
    Give(server, "/api/noise", "{\"on\":false}",
         [](const json& state) { return state.at("output").at("noise") == false; });
    Give(server, "/api/noise", "{\"on\":true}",
         [](const json& state) { return state.at("output").at("noise") == "50HZ"; });
    ExpectRefused(server.Post("/api/noise", "{\"on\":1}"), 422);
    Play(server, "{\"material\":\"sine\"}");
    ExpectRefusedOrder(server.Post("/api/noise", "{\"on\":true}"), 422);
    ExpectTaken(server.Post("/api/noise", "{\"on\":false}"));
}

TEST_F(ServeTest, ANoiseRecordIsNamedAsItWasAskedFor) {
    m_folder.WriteRamp("ramp", 8);
    m_folder.WriteRamp("hum", 8);
    emulator::Simulator simulator(Unit());
    const ServerProgram server({"--root", m_folder.Path()});
    server.Await(IsConnected);
    const json state = Play(server, "{\"material\":\"ramp.hea\",\"noise\":\"hum.hea\"}");
    EXPECT_EQ(state.at("output").at("noise"), "hum.hea");
}

// ---- A plan that runs ---------------------------------------------------------------------------

TEST_F(ServeTest, APlanIsSeenButNotDisturbed) {
    m_folder.WriteRamp("ramp", 8);
    const std::string plan =
        m_folder.Write("p.toml", "title = \"Night\"\n[[step]]\nname = \"asked\"\nask = \"?\"\n"
                                 "max = 1\n[[step]]\nname = \"ramp\"\nmaterial = \"ramp.hea\"\n"
                                 "start = 2\nseconds = 3\n[[step]]\nname = \"rest\"\n"
                                 "wait = 0.5\n");
    const std::string answers = m_folder.Write("a.toml", "asked = 2\n");
    emulator::Simulator simulator(Unit());
    ServerProgram run = ServerProgram::OfRun(
        {plan, "--output", m_folder.Path() + "/out", "--answers", answers, "--timeout", "60"});
    Viewer viewer(run);
    int next = 2 * kRate;
    bool wasTried = false;
    json last;
    while (last.is_null() || last.at("run").at("outcome") == "") {
        const Viewer::Event event = viewer.Next();
        if (event.name == "state") {
            last = event.data;
            continue;
        }
        ASSERT_NO_FATAL_FAILURE(TakeRamp(event, next));
        if (!wasTried) {
            wasTried = true;
            for (const char* target : {"/api/play", "/api/stop", "/api/noise"}) {
                ExpectRefused(run.Post(target, "{\"material\":\"sine\"}"), 409);
            }
            EXPECT_EQ(run.State().at("output").at("material"), "ramp.hea");
        }
    }
    EXPECT_EQ(next, 5 * kRate);
    EXPECT_EQ(run.AwaitEnd(), 5);
    EXPECT_EQ(simulator.Seen().Count().starts, 1U);
    const json& seen = last.at("run");
    EXPECT_EQ(seen.at("title"), "Night");
    EXPECT_EQ(seen.at("outcome"), "failed");
    EXPECT_EQ(seen.at("count"), 3);
    EXPECT_EQ(seen.at("counts"), json({{"passed", 2}, {"failed", 1}, {"error", 0}}));
    EXPECT_EQ(seen.at("first"), 0);
    EXPECT_EQ(seen.at("steps")[0], json({{"name", "asked"},
                                         {"kind", "ask"},
                                         {"outcome", "failed"},
                                         {"message", "the answer is not one that passes"}}));
    EXPECT_EQ(seen.at("steps")[1].at("outcome"), "passed");
    EXPECT_EQ(last.at("last").at("result"), "finished");
    EXPECT_TRUE(IsIdle(last));
}

TEST_F(ServeTest, APlanTellsOfItsSimulatorInEveryStep) {
    m_folder.WriteRamp("ramp", 8);
    m_folder.WriteRamp("noises/hum", 8);
    const std::string plan = m_folder.Write(
        "p.toml", "title = \"Night\"\n[[step]]\nname = \"ramp\"\nmaterial = \"ramp.hea\"\n"
                  "noise = \"noises/hum.hea\"\nseconds = 2\n[[step]]\nname = \"rest\"\n"
                  "wait = 600\n");
    emulator::Simulator simulator(Unit(1));
    ServerProgram run =
        ServerProgram::OfRun({plan, "--output", m_folder.Path() + "/out", "--timeout", "60"});
    Viewer viewer(run);
    json played = viewer.Next("state");
    while (!IsPlaying(played)) {
        played = viewer.Next("state");
    }
    EXPECT_TRUE(IsConnected(played));
    EXPECT_EQ(played.at("simulator").at("device"), "/dev/ttyACM1");
    EXPECT_EQ(played.at("output").at("noise"), "hum.hea");
    const json resting = run.Await(
        [](const json& state) { return state.at("run").at("current") == 1 && IsConnected(state); });
    EXPECT_NE(resting.at("simulator").at("model"), "");
    EXPECT_DOUBLE_EQ(resting.at("run").at("left").get<double>(), 600.0);
    simulator.Vanish();
    run.Await(
        [](const json& state) { return !IsConnected(state) && !state.at("findings").empty(); });
    simulator.Return(3);
    run.Await([](const json& state) {
        return IsConnected(state) && state.at("simulator").at("device") == "/dev/ttyACM3";
    });
    EXPECT_EQ(run.End(SIGTERM), 128 + SIGTERM);
}
