#pragma once

#include "lab/serve/Http.h"
#include "lab/serve/StateJson.h"

#include <string>

namespace lab::serve {

// What the routes show and control: the bench with its simulator, or something in its place.
class Stage {
  public:
    virtual ~Stage() = default;

    // At once, even while another call is in progress.
    virtual BenchState State(int viewers) const = 0;

    // The order is carried out, refused, or still under way (202) at the request's deadline. The
    // reply is the state afterwards.
    virtual HttpAnswer Play(const HttpRequest& request) = 0;
    virtual HttpAnswer Stop(const HttpRequest& request) = 0;
    virtual HttpAnswer SwitchNoise(const HttpRequest& request) = 0;

    virtual HttpAnswer List(const std::string& under) = 0;
    virtual HttpAnswer Preview(const std::string& material, double start, double seconds) = 0;
    virtual HttpAnswer Overview(const std::string& material) = 0;

    // Ends the listing, preview or overview that is under way, and refuses all that follow.
    virtual void StopBrowsing() = 0;
};

} // namespace lab::serve
