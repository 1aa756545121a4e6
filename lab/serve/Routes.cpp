#include "lab/serve/Routes.h"

#include "lab/serve/Exchange.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/Page.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <utility>

namespace lab::serve {
namespace {

constexpr int kBadRequest = 400;
constexpr int kNotFound = 404;
constexpr int kWrongMethod = 405;
constexpr int kUnprocessable = 422;

// Everything but the page itself, which has to ask for the token.
bool IsGuarded(const std::string& path) {
    return path != "/";
}

void RequireQuery(const HttpRequest& request, const std::set<std::string>& allowed) {
    std::string last;
    for (const auto& [name, value] : request.query) {
        if (allowed.count(name) == 0) {
            Refuse(kUnprocessable, Printable(name), "is not a parameter here.");
        }
        if (name == last) {
            Refuse(kUnprocessable, name, "is given twice.");
        }
        last = name;
    }
}

double NumberOf(const HttpRequest& request, const char* name, double least, double most,
                double usual) {
    if (request.query.count(name) == 0) {
        return usual;
    }
    const std::string text = request.Query(name);
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() ||
        !(number >= least && number <= most)) {
        Refuse(kUnprocessable, name, "is not a possible number of seconds.",
               Format("It takes %.10g to %.10g.", least, most));
    }
    return number;
}

std::string MaterialOf(const HttpRequest& request) {
    std::string material = request.Query("material");
    if (material.empty()) {
        Refuse(kBadRequest, "material", "is missing.", "Ask for ?material=NAME.");
    }
    return material;
}

} // namespace

Routes::Routes(const Guard& guard, Stage& stage, std::function<int()> viewers)
    : m_guard(guard), m_stage(stage), m_viewers(std::move(viewers)) {}

const Routes::Route* Routes::Find(const std::string& path) {
    static const std::array<Route, 10> kRoutes = {{
        {"/", "GET", &Routes::Page},
        {"/api/state", "GET", &Routes::State},
        {"/api/events", "GET", &Routes::Events},
        {"/api/materials", "GET", &Routes::Materials},
        {"/api/preview", "GET", &Routes::Preview},
        {"/api/overview", "GET", &Routes::Overview},
        {"/api/play", "POST", &Routes::Play},
        {"/api/stop", "POST", &Routes::Stop},
        {"/api/noise", "POST", &Routes::Noise},
        {"/metrics", "GET", &Routes::Metrics},
    }};
    const auto* const found = std::find_if(kRoutes.begin(), kRoutes.end(),
                                           [&](const Route& route) { return path == route.path; });
    return found == kRoutes.end() ? nullptr : found;
}

HttpAnswer Routes::Answer(const HttpRequest& request) const {
    m_guard.RequireOwn(request);
    if (IsGuarded(request.path)) {
        m_guard.RequireToken(request);
    }
    const Route* route = Find(request.path);
    if (route == nullptr) {
        Refuse(kNotFound, Printable(request.path), "is not here.", "The page is at /.");
    }
    const bool isChange = std::string(route->method) == "POST";
    if (request.method != route->method && (isChange || request.method != "HEAD")) {
        HttpAnswer answer = FailedAnswer(HttpFailure(
            kWrongMethod, request.path, "does not take " + Printable(request.method) + ".",
            std::string("It takes ") + route->method + "."));
        answer.headers.emplace_back("Allow", isChange ? "POST" : "GET, HEAD");
        return answer;
    }
    if (isChange) {
        m_guard.RequireJson(request);
    }
    return (this->*route->answer)(request);
}

HttpAnswer Routes::Page(const HttpRequest& /*request*/) const {
    HttpAnswer answer;
    answer.type = "text/html; charset=utf-8";
    answer.body = PageText();
    answer.headers.emplace_back("Content-Security-Policy", PagePolicy());
    return answer;
}

HttpAnswer Routes::State(const HttpRequest& /*request*/) const {
    HttpAnswer answer;
    answer.body = StateJson(m_stage.State(m_viewers()));
    return answer;
}

HttpAnswer Routes::Events(const HttpRequest& request) const {
    HttpAnswer answer;
    answer.type = "text/event-stream";
    answer.isEventStream = request.method == "GET";
    return answer;
}

HttpAnswer Routes::Metrics(const HttpRequest& /*request*/) const {
    HttpAnswer answer;
    answer.type = "text/plain; version=0.0.4; charset=utf-8";
    answer.body = MetricsText(m_stage.State(m_viewers()));
    return answer;
}

HttpAnswer Routes::Materials(const HttpRequest& request) const {
    RequireQuery(request, {"under"});
    return m_stage.List(request.Query("under"));
}

HttpAnswer Routes::Preview(const HttpRequest& request) const {
    constexpr double kLatest = 1e6;
    constexpr double kShortest = 0.001;
    constexpr double kLongest = 3600.0;
    constexpr double kUsual = 10.0;
    RequireQuery(request, {"material", "start", "seconds"});
    return m_stage.Preview(MaterialOf(request), NumberOf(request, "start", 0.0, kLatest, 0.0),
                           NumberOf(request, "seconds", kShortest, kLongest, kUsual));
}

HttpAnswer Routes::Overview(const HttpRequest& request) const {
    RequireQuery(request, {"material"});
    return m_stage.Overview(MaterialOf(request));
}

HttpAnswer Routes::Play(const HttpRequest& request) const {
    return m_stage.Play(request);
}

HttpAnswer Routes::Stop(const HttpRequest& request) const {
    return m_stage.Stop(request);
}

HttpAnswer Routes::Noise(const HttpRequest& request) const {
    return m_stage.SwitchNoise(request);
}

} // namespace lab::serve
