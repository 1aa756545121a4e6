#include "lab/serve/Server.h"

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/machine/Locks.h"
#include "lab/serve/Bench.h"
#include "lab/serve/Guard.h"
#include "lab/serve/HttpServer.h"
#include "lab/serve/Root.h"
#include "lab/serve/Routes.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Of the three seconds in which the process has to be gone.
constexpr auto kEndTime = 1800ms;

std::optional<Token> TokenOf(const ServeOptions& options, const Listener& listener) {
    if (!options.tokenFile.empty()) {
        return Token(options.tokenFile);
    }
    if (!listener.IsLoopback()) {
        Fail(kUsage, "--token-file",
             "is missing: " + listener.Url() + " can be reached from other machines.",
             "Put a token into a file of your own, and give it to those who may play:\n"
             "      openssl rand -hex 32 > FILE; chmod 600 FILE");
    }
    return std::nullopt;
}

void PrintAddress(const Listener& listener) {
    std::printf("listening on %s\n", listener.Url().c_str());
    std::fflush(stdout);
}

} // namespace

int Serve(const ServeOptions& options) {
    const Interrupt interrupt;
    const Root root(options.root);
    const Listener listener(ParseListenAddress(options.listen));
    const Guard guard(listener, TokenOf(options, listener));

    std::unique_ptr<HttpServer> server;
    std::unique_ptr<Bench> bench;
    std::unique_ptr<Routes> routes;
    server = std::make_unique<HttpServer>(
        listener, [&routes](const HttpRequest& request) { return routes->Answer(request); },
        [&bench](int viewers) { return StateJson(bench->State(viewers)); });
    bench = std::make_unique<Bench>(root, PlayerOptions{options.port, options.speedUp},
                                    BenchListener{[&server] { server->PublishState(); },
                                                  [&server](std::string samples) {
                                                      server->PublishSamples(std::move(samples));
                                                  },
                                                  [&server] { return server->Viewers(); }});
    routes = std::make_unique<Routes>(guard, *bench, [&server] { return server->Viewers(); });
    std::thread loop([&server] { server->Run(); });

    PrintAddress(listener);
    while (!interrupt.WaitUntil(Clock::now() + 1h)) {
    }
    const bool isReleased = bench->End(Clock::now() + kEndTime);
    if (!isReleased) {
        // A silent simulator keeps the library waiting, for longer than anybody who ends a process.
        RemoveOwnLocks(Machine());
        std::_Exit(kInterrupted + interrupt.Signal());
    }
    server->Stop();
    loop.join();
    return kInterrupted + interrupt.Signal();
}

} // namespace lab::serve
