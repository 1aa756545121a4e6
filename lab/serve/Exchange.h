#pragma once

#include "lab/serve/Http.h"

#include <exception>
#include <memory>
#include <string>

// One request in, one answer out, in memory: the parsing and the writing of HTTP is cpp-httplib's,
// the connections are the server's own.
namespace lab::serve {

struct RawRequest {
    std::string head; // request line and headers, up to and including the empty line
    std::string body;
    std::string localAddress;
    std::chrono::steady_clock::time_point arrival;
};

struct RawAnswer {
    std::string bytes;
    bool isEventStream = false;
};

class Exchange {
  public:
    // `handler` is called on the thread of Run; what it throws becomes an error's answer.
    explicit Exchange(HttpHandler handler);
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    // May run on several threads at once.
    RawAnswer Run(const RawRequest& request) const;

  private:
    class Parser;
    std::unique_ptr<Parser> m_parser;
};

// An answer made without a parsed request.
std::string WholeAnswer(const HttpAnswer& answer);

// The answer to a handler's failure.
HttpAnswer FailedAnswer(const std::exception& error);

} // namespace lab::serve
