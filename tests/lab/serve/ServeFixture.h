#pragma once

#include "Client.h"

#include "tools/emulator/Simulator.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>

// What the tests of the server as a program share: orders, their answers and the state after them.

using namespace std::chrono_literals;
using nlohmann::json;

inline constexpr int kRate = 250;
inline constexpr const char* kLock = "/var/lock/tarnwick.ACM0.lock";

inline emulator::Settings Unit(int port = 0) {
    return emulator::Settings::Of(emulator::Unit::kSixteenBit, port);
}

inline bool IsConnected(const json& state) {
    return state.at("simulator").at("connected").get<bool>();
}

inline bool IsPlaying(const json& state) {
    return state.at("output").at("state") == "playing";
}

inline bool IsIdle(const json& state) {
    return state.at("output").at("state") == "idle";
}

// Names the place, the problem and the cure, with the field names of JSON and each on one line.
inline void ExpectForClient(const json& error) {
    EXPECT_TRUE(error.at("where").is_string() && error.at("problem").is_string() &&
                error.at("cure").is_string());
    EXPECT_NE(error.at("where").get<std::string>().rfind("--", 0), 0U) << error;
    EXPECT_EQ(error.dump().find("\\n"), std::string::npos) << error;
}

inline void ExpectRefused(const Reply& reply, int status) {
    EXPECT_EQ(reply.status, status) << reply.body;
    ExpectForClient(reply.Json().at("error"));
    EXPECT_EQ(reply.headers.count("access-control-allow-origin"), 0U);
    EXPECT_EQ(reply.headers.at("cache-control"), "no-store");
}

// An order that has been carried out or, on a busy machine, soon will be.
inline void ExpectTaken(const Reply& reply) {
    EXPECT_TRUE(reply.status == 200 || reply.status == 202) << reply.body;
}

// An order that cannot be carried out; a busy machine may not find this out in time for the answer.
inline void ExpectRefusedOrder(const Reply& reply, int status) {
    if (reply.status != 202) {
        ExpectRefused(reply, status);
    }
}

// Gives an order and waits until it has been carried out: on a busy machine that may be after its
// answer.
template <typename Condition>
inline json Give(const ServerProgram& server, const std::string& target, const std::string& body,
                 const Condition& isDone) {
    const Reply reply = server.Post(target, body);
    ExpectTaken(reply);
    return server.Await(isDone);
}

inline json Play(const ServerProgram& server, const std::string& body) {
    const std::string material = json::parse(body).at("material");
    return Give(server, "/api/play", body, [&](const json& state) {
        return IsPlaying(state) && state.at("output").at("material") == material;
    });
}

// The same for a play that is refused.
inline void ExpectRefusedPlay(const ServerProgram& server, const std::string& body, int status) {
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
inline void TakeRamp(const Viewer::Event& event, int& next) {
    ASSERT_EQ(event.name, "samples");
    ASSERT_DOUBLE_EQ(event.data.at("position").get<double>(), next / 250.0);
    for (const json& value : event.data.at("leads")[0]) {
        ASSERT_EQ(value.get<double>(), (next - 1000) / 1000.0);
        ++next;
    }
}
