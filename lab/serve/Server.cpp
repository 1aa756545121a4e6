#include "lab/serve/Server.h"

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/machine/Locks.h"
#include "lab/serve/Bench.h"
#include "lab/serve/Root.h"
#include "lab/serve/RunPage.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace lab::serve {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Part of the three seconds within which the process has to end.
constexpr auto kEndTime = 1800ms;

void PrintAddress(std::FILE* file, const Site& site) {
    std::fprintf(file, "listening on %s\n", site.Url().c_str());
    std::fflush(file);
}

} // namespace

int Serve(const ServeOptions& options) {
    const Interrupt interrupt;
    const Root root(options.root);
    Site site(options.site);
    Bench bench(root, {options.port, options.speedUp}, site.Viewers());
    const OpenSite open(site, bench);
    PrintAddress(stdout, site);
    while (!interrupt.WaitUntil(Clock::now() + 1h)) {
    }
    if (!bench.End(Clock::now() + kEndTime)) {
        // A silent simulator blocks the library for longer than anyone waits for a process to end.
        RemoveOwnLocks(Machine());
        std::_Exit(kInterrupted + interrupt.Signal());
    }
    return kInterrupted + interrupt.Signal();
}

int ServeRun(const SiteOptions& options, RunRequest request) {
    const std::filesystem::path folder = std::filesystem::path(request.plan).parent_path();
    Site site(options);
    RunPage page(Root(folder.empty() ? "." : folder.string()).GivenPath(), request.port,
                 request.speedUp, site.Viewers());
    const OpenSite open(site, page);
    PrintAddress(stderr, site);
    request.observer = &page;
    return RunPlan(request);
}

} // namespace lab::serve
