#pragma once

#include "lab/serve/Guard.h"
#include "lab/serve/HttpServer.h"
#include "lab/serve/Routes.h"
#include "lab/serve/Stage.h"
#include "lab/serve/StageListener.h"

#include <memory>
#include <string>
#include <thread>

namespace lab::serve {

struct SiteOptions {
    std::string listen = "127.0.0.1:8737";
    std::string tokenFile; // empty: none
};

// The address of the page, its guard, and the server.
class Site {
  public:
    // Fails when it cannot listen, or may not do so without a token.
    explicit Site(const SiteOptions& options);

    std::string Url() const { return m_listener.Url(); }

    // Passes a stage's events on to the viewers.
    StageListener Viewers();

  private:
    friend class OpenSite;

    Listener m_listener;
    Guard m_guard;
    Stage* m_stage = nullptr; // the stage, while the site is open
    std::unique_ptr<Routes> m_routes;
    HttpServer m_server;
};

// The site answers for `stage`, on its own threads, for as long as the object lives.
class OpenSite {
  public:
    OpenSite(Site& site, Stage& stage);
    ~OpenSite();
    OpenSite(const OpenSite&) = delete;
    OpenSite& operator=(const OpenSite&) = delete;

  private:
    Site& m_site;
    std::thread m_loop;
};

} // namespace lab::serve
