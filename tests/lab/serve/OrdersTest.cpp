#include "Client.h"

#include "tools/emulator/Simulator.h"

#include <gtest/gtest.h>

using nlohmann::json;

namespace {

// Answered after 0.4 s, carried out or not.
constexpr const char* kPrompt = "Content-Type: application/json\r\nPrefer: respond-async\r\n";

void Ask(emulator::Simulator& simulator, bool on) {
    simulator.Change([on](emulator::Behaviour& behaviour) { behaviour.asks = on; });
}

// A simulator, and a server that has found it.
class OrdersTest : public testing::Test {
  protected:
    OrdersTest() {
        folder.Write("slow.hea", "slow 1 100 6000\nslow.dat 16 1000/mV 16 0 0 0 0 I\n");
        folder.Write("slow.dat", std::string(12000, 'x'));
        server.Await(
            [](const json& state) { return state.at("simulator").at("connected") == true; });
    }

    // Lead I at 100 per second: a buffer of the simulator lasts 1.5 s, and it counts as silent
    // after another four.
    void PlaySlow() const {
        server.Post("/api/play", R"({"material":"slow.hea","loop":true})");
        server.Await([](const json& state) { return state.at("output").at("state") == "playing"; });
    }

    const Folder folder;
    emulator::Simulator simulator{emulator::Settings::Of(emulator::Unit::kSixteenBit, 0)};
    const ServerProgram server{{"--root", folder.Path()}};
};

} // namespace

// The play waits for a request of the simulator, and the switch of the noise for the play.
TEST_F(OrdersTest, EachOrderUnderWayIsTold) {
    PlaySlow();
    Ask(simulator, false);
    const Reply play = server.Post("/api/play", R"({"material":"square"})", kPrompt);
    const Reply noise = server.Post("/api/noise", R"({"on":true})", kPrompt);
    if (play.status != 202 || noise.status != 202) {
        GTEST_SKIP() << "The machine took seconds for two requests.";
    }
    const json state = server.State();
    const json first = {{"order", "play"}, {"material", "square"}};
    const json last = {{"order", "noise"}, {"material", nullptr}};
    EXPECT_EQ(state.at("orders"), json::array({first, last}));
    EXPECT_EQ(state.at("pending"), last);
    Ask(simulator, true);
    const json done = server.Await([](const json& now) { return now.at("orders").empty(); });
    EXPECT_TRUE(done.at("pending").is_null());
}

// A stop gives up the play whose material is still being looked at: it will not start any more.
TEST_F(OrdersTest, AnOrderThatIsGivenUpIsNotTold) {
    PlaySlow();
    Ask(simulator, false);
    const Reply play = server.Post("/api/play", R"({"material":"square"})", kPrompt);
    const Reply stop = server.Post("/api/stop", "{}", kPrompt);
    if (play.status != 202 || stop.status != 202) {
        GTEST_SKIP() << "The machine took seconds for two requests.";
    }
    const json order = {{"order", "stop"}, {"material", nullptr}};
    EXPECT_EQ(server.State().at("orders"), json::array({order}));
}

// A page that did not give the order learns from the state what its noise button can do.
TEST_F(OrdersTest, TheStateTellsWhatNoiseCanBeSwitched) {
    const auto play = [&](const std::string& body, const char* material) {
        server.Post("/api/play", body);
        return server.Await([&](const json& state) {
            return state.at("output").at("material") == material && state.at("orders").empty();
        })["output"];
    };
    const json chosen =
        play(R"({"material":"builtin:CAL20000","noise":"50HZ","loop":true})", "builtin:CAL20000");
    EXPECT_EQ(chosen.at("noiseChosen"), "50HZ");
    EXPECT_EQ(chosen.at("noiseSwitchable"), true);
    server.Post("/api/noise", R"({"on":false})");
    const json off = server.Await(
        [](const json& state) { return state.at("output").at("noise") == false; })["output"];
    EXPECT_EQ(off.at("noiseChosen"), "50HZ");
    EXPECT_EQ(off.at("noiseSwitchable"), true);
    const json none = play(R"({"material":"sine"})", "sine");
    EXPECT_TRUE(none.at("noiseChosen").is_null());
    EXPECT_EQ(none.at("noiseSwitchable"), false);
    // Noise of a record is part of what is loaded.
    const json part = play(R"({"material":"slow.hea","noise":"slow.hea"})", "slow.hea");
    EXPECT_EQ(part.at("noiseChosen"), "slow.hea");
    EXPECT_EQ(part.at("noiseSwitchable"), false);
}

// The page of a plan tells of a simulator that has stopped asking, as that of the bench does.
TEST(PlanOrdersTest, APlanTellsOfASilentSimulator) {
    const Folder folder;
    const std::string plan = folder.Write("p.toml", "title = \"t\"\n[[step]]\nname = \"s\"\n"
                                                    "material = \"sine\"\nseconds = 60\n");
    emulator::Simulator simulator(emulator::Settings::Of(emulator::Unit::kSixteenBit, 0));
    const ServerProgram run = ServerProgram::OfRun({plan, "--output", folder.Path() + "/out"});
    const json playing =
        run.Await([](const json& state) { return state.at("output").at("framesPlayed") > 0; });
    EXPECT_EQ(playing.at("output").at("silent"), false);
    Ask(simulator, false);
    const json silent =
        run.Await([](const json& state) { return state.at("output").at("silent") == true; });
    EXPECT_EQ(silent.at("findings")[0].at("code"), "silent");
}
