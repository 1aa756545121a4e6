#pragma once

#include "lab/serve/Guard.h"
#include "lab/serve/Http.h"
#include "lab/serve/Stage.h"

#include <functional>
#include <string>

namespace lab::serve {

// What the server answers, and to whom.
class Routes {
  public:
    Routes(const Guard& guard, Stage& stage, std::function<int()> viewers);

    // Throws an HttpFailure for what is refused.
    HttpAnswer Answer(const HttpRequest& request) const;

  private:
    struct Route {
        const char* path;
        const char* method;
        HttpAnswer (Routes::*answer)(const HttpRequest&) const;
    };

    static const Route* Find(const std::string& path);

    HttpAnswer Page(const HttpRequest& request) const;
    HttpAnswer State(const HttpRequest& request) const;
    HttpAnswer Events(const HttpRequest& request) const;
    HttpAnswer Metrics(const HttpRequest& request) const;
    HttpAnswer Materials(const HttpRequest& request) const;
    HttpAnswer Preview(const HttpRequest& request) const;
    HttpAnswer Overview(const HttpRequest& request) const;
    HttpAnswer Play(const HttpRequest& request) const;
    HttpAnswer Stop(const HttpRequest& request) const;
    HttpAnswer Noise(const HttpRequest& request) const;

    const Guard& m_guard;
    Stage& m_stage;
    const std::function<int()> m_viewers;
};

} // namespace lab::serve
