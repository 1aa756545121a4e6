#include "Client.h"

#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

constexpr int kRate = 250;
constexpr const char* kLock = "/var/lock/tarnwick.ACM0.lock";

emulator::Settings Unit(int port = 0) {
    return emulator::Settings::Of(emulator::Unit::kSixteenBit, port);
}

bool IsConnected(const json& state) {
    return state.at("simulator").at("connected").get<bool>();
}

bool IsPlaying(const json& state) {
    return state.at("output").at("state") == "playing";
}

bool IsIdle(const json& state) {
    return state.at("output").at("state") == "idle";
}

// Names the place, the problem and the cure, with the field names of JSON and each on one line.
void ExpectForClient(const json& error) {
    EXPECT_TRUE(error.at("where").is_string() && error.at("problem").is_string() &&
                error.at("cure").is_string());
    EXPECT_NE(error.at("where").get<std::string>().rfind("--", 0), 0U) << error;
    EXPECT_EQ(error.dump().find("\\n"), std::string::npos) << error;
}

void ExpectRefused(const Reply& reply, int status) {
    EXPECT_EQ(reply.status, status) << reply.body;
    ExpectForClient(reply.Json().at("error"));
    EXPECT_EQ(reply.headers.count("access-control-allow-origin"), 0U);
    EXPECT_EQ(reply.headers.at("cache-control"), "no-store");
}

// An order that has been carried out or, on a busy machine, soon will be.
void ExpectTaken(const Reply& reply) {
    EXPECT_TRUE(reply.status == 200 || reply.status == 202) << reply.body;
}

// An order that cannot be carried out; a busy machine may not find this out in time for the answer.
void ExpectRefusedOrder(const Reply& reply, int status) {
    if (reply.status != 202) {
        ExpectRefused(reply, status);
    }
}

// Gives an order and waits until it has been carried out: on a busy machine that may be after its
// answer.
template <typename Condition>
json Give(const ServerProgram& server, const std::string& target, const std::string& body,
          const Condition& isDone) {
    const Reply reply = server.Post(target, body);
    ExpectTaken(reply);
    return server.Await(isDone);
}

json Play(const ServerProgram& server, const std::string& body) {
    const std::string material = json::parse(body).at("material");
    return Give(server, "/api/play", body, [&](const json& state) {
        return IsPlaying(state) && state.at("output").at("material") == material;
    });
}

// The same for a play that is refused.
void ExpectRefusedPlay(const ServerProgram& server, const std::string& body, int status) {
    const Reply reply = server.Post("/api/play", body);
    if (reply.status == 202) {
        ExpectForClient(
            server.Await([](const json& state) { return !state.at("refused").is_null(); })
                .at("refused"));
    } else {
        ExpectRefused(reply, status);
    }
}

class ServeTest : public testing::Test {
  protected:
    Folder m_folder;
};

// Expects the ramp's samples from frame `next` on, and advances `next` past them.
void TakeRamp(const Viewer::Event& event, int& next) {
    ASSERT_EQ(event.name, "samples");
    ASSERT_DOUBLE_EQ(event.data.at("position").get<double>(), next / 250.0);
    for (const json& value : event.data.at("leads")[0]) {
        ASSERT_EQ(value.get<double>(), (next - 1000) / 1000.0);
        ++next;
    }
}

} // namespace

// ---- Without a simulator ------------------------------------------------------------------------

TEST_F(ServeTest, TellsWhatIsMissingAndPlaysNothing) {
    const ServerProgram server({"--root", m_folder.Path()});
    const json state = server.Await([](const json& now) { return !now.at("findings").empty(); });
    EXPECT_EQ(state.at("format"), 1);
    EXPECT_FALSE(IsConnected(state));
    EXPECT_TRUE(IsIdle(state));
    EXPECT_EQ(state.at("output").at("noise"), false);
    EXPECT_EQ(state.at("viewers"), 0);
    EXPECT_FALSE(state.at("findings")[0].at("cure").is_null());
    ExpectRefusedPlay(server, "{\"material\":\"sine\"}", 503);
    ExpectTaken(server.Post("/api/stop", "{}"));
    ExpectRefusedOrder(server.Post("/api/noise", "{\"on\":true}"), 409);
    const Reply metrics = server.Get("/metrics");
    EXPECT_NE(metrics.body.find("\nravo_connected 0\n"), std::string::npos) << metrics.body;
    EXPECT_NE(metrics.body.find("\nravo_viewers 0\n"), std::string::npos) << metrics.body;
}

TEST_F(ServeTest, ThePageIsOneDocument) {
    const ServerProgram server({"--root", m_folder.Path()});
    const Reply page = server.Get("/");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
    EXPECT_EQ(page.headers.at("content-security-policy").rfind("default-src 'none'", 0), 0U);
    for (const char* foreign : {"src=\"", "url(", "@import", "http://", "https://", "\nimport "}) {
        EXPECT_EQ(page.body.find(foreign), std::string::npos) << foreign;
    }
    const Reply small = server.Get("/", "Accept-Encoding: gzip\r\n");
    EXPECT_LT(small.body.size(), 60'000U);
}

TEST_F(ServeTest, RefusesWithTheRightStatus) {
    const ServerProgram server({"--root", m_folder.Path()});
    const std::string own = "http://" + server.Host();
    const std::string type = "Content-Type: application/json\r\n";
    ExpectRefused(server.Get("/nothing"), 404);
    ExpectRefused(server.Get("/api/play/"), 404);
    ExpectRefused(server.Get("/api/play"), 405);
    ExpectRefused(server.Post("/api/state", "{}"), 405);
    ExpectRefused(server.Raw("DELETE / HTTP/1.1\r\nHost: " + server.Host() + "\r\n\r\n"), 405);
    ExpectRefused(server.Raw("OPTIONS /api/play HTTP/1.1\r\nHost: " + server.Host() + "\r\n\r\n"),
                  405);
    ExpectRefused(server.Post("/api/stop", "{}", "Content-Type: text/plain\r\n"), 415);
    ExpectRefused(server.Post("/api/stop", "{}", ""), 415);
    ExpectRefused(server.Post("/api/stop", "{}", type + "Origin: http://example.org\r\n"), 403);
    ExpectRefused(server.Post("/api/stop", "{}", type + "Origin: null\r\n"), 403);
    ExpectRefused(server.Get("/api/state", "Origin: http://example.org\r\n"), 403);
    ExpectRefused(server.Get("/api/state", "Sec-Fetch-Site: cross-site\r\n"), 403);
    ExpectTaken(server.Post("/api/stop", "{}", type + "Origin: " + own + "\r\n"));
    ExpectRefused(server.Raw("GET / HTTP/1.1\r\nHost: example.org\r\n\r\n"), 403);
    ExpectRefused(server.Raw("GET / HTTP/1.1\r\n\r\n"), 403);
    ExpectRefused(server.Raw("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"), 403);
    EXPECT_EQ(
        server
            .Raw("GET / HTTP/1.1\r\nHost: localhost:" + std::to_string(server.Port()) + "\r\n\r\n")
            .status,
        200);
    ExpectRefused(server.Post("/api/play", "{"), 400);
    ExpectRefused(server.Post("/api/play", "{\"material\":\"sine\",\"volume\":1}"), 422);
    ExpectRefused(server.Post("/api/play", std::string(70'000, ' ')), 413);
    ExpectRefused(server.Raw("nonsense\r\n\r\n"), 400);
    ExpectRefused(server.Post("/api/play", "{\"material\":\"../x.hea\"}"), 403);
    ExpectRefused(server.Get("/api/preview?material=/etc/passwd"), 403);
    ExpectRefused(server.Get("/api/materials?under=.."), 403);
    ExpectRefused(server.Get("/api/materials?under=none"), 404);
    ExpectRefused(server.Get("/api/preview"), 400);
    ExpectRefused(server.Get("/api/preview?material=sine&seconds=x"), 422);
    ExpectRefused(server.Get("/api/preview?material=missing.hea"), 422);
    ExpectRefused(server.Get("/api/preview?material=sine&material=square"), 422);
    ExpectRefused(server.Get("/api/preview?material=sine&material=sine"), 422);
    ExpectRefused(server.Get("/api/materials?under=&under="), 422);
    ExpectRefused(server.Get("/api/state", "Origin:\r\n"), 403);
    ExpectRefused(server.Get("/api/state", "Origin: " + own + "\r\nOrigin: " + own + "\r\n"), 403);
}

// As sent by clients that take the server for a proxy: the address itself names the host.
TEST_F(ServeTest, TakesWholeAddresses) {
    const ServerProgram server({"--root", m_folder.Path()});
    const auto status = [&](const std::string& target, const std::string& host) {
        return server.Raw("GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n").status;
    };
    const std::string own = "http://" + server.Host();
    EXPECT_EQ(status(own, server.Host()), 200);
    EXPECT_EQ(status(own + "/api/state", server.Host()), 200);
    EXPECT_EQ(status("HTTP://" + server.Host() + "/api/materials?under=", server.Host()), 200);
    EXPECT_EQ(status(own + "/api/state", "example.org"), 200);
    EXPECT_EQ(status("http://example.org/api/state", server.Host()), 403);
    EXPECT_EQ(status("http:///api/state", server.Host()), 403);
    EXPECT_EQ(status(own + "/nothing", server.Host()), 404);
}

TEST_F(ServeTest, TheTokenGuardsAllButThePage) {
    const std::string file = m_folder.Write("token", "open%2Dsesame+\n");
    ::chmod(file.c_str(), 0600);
    const ServerProgram server({"--root", m_folder.Path(), "--token-file", file});
    EXPECT_EQ(server.Get("/").status, 200);
    for (const char* target : {"/api/state", "/api/events", "/api/materials", "/metrics"}) {
        ExpectRefused(server.Get(target), 401);
        ExpectRefused(server.Get(target, "Authorization: Bearer open-sesame+\r\n"), 401);
    }
    ExpectRefused(server.Post("/api/stop", "{}"), 401);
    const std::string right = "Authorization: Bearer open%2Dsesame+\r\n";
    EXPECT_EQ(server.Get("/api/state", right).status, 200);
    EXPECT_EQ(server.Get("/metrics", right).status, 200);
    Viewer viewer(server, right);
    EXPECT_EQ(viewer.Next().name, "state");
}

TEST_F(ServeTest, DoesNotListenWhereItMustNot) {
    const auto [status, text] = RunServer({"--listen", "0.0.0.0:0", "--root", m_folder.Path()});
    EXPECT_EQ(status, 1);
    EXPECT_NE(text.find("--token-file: is missing"), std::string::npos) << text;
    const ServerProgram server({"--root", m_folder.Path()});
    for (const auto& [option, value] :
         {std::pair("--token-file", ""), std::pair("--speed-up", "nan")}) {
        const auto refused = RunServer({"--listen", "127.0.0.1:0", option, value});
        EXPECT_EQ(refused.first, 1);
        EXPECT_NE(refused.second.find(option), std::string::npos) << refused.second;
    }
    const auto taken = RunServer({"--listen", server.Host()});
    EXPECT_EQ(taken.first, 1);
    EXPECT_NE(taken.second.find("cannot be opened for listening"), std::string::npos)
        << taken.second;
}

TEST_F(ServeTest, HelpThatCannotBeWrittenIsAFailure) {
    for (const char* option : {"--help", "--version"}) {
        const std::string words = std::string(RAVO_SERVE_PROGRAM) + " " + option;
        EXPECT_EQ(std::system((words + " >/dev/null").c_str()), 0) << option;
        const int status = std::system((words + " >/dev/full 2>/dev/null").c_str());
        EXPECT_EQ(WEXITSTATUS(status), 6) << option;
    }
}

TEST_F(ServeTest, ListsAndPreviewsWithoutPlaying) {
    m_folder.WriteRamp("ramp", 8);
    m_folder.WriteRamp("deep/er", 4);
    m_folder.Write("broken.hea", "nothing of this\n");
    const ServerProgram server({"--root", m_folder.Path()});
    const json list = server.Get("/api/materials").Json();
    EXPECT_EQ(list.at("folders")[0].at("under"), "deep");
    const json& ramp = list.at("materials")[0];
    EXPECT_EQ(ramp.at("material"), "ramp.hea");
    EXPECT_EQ(ramp.at("name"), "ramp");
    EXPECT_EQ(ramp.at("duration"), 8);
    EXPECT_EQ(ramp.at("rate"), kRate);
    EXPECT_EQ(ramp.at("leads"), json({"I"}));
    EXPECT_EQ(ramp.at("source"), "file");
    EXPECT_EQ(list.at("unreadable")[0].at("name"), "broken.hea");
    EXPECT_EQ(list.at("materials")[1].at("material").get<std::string>().rfind("builtin:", 0), 0U);
    const json deep = server.Get("/api/materials?under=deep").Json();
    ASSERT_EQ(deep.at("materials").size(), 1U);
    EXPECT_EQ(deep.at("materials")[0].at("material"), "deep/er.hea");

    const json preview = server.Get("/api/preview?material=ramp.hea&start=1.5&seconds=0.02").Json();
    EXPECT_EQ(preview.at("position"), 1.5);
    EXPECT_EQ(preview.at("rate"), kRate);
    EXPECT_EQ(preview.at("leads").size(), 12U);
    EXPECT_EQ(preview.at("leads")[0], json({-0.625, -0.624, -0.623, -0.622, -0.621}));
    EXPECT_EQ(preview.at("leads")[6], json({0, 0, 0, 0, 0})); // V1, which nothing feeds
}

TEST_F(ServeTest, AnOverviewHoldsWhatTheRecordHoldsAndNothingElse) {
    m_folder.WriteRamp("long", 8); // 2000 samples in 600 columns
    m_folder.WriteRamp("short", 1);
    const ServerProgram server({"--root", m_folder.Path()});
    const json whole = server.Get("/api/overview?material=long.hea").Json();
    EXPECT_EQ(whole.at("lead"), "I");
    EXPECT_EQ(whole.at("least").size(), 600U);
    EXPECT_EQ(whole.at("least")[0], -1); // samples 0 to 3
    EXPECT_EQ(whole.at("most")[0], -0.997);
    EXPECT_EQ(whole.at("least")[599], 0.997); // samples 1997 to 1999
    EXPECT_EQ(whole.at("most")[599], 0.999);
    // Columns without a sample of their own, every second or third one, repeat the previous one.
    const json part = server.Get("/api/overview?material=short.hea").Json();
    for (const char* side : {"least", "most"}) {
        EXPECT_EQ(part.at(side)[0], -1);
        EXPECT_EQ(part.at(side)[1], -1);
        EXPECT_EQ(part.at(side)[2], -0.999);
        EXPECT_EQ(part.at(side)[599], -0.751);
    }
}

TEST_F(ServeTest, ListsNothingUnderANameThatCannotBeAskedFor) {
    m_folder.WriteRamp("latin\xE9", 1);
    const ServerProgram server({"--root", m_folder.Path()});
    const json list = server.Get("/api/materials").Json();
    EXPECT_EQ(list.at("materials")[0].at("source"), "stand-in") << list.at("materials")[0];
    ASSERT_EQ(list.at("unreadable").size(), 1U);
    EXPECT_EQ(list.at("unreadable")[0].at("problem"),
              "cannot be asked for: its name is not UTF-8.");
}

TEST_F(ServeTest, LinksAndSignalFilesDoNotLeadOutside) {
    const Folder outside;
    outside.WriteRamp("secret", 4);
    namespace fs = std::filesystem;
    fs::create_symlink(outside.Path() + "/secret.hea", m_folder.Path() + "/link.hea");
    fs::create_symlink(outside.Path() + "/secret.dat", m_folder.Path() + "/linked.dat");
    m_folder.Write("data.hea", "data 1 250 1000\nlinked.dat 16 1000/mV 16 0 0 0 0 I\n");
    const ServerProgram server({"--root", m_folder.Path()});
    for (const char* name : {"link.hea", "data.hea"}) {
        ExpectRefused(server.Get(std::string("/api/preview?material=") + name), 403);
        // Whether a simulator is connected is checked afterwards.
        ExpectRefusedPlay(server, std::string("{\"material\":\"") + name + "\"}", 403);
    }
    const json list = server.Get("/api/materials").Json();
    EXPECT_EQ(list.at("materials")[0].at("source"), "stand-in") << list.at("materials")[0];
}

TEST_F(ServeTest, TheRootMayBeNamedByALink) {
    const Folder real;
    const Folder outside;
    real.WriteRamp("deep/er", 4);
    outside.WriteRamp("secret", 4);
    namespace fs = std::filesystem;
    const std::string link = m_folder.Path() + "/root";
    fs::create_directory_symlink(real.Path(), link);
    fs::create_symlink(outside.Path() + "/secret.hea", real.Path() + "/link.hea");
    const ServerProgram server({"--root", link});
    const json list = server.Get("/api/materials").Json();
    EXPECT_EQ(list.at("folders"), json::parse(R"([{"name":"deep","under":"deep"}])"));
    for (const std::string& under : {std::string("deep"), link + "/deep", real.Path() + "/deep"}) {
        const json deep = server.Get("/api/materials?under=" + under).Json();
        EXPECT_EQ(deep.at("under"), "deep");
        EXPECT_EQ(deep.at("materials")[0].at("material"), "deep/er.hea");
    }
    for (const std::string& name : {std::string("deep/er.hea"), link + "/deep/er.hea"}) {
        EXPECT_EQ(server.Get("/api/preview?material=" + name).status, 200) << name;
    }
    const json error = server.Get("/api/preview?material=" + link + "/none.hea").Json().at("error");
    EXPECT_EQ(error.at("where"), "none.hea");
    ExpectRefused(server.Get("/api/preview?material=link.hea"), 403);
    ExpectRefused(server.Get("/api/preview?material=" + link + "/link.hea"), 403);
    ExpectRefused(server.Get("/api/preview?material=" + link + "/../token"), 403);
}

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

// ---- Coming and going ---------------------------------------------------------------------------

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
