#include "lab/serve/Site.h"

#include "Client.h"
#include "tests/support/Eventually.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace lab::serve;

// ---- Slow clients -------------------------------------------------------------------------------

namespace {

// Returns an answer that is longer than the system accepts at once.
class LongStage : public Stage {
  public:
    static constexpr std::size_t kLength = std::size_t{24} << 20;

    BenchState State(int /*viewers*/) const override { return {}; }
    HttpAnswer Play(const HttpRequest& /*request*/) override { return {}; }
    HttpAnswer Stop(const HttpRequest& /*request*/) override { return {}; }
    HttpAnswer SwitchNoise(const HttpRequest& /*request*/) override { return {}; }
    HttpAnswer List(const std::string& /*under*/) override {
        HttpAnswer answer;
        answer.body = std::string(kLength, ' ');
        return answer;
    }
    HttpAnswer Preview(const std::string& /*material*/, double /*start*/,
                       double /*seconds*/) override {
        return {};
    }
    HttpAnswer Overview(const std::string& /*material*/) override { return {}; }
    void StopBrowsing() override {}
};

// Records how long an order may take when it arrives.
class TimedStage : public LongStage {
  public:
    HttpAnswer Play(const HttpRequest& request) override {
        patience = request.deadline - std::chrono::steady_clock::now();
        return {};
    }

    std::chrono::steady_clock::duration patience{};
};

int PortOf(const Site& site) {
    return std::stoi(site.Url().substr(site.Url().rfind(':') + 1));
}

} // namespace

// No more than 64 MB are queued altogether.
TEST(SiteTest, ClientsThatDoNotReadMakeRoomForThoseThatCome) {
    LongStage stage;
    Site site({"127.0.0.1:0", ""});
    const int port = PortOf(site);
    const OpenSite open(site, stage);
    std::vector<std::unique_ptr<::Connection>> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(std::make_unique<::Connection>(port));
        clients.back()->Send(
            "GET /api/materials HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n");
        clients.back()->ReadUntil("\r\n\r\n");
    }
    EXPECT_LT(clients.front()->ReadToEnd().size(), LongStage::kLength);
    EXPECT_EQ(clients.back()->ReadToEnd().size(), LongStage::kLength);
}

// The remainder of the two seconds, and of the half second of a client that does not wait for the
// outcome, is for the transfer in both directions.
TEST(SiteTest, AnOrderIsAnsweredInTime) {
    using std::chrono::milliseconds;
    TimedStage stage;
    Site site({"127.0.0.1:0", ""});
    const int port = PortOf(site);
    const OpenSite open(site, stage);
    const auto post = [&](const std::string& header) {
        const ::Connection client(port);
        client.Send("POST /api/play HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n" +
                    header + "Content-Type: application/json\r\nContent-Length: 2\r\n\r\n{}");
        EXPECT_EQ(ReplyOf(client.ReadToEnd()).status, 200);
        return stage.patience;
    };
    EXPECT_LE(post(""), milliseconds(1700));
    // On a machine that is held up for more than a second, no more of the two seconds than of the
    // half second remains.
    EXPECT_TRUE(Eventually([&] { return post("") > milliseconds(400); }));
    for (const char* preference : {"respond-async", "wait=9, Respond-Async"}) {
        EXPECT_LE(post(std::string("prefer: ") + preference + "\r\n"), milliseconds(400));
    }
}

// ---- The end ------------------------------------------------------------------------------------

namespace {

// Reads a folder until it is told to stop.
class SlowStage : public Stage {
  public:
    BenchState State(int /*viewers*/) const override { return {}; }
    HttpAnswer Play(const HttpRequest& /*request*/) override { return {}; }
    HttpAnswer Stop(const HttpRequest& /*request*/) override { return {}; }
    HttpAnswer SwitchNoise(const HttpRequest& /*request*/) override { return {}; }
    HttpAnswer List(const std::string& /*under*/) override {
        begun.set_value();
        m_stopped.get_future().wait();
        return {};
    }
    HttpAnswer Preview(const std::string& /*material*/, double /*start*/,
                       double /*seconds*/) override {
        return {};
    }
    HttpAnswer Overview(const std::string& /*material*/) override { return {}; }
    void StopBrowsing() override { m_stopped.set_value(); }

    std::promise<void> begun;

  private:
    std::promise<void> m_stopped;
};

} // namespace

TEST(SiteTest, EndsWhileMaterialIsLookedAt) {
    SlowStage stage;
    Site site({"127.0.0.1:0", ""});
    const int port = PortOf(site);
    const ::Connection client(port);
    {
        const OpenSite open(site, stage);
        client.Send("GET /api/materials HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                    "\r\n\r\n");
        stage.begun.get_future().wait();
    }
}
