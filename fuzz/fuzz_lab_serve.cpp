// Requests as bytes off a connection: each gets one whole answer, whose body is JSON where it
// refuses, and no order reaches the bench but one that is allowed.
#include "fuzz/Require.h"
#include "lab/serve/Exchange.h"
#include "lab/serve/Framing.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/PlayOrder.h"
#include "lab/serve/Routes.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

using namespace lab::serve;

namespace {

// Reads bodies as the bench does, and plays nothing.
class DryStage : public Stage {
  public:
    BenchState State(int viewers) const override {
        BenchState state;
        state.viewers = viewers;
        return state;
    }
    HttpAnswer Play(const HttpRequest& request) override {
        const PlayOrder order = ReadPlayOrder(request.body);
        Require(!order.material.empty());
        Require(order.request.start >= 0.0 && order.request.seconds >= 0.0);
        return {};
    }
    HttpAnswer Stop(const HttpRequest& request) override {
        RequireNoOrder(request.body);
        return {};
    }
    HttpAnswer SwitchNoise(const HttpRequest& request) override {
        ReadNoiseOrder(request.body);
        return {};
    }
    HttpAnswer List(const std::string& /*under*/) override { return {}; }
    HttpAnswer Preview(const std::string& material, double start, double seconds) override {
        Require(!material.empty() && start >= 0.0 && start <= 1e6 && seconds > 0.0);
        return {};
    }
    HttpAnswer Overview(const std::string& /*material*/) override { return {}; }
    void StopBrowsing() override {}
};

std::string AnswerTo(const std::string& bytes) {
    static const Listener listener(ParseListenAddress("127.0.0.1:0"));
    static const Guard guard(listener, std::nullopt);
    static DryStage stage;
    static const Routes routes(guard, stage, [] { return 0; });
    static const Exchange exchange(
        [](const HttpRequest& request) { return routes.Answer(request); });
    // The port that was picked differs each time; the inputs name a fixed one.
    std::string text = bytes;
    const std::string named = "127.0.0.1:8737";
    const std::string own = "127.0.0.1:" + std::to_string(listener.Port());
    for (std::size_t at = text.find(named); at != std::string::npos;
         at = text.find(named, at + own.size())) {
        text.replace(at, named.size(), own);
    }
    Framing framing;
    try {
        if (framing.Take(text.data(), text.size()) != Framing::State::kComplete) {
            return "";
        }
    } catch (const lab::Failure& failure) {
        return WholeAnswer(FailedAnswer(failure));
    }
    return exchange.Run({framing.Head(), framing.Body(), "127.0.0.1", {}}).bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string answer = AnswerTo(std::string(data, data + size));
    if (answer.empty()) {
        return 0;
    }
    Require(answer.rfind("HTTP/1.1 ", 0) == 0);
    const std::size_t end = answer.find("\r\n\r\n");
    Require(end != std::string::npos);
    // Also when the rest of the line is missing or spaces precede it.
    const std::string text(data, data + size);
    const bool isHead = text.substr(0, text.find('\n')).find("HEAD") != std::string::npos;
    const bool isRefused = answer[9] >= '4';
    const bool isPlain = answer.find("Content-Encoding") == std::string::npos;
    if (isRefused && isPlain && !isHead) {
        const auto error = nlohmann::json::parse(answer.substr(end + 4)).at("error");
        Require(error.at("where").is_string() && error.at("problem").is_string());
    }
    return 0;
}
