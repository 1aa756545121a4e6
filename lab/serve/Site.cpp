#include "lab/serve/Site.h"

#include "lab/common/Failure.h"

#include <optional>
#include <utility>

namespace lab::serve {
namespace {

std::optional<Token> TokenOf(const SiteOptions& options, const Listener& listener) {
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

} // namespace

Site::Site(const SiteOptions& options)
    : m_listener(ParseListenAddress(options.listen)),
      m_guard(m_listener, TokenOf(options, m_listener)),
      m_server(
          m_listener, [this](const HttpRequest& request) { return m_routes->Answer(request); },
          [this](int viewers) { return StateJson(m_stage->State(viewers)); }) {}

StageListener Site::Viewers() {
    return {[this] { m_server.PublishState(); },
            [this](const std::string& samples) { m_server.PublishSamples(samples); },
            [this] { return m_server.Viewers(); }};
}

OpenSite::OpenSite(Site& site, Stage& stage) : m_site(site) {
    site.m_stage = &stage;
    site.m_routes =
        std::make_unique<Routes>(site.m_guard, stage, [&site] { return site.m_server.Viewers(); });
    m_loop = std::thread([&site] { site.m_server.Run(); });
}

OpenSite::~OpenSite() {
    m_site.m_server.Stop();
    m_site.m_stage->StopBrowsing(); // the server waits for its end
    m_loop.join();
}

} // namespace lab::serve
