#pragma once

#include "lab/serve/Address.h"
#include "lab/serve/Http.h"
#include "lab/serve/Token.h"

#include <optional>
#include <string>

// Who may request what, checked before a route is looked up.
namespace lab::serve {

class Guard {
  public:
    Guard(const Listener& listener, std::optional<Token> token);

    bool NeedsToken() const { return m_token.has_value(); }

    // Refuses a request that names another host (a foreign name that resolves to this machine) or
    // that comes from another page.
    void RequireOwn(const HttpRequest& request) const;

    // Refuses a request without the token, where there is one.
    void RequireToken(const HttpRequest& request) const;

    // Refuses a change whose body is not JSON: forms on other pages can send everything else.
    void RequireJson(const HttpRequest& request) const;

  private:
    const Listener& m_listener;
    std::optional<Token> m_token;
};

} // namespace lab::serve
