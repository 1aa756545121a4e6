#include "Client.h"
#include "ServeFixture.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

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
