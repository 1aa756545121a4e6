#include "Client.h"
#include "lab/serve/Address.h"
#include "lab/serve/ClientText.h"
#include "lab/serve/Connection.h"
#include "lab/serve/Framing.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/PlayOrder.h"
#include "lab/serve/Root.h"
#include "lab/serve/Sampler.h"
#include "lab/serve/SamplesJson.h"
#include "lab/serve/Ticket.h"
#include "lab/serve/Token.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace lab::serve;

namespace {

// The status with which `action` is refused; 0 when it is not.
template <typename Action>
int StatusOf(const Action& action) {
    try {
        action();
        return 0;
    } catch (const lab::Failure& failure) {
        return HttpStatusOf(failure);
    }
}

Framing::State Take(Framing& framing, const std::string& bytes) {
    return framing.Take(bytes.data(), bytes.size());
}

int FramingStatus(const std::string& bytes) {
    Framing framing;
    return StatusOf([&] { Take(framing, bytes); });
}

} // namespace

TEST(FramingTest, ARequestIsWholeWithItsLastByte) {
    const std::string head = "POST /x HTTP/1.1\r\nHost: a\r\ncontent-LENGTH:  3 \r\n\r\n";
    Framing framing;
    for (const char byte : head + "ab") {
        ASSERT_EQ(framing.Take(&byte, 1), Framing::State::kIncomplete);
    }
    EXPECT_EQ(Take(framing, "cdef"), Framing::State::kComplete);
    EXPECT_EQ(framing.Head(), head);
    EXPECT_EQ(framing.Body(), "abc");
}

TEST(FramingTest, AClientMayWaitForLeaveToSendItsBody) {
    Framing framing;
    Take(framing, "POST / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 1\r\n\r\n");
    EXPECT_TRUE(framing.TakeExpectation());
    EXPECT_FALSE(framing.TakeExpectation());
    EXPECT_EQ(framing.Head().find("Expect"), std::string::npos);
}

TEST(FramingTest, WhatCannotBeARequestIsRefused) {
    EXPECT_EQ(FramingStatus("GET / HTTP/1.1\r\nX: " + std::string(kMostHeadBytes, 'x')), 431);
    EXPECT_EQ(FramingStatus("POST / HTTP/1.1\r\nContent-Length: 65537\r\n\r\n"), 413);
    EXPECT_EQ(FramingStatus("POST / HTTP/1.1\r\nContent-Length: 65536\r\n\r\n"), 0);
    EXPECT_EQ(FramingStatus("POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n"), 400);
    EXPECT_EQ(FramingStatus("POST / HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n"),
              400);
    EXPECT_EQ(FramingStatus("POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n"),
              400);
    EXPECT_EQ(FramingStatus("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"), 400);
}

TEST(SamplesJsonTest, MillivoltsAreRoundedToAMicrovolt) {
    LeadRows rows;
    rows[0] = {0.0, 1.0, -0.0004, -0.0006, 0.12, 10.005, -5.1, 0.001};
    rows[11] = {-1.2344};
    EXPECT_EQ(SamplesJson(1.5, 360, rows),
              "{\"position\":1.5,\"rate\":360,\"leads\":"
              "[[0,1,0,-0.001,0.12,10.005,-5.1,0.001],[],[],[],[],[],[],[],[],[],[],[-1.234]]}");
}

TEST(PlayOrderTest, TakesTheFieldsOfAPlansStep) {
    const PlayOrder order = ReadPlayOrder(
        R"({"material":"a/b.hea","start":1.5,"seconds":3,"loop":true,"map":{"MLII":"I"}})");
    EXPECT_EQ(order.material, "a/b.hea");
    EXPECT_EQ(order.request.start, 1.5);
    EXPECT_EQ(order.request.material.start, 1.5);
    EXPECT_EQ(order.request.seconds, 3.0);
    EXPECT_TRUE(order.request.loop);
    EXPECT_EQ(order.request.material.map, std::vector<std::string>{"MLII=I"});
}

TEST(PlayOrderTest, RefusesEverythingElse) {
    const auto status = [](const std::string& body) {
        return StatusOf([&] { ReadPlayOrder(body); });
    };
    for (const char* body : {"", "{", "{\"material\":\"sine\"}x", "nul", "{\"material\":\"\xFF\"}",
                             "{\"material\":\"sine\",\"material\":\"square\"}"}) {
        EXPECT_EQ(status(body), 400) << body;
    }
    EXPECT_EQ(status(std::string(60000, '[')), 400);
    for (const char* body :
         {"[]", "1", "{}", "{\"material\":1}", "{\"material\":null}", "{\"material\":\"\"}",
          "{\"material\":\"sine\",\"volume\":3}", "{\"material\":\"sine\",\"name\":\"x\"}",
          "{\"material\":\"sine\",\"ask\":\"x\"}", "{\"material\":\"sine\",\"start\":-1}",
          "{\"material\":\"sine\",\"start\":\"1\"}", "{\"material\":\"sine\",\"start\":1e999}",
          "{\"material\":\"sine\",\"loop\":1}", "{\"material\":\"sine\",\"map\":[]}",
          "{\"material\":\"sine\",\"map\":{\"a\":\"V9\"}}"}) {
        const int refused = status(body);
        EXPECT_TRUE(refused == 422 || (refused == 400 && std::string(body).find("1e999"))) << body;
    }
}

TEST(TokenTest, OnlyItsOwnerMayReadTheFile) {
    const Folder folder;
    const std::string path = folder.Write("token", "secret\n");
    for (const mode_t mode : {0640U, 0604U, 0660U, 0622U, 0644U}) {
        ::chmod(path.c_str(), mode);
        EXPECT_THROW(Token{path}, lab::Failure) << mode;
    }
    ::chmod(path.c_str(), 0600);
    const Token token(path);
    EXPECT_TRUE(token.IsIn("Bearer secret"));
    EXPECT_TRUE(token.IsIn("bearer secret"));
    for (const char* wrong : {"", "secret", "Basic secret", "Bearer secre", "Bearer secrets",
                              "Bearer  secret", "Bearer "}) {
        EXPECT_FALSE(token.IsIn(wrong)) << wrong;
    }
    folder.Write("token", " \n");
    EXPECT_THROW(Token{path}, lab::Failure);
    EXPECT_THROW(Token{folder.Path()}, lab::Failure);
    EXPECT_THROW(Token{folder.Path() + "/none"}, lab::Failure);
}

TEST(AddressTest, AnAddressAndAPort) {
    EXPECT_EQ(ParseListenAddress("127.0.0.1:8737").port, 8737);
    EXPECT_EQ(ParseListenAddress("[::1]:0").host, "::1");
    for (const char* wrong : {"", ":80", "127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "a:65536",
                              "::1:80", "[]:80", "a:-1"}) {
        EXPECT_THROW(ParseListenAddress(wrong), lab::Failure) << wrong;
    }
}

// A name of this machine may lead to itself, and the address that was printed is taken as it is.
TEST(AddressTest, EveryNameOfThisMachineIsTakenWhereAllItsAddressesAreListenedOn) {
    std::array<char, 256> name{};
    ASSERT_EQ(::gethostname(name.data(), name.size() - 1), 0);
    std::string own = name.data();
    std::transform(own.begin(), own.end(), own.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const Listener everywhere({"0.0.0.0", 0});
    const Listener here({"127.0.0.1", 0});
    const auto takes = [](const Listener& listener, const std::string& host,
                          const std::string& localAddress) {
        const std::vector<std::string> hosts = listener.Hosts(localAddress);
        return std::count(hosts.begin(), hosts.end(),
                          host + ":" + std::to_string(listener.Port())) > 0;
    };
    for (const char* local : {"127.0.1.1", "192.0.2.2"}) {
        EXPECT_TRUE(takes(everywhere, own, local)) << local;
        EXPECT_TRUE(takes(everywhere, "0.0.0.0", local)) << local;
        EXPECT_TRUE(takes(everywhere, local, local));
        EXPECT_FALSE(takes(everywhere, "example.org", local)) << local;
    }
    EXPECT_TRUE(takes(here, "localhost", "127.0.0.1"));
    EXPECT_FALSE(takes(everywhere, "localhost", "192.0.2.2"));
    EXPECT_FALSE(takes(here, "0.0.0.0", "127.0.0.1"));
}

TEST(RootTest, NothingOutsideIsNamed) {
    const Folder outside;
    const Folder folder;
    folder.Write("in/a.hea", "");
    outside.Write("b.hea", "");
    namespace fs = std::filesystem;
    fs::create_symlink(outside.Path(), folder.Path() + "/away");
    fs::create_symlink(folder.Path() + "/in", folder.Path() + "/near");
    const Root root(folder.Path());
    EXPECT_EQ(root.Resolve("in/a.hea"), root.Path() + "/in/a.hea");
    EXPECT_EQ(StatusOf([&] { root.Resolve(root.Path() + "/in/a.hea"); }), 0);
    EXPECT_EQ(StatusOf([&] { root.Resolve("near/a.hea"); }), 0);
    EXPECT_EQ(StatusOf([&] { root.Resolve("in/../in/a.hea"); }), 0);
    for (const std::string& name :
         {std::string(".."), std::string("../x"), std::string("/etc/passwd"),
          std::string("away/b.hea"), std::string("away"), std::string("in/../../x"),
          folder.Path() + "x", std::string("a\0b", 3)}) {
        EXPECT_EQ(StatusOf([&] { root.Resolve(name); }), 403) << name;
    }
    folder.Write("in/evil.hea", "evil 1 250 10\n../../" +
                                    fs::path(outside.Path()).filename().string() +
                                    "/b.hea 16 200 12 0 0 0 0 I\n");
    EXPECT_EQ(StatusOf([&] { root.RequireSignalsInside(root.Path() + "/in/evil.hea"); }), 403);
    EXPECT_EQ(root.Hidden("x " + root.Path() + "/in/a.hea y"), "x in/a.hea y");
}

TEST(ConnectionTest, AViewerThatDoesNotReadSkipsToNow) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    {
        lab::serve::Connection viewer(ends[0]);
        viewer.Enter(lab::serve::Connection::Stage::kViewing);
        const SharedText event = EventText("samples", std::string(4000, '1'));
        int sent = 0;
        while (!viewer.IsFull()) {
            viewer.SendEvent(event);
            ASSERT_TRUE(viewer.Flush());
            ++sent;
        }
        viewer.SkipToNow(EventText("state", "{\"now\":1}"));
        viewer.SendEvent(EventText("samples", "{\"new\":1}"));
        std::string all;
        std::array<char, 4096> piece{};
        do {
            ASSERT_TRUE(viewer.Flush());
            const ssize_t count = ::recv(ends[1], piece.data(), piece.size(), MSG_DONTWAIT);
            all.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        } while (viewer.HasOutput());
        ssize_t count = 0;
        while ((count = ::recv(ends[1], piece.data(), piece.size(), MSG_DONTWAIT)) > 0) {
            all.append(piece.data(), static_cast<std::size_t>(count));
        }
        // Whole events, then the number of missing ones, then the present state.
        const std::size_t note = all.find("event: skipped\ndata: {\"events\":");
        ASSERT_NE(note, std::string::npos);
        ASSERT_EQ(note % event->size(), 0U);
        const auto skipped = std::stoul(all.substr(note + 31));
        EXPECT_EQ(note / event->size() + skipped, static_cast<std::size_t>(sent));
        EXPECT_NE(
            all.find("event: state\ndata: {\"now\":1}\n\nevent: samples\ndata: {\"new\":1}\n\n",
                     note),
            std::string::npos);
    }
    ::close(ends[1]);
}

// Each queue is the end of the same sequence of events: the memory does not grow with the viewers.
TEST(ConnectionTest, ViewersThatDoNotReadShareWhatWaitsForThem) {
    constexpr std::size_t kViewers = 20;
    constexpr std::size_t kEvents = 2000;
    constexpr std::size_t kMostEvents = 400; // that wait for one
    std::vector<std::unique_ptr<lab::serve::Connection>> viewers;
    std::vector<int> others;
    for (std::size_t i = 0; i < kViewers; ++i) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        viewers.push_back(std::make_unique<lab::serve::Connection>(ends[0]));
        viewers.back()->Enter(lab::serve::Connection::Stage::kViewing);
        others.push_back(ends[1]);
    }
    std::vector<std::weak_ptr<const std::string>> events;
    std::array<char, 4096> piece{};
    for (std::size_t n = 0; n < kEvents; ++n) {
        const SharedText event = EventText("samples", std::string(4000, '1'));
        events.push_back(event);
        for (std::size_t i = 0; i < kViewers; ++i) {
            if (viewers[i]->IsFull()) {
                viewers[i]->SkipToNow(EventText("state", "{}"));
            }
            viewers[i]->SendEvent(event);
            ASSERT_TRUE(viewers[i]->Flush());
            if (n % (i + 2) == 0) { // each reads at a different pace
                ::recv(others[i], piece.data(), piece.size(), MSG_DONTWAIT);
            }
        }
        const auto kept = std::count_if(events.begin(), events.end(),
                                        [](const auto& text) { return !text.expired(); });
        ASSERT_LE(static_cast<std::size_t>(kept), kMostEvents + kViewers);
    }
    viewers.clear();
    for (const int other : others) {
        ::close(other);
    }
}

TEST(ConnectionTest, LongEventsFillAQueueSooner) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    {
        lab::serve::Connection viewer(ends[0]);
        viewer.Enter(lab::serve::Connection::Stage::kViewing);
        const std::size_t most = std::size_t{2} << 20;
        for (int n = 0; n < 2; ++n) { // before and after it has skipped
            viewer.SendEvent(EventText("samples", std::string(most - 100, '1')));
            EXPECT_FALSE(viewer.IsFull());
            viewer.SendEvent(EventText("samples", std::string(200, '1')));
            EXPECT_TRUE(viewer.IsFull());
            viewer.SkipToNow(EventText("state", "{}"));
            EXPECT_LT(viewer.Waiting(), 100U);
        }
    }
    ::close(ends[1]);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST(ClientTextTest, OptionsAreFieldsAndTextsAreOneLine) {
    const auto told = [](const std::string& where, const std::string& problem,
                         const std::string& cure) {
        const HttpFailure failure = ForClient(lab::Failure(lab::kUsage, where, problem, cure));
        return failure.Where() + "|" + failure.Problem() + "|" + failure.Cure();
    };
    EXPECT_EQ(told("--start 9", "is past the end: it lasts 8 s.", ""),
              "start|9 is past the end: it lasts 8 s.|");
    EXPECT_EQ(told("--as-edf", "is for EDF files.", ""), "as-edf|is for EDF files.|");
    EXPECT_EQ(told("a.hea", "no lead is fed.",
                   "Map one: --map SIGNAL=LEAD. \"ravo info\" lists the signals."),
              "a.hea|no lead is fed.|Map one: \"map\": {\"SIGNAL\": \"LEAD\"}. \"ravo info\" lists "
              "the signals.");
    EXPECT_EQ(told("x", "y", "--unit mV or --unit uV says it; --map 1=none leaves it out."),
              "x|y|\"unit\" mV or \"unit\" uV says it; \"map\": {\"1\": \"none\"} leaves it out.");
    EXPECT_EQ(told("x", "y", "one,\n      two; --format says which one it is."),
              "x|y|one, two; \"format\" says which one it is.");
    for (const char* other : {"--root sets that folder.", "--", "a--map", "-- --"}) {
        EXPECT_EQ(told("--token-file", "x", other),
                  std::string("--token-file|x|") +
                      (std::string(other) == "a--map" ? "a\"map\"" : other));
    }
}

// ---- Tickets ------------------------------------------------------------------------------------

namespace {

constexpr int kCarriedOut = 200;

// The report of a late order, when it is answered before or after its end.
std::vector<int> ToldBy(bool isAnsweredFirst, const std::function<void(Ticket&)>& end) {
    Ticket ticket;
    std::vector<int> told;
    const auto listen = [&](const std::optional<HttpFailure>& failure) {
        told.push_back(failure ? failure->HttpStatus() : kCarriedOut);
    };
    EXPECT_FALSE(ticket.Wait(std::chrono::steady_clock::now()));
    if (isAnsweredFirst) {
        ticket.SetLate(listen);
        EXPECT_TRUE(told.empty());
        end(ticket);
    } else {
        end(ticket);
        ticket.SetLate(listen);
    }
    return told;
}

} // namespace

TEST(TicketTest, ALateOrderTellsThatItHasEndedAndWhatItFailedWith) {
    const HttpFailure failure(503, "simulator", "is not connected.");
    for (const bool isAnsweredFirst : {true, false}) {
        EXPECT_EQ(ToldBy(isAnsweredFirst, [&](Ticket& ticket) { ticket.Failed(failure); }),
                  std::vector<int>{503});
        EXPECT_EQ(ToldBy(isAnsweredFirst, [](Ticket& ticket) { ticket.Done(); }),
                  std::vector<int>{kCarriedOut});
    }
}

// ---- The sampler --------------------------------------------------------------------------------

// The events that `frames` frames of a loop of `samples` samples make, at 250 per second.
static std::size_t EventsOfLoop(int64_t samples, int64_t frames) {
    std::size_t events = 0;
    Sampler sampler(
        1, [&](const std::string&) { ++events; }, [] { return true; });
    auto playing = std::make_shared<Playing>();
    playing->record.type = MATERIAL_MIT;
    playing->record.rate = 250;
    playing->record.samples = samples;
    playing->request.loop = true;
    sampler.Begin(playing);
    sampler.Finish(frames);
    return events;
}

TEST(SamplerTest, ShortLoopsDoNotMakeMoreEventsThanAreAllowed) {
    EXPECT_EQ(EventsOfLoop(250, 2000), 8U); // one for each second
    EXPECT_EQ(EventsOfLoop(50, 2000), 40U); // 0.2 s: five a second
    EXPECT_EQ(EventsOfLoop(49, 2000), 1U);
    EXPECT_EQ(EventsOfLoop(1, 2000), 1U);
}
