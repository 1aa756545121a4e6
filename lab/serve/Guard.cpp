#include "lab/serve/Guard.h"

#include "lab/material/Leads.h"
#include "lab/serve/HttpFailure.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace lab::serve {
namespace {

constexpr int kBadToken = 401;
constexpr int kForbidden = 403;
constexpr int kWrongType = 415;

} // namespace

Guard::Guard(const Listener& listener, std::optional<Token> token)
    : m_listener(listener), m_token(std::move(token)) {}

void Guard::RequireOwn(const HttpRequest& request) const {
    const std::string host = LowerCase(request.Header("host"));
    const std::vector<std::string> hosts = m_listener.Hosts(request.localAddress);
    if (std::find(hosts.begin(), hosts.end(), host) == hosts.end()) {
        Refuse(kForbidden, "Host", "is not the address of this server.",
               "Use the address that ravo serve printed.");
    }
    const std::string site = request.Header("sec-fetch-site");
    const bool isForeign =
        (request.HasHeader("origin") && LowerCase(request.Header("origin")) != "http://" + host) ||
        (request.path != "/" && (site == "cross-site" || site == "same-site"));
    if (isForeign) {
        Refuse(kForbidden, "Origin", "is another page.",
               "Only the server's own page may send requests.");
    }
}

void Guard::RequireToken(const HttpRequest& request) const {
    if (m_token && !m_token->IsIn(request.Header("authorization"))) {
        Refuse(kBadToken, "Authorization", "does not carry the token.",
               "Send \"Authorization: Bearer TOKEN\" with the token of --token-file.");
    }
}

void Guard::RequireJson(const HttpRequest& request) const {
    std::string type = LowerCase(request.Header("content-type"));
    type = type.substr(0, type.find(';'));
    type.erase(type.find_last_not_of(" \t") + 1);
    if (type != "application/json") {
        Refuse(kWrongType, "Content-Type", "is not application/json.",
               "Send the body as JSON, and say so.");
    }
}

} // namespace lab::serve
