#include "lab/serve/Exchange.h"

#include "lab/serve/ClientText.h"
#include "lab/serve/Framing.h"
#include "lab/serve/HttpFailure.h"

#include "lab/material/Leads.h"

#include <algorithm>
#include <cstring>
#include <httplib.h>

namespace lab::serve {
namespace {

// Headers that every answer carries: nothing may be cached, guessed or framed.
const std::vector<std::pair<std::string, std::string>> kHeaders = {
    {"Cache-Control", "no-store"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

constexpr int kLongAddress = 414;

// A request's head to read from, and the answer to write to.
class MemoryStream : public httplib::Stream {
  public:
    explicit MemoryStream(const RawRequest& request) : m_request(request) {}

    bool is_readable() const override { return m_at < m_request.head.size(); }
    bool is_writable() const override { return true; }

    ssize_t read(char* out, size_t size) override {
        const std::size_t count = std::min(size, m_request.head.size() - m_at);
        std::memcpy(out, m_request.head.data() + m_at, count);
        m_at += count;
        return static_cast<ssize_t>(count);
    }

    ssize_t write(const char* bytes, size_t size) override {
        m_written.append(bytes, size);
        return static_cast<ssize_t>(size);
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip.clear();
        port = 0;
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        ip.clear();
        port = 0;
    }
    socket_t socket() const override { return 0; }

    std::string TakeWritten() { return std::move(m_written); }

  private:
    const RawRequest& m_request;
    std::size_t m_at = 0;
    std::string m_written;
};

// The parser's own list merges two identical fields.
std::multimap<std::string, std::string> QueryOf(const std::string& target) {
    std::multimap<std::string, std::string> query;
    const std::string text = target.substr(0, target.find('#'));
    std::size_t end = text.find('?');
    while (end < text.size()) {
        const std::size_t begin = end + 1;
        end = std::min(text.find('&', begin), text.size());
        const std::string field = text.substr(begin, end - begin);
        const std::size_t equals = std::min(field.find('='), field.size());
        if (!field.empty()) {
            query.emplace(httplib::detail::decode_url(field.substr(0, equals), true),
                          httplib::detail::decode_url(
                              field.substr(std::min(equals + 1, field.size())), true));
        }
    }
    return query;
}

// The parser's own list drops empty values and decodes values as if they were parts of an address.
std::multimap<std::string, std::string> HeadersOf(const std::string& head) {
    std::multimap<std::string, std::string> headers;
    std::size_t at = head.find("\r\n") + 2;
    while (at < head.size()) {
        const std::size_t end = std::min(head.find("\r\n", at), head.size());
        const std::string line = head.substr(at, end - at);
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos) {
            headers.emplace(LowerCase(line.substr(0, colon)), Trimmed(line.substr(colon + 1)));
        }
        at = end + 2;
    }
    return headers;
}

// Every request is answered or refused within two seconds; that of a client which would rather have
// an answer than wait for the outcome ("Prefer: respond-async", RFC 7240), within half a second.
std::chrono::milliseconds TimeFor(const HttpRequest& request) {
    const std::string preference = LowerCase(request.Header("prefer"));
    const bool isPrompt = preference.find("respond-async") != std::string::npos;
    return std::chrono::milliseconds(isPrompt ? 400 : 1700);
}

HttpRequest RequestOf(const httplib::Request& parsed, const RawRequest& raw) {
    HttpRequest request;
    request.method = parsed.method;
    request.path = parsed.path;
    request.query = QueryOf(parsed.target);
    request.headers = HeadersOf(raw.head);
    request.body = raw.body;
    request.localAddress = raw.localAddress;
    request.deadline = raw.arrival + TimeFor(request);
    return request;
}

void TakeAnswer(const HttpAnswer& answer, httplib::Response& response) {
    response.status = answer.status;
    for (const auto& [name, value] : kHeaders) {
        response.set_header(name, value);
    }
    for (const auto& [name, value] : answer.headers) {
        response.set_header(name, value);
    }
    response.set_content(answer.body, answer.type);
}

} // namespace

class Exchange::Parser : public httplib::Server {
  public:
    explicit Parser(HttpHandler handler) : m_handler(std::move(handler)) {
        // Everything is answered before the parser looks for a body, which it never sees.
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& out) {
            s_answer = Answer(request);
            TakeAnswer(s_answer, out);
            return HandlerResponse::Handled;
        });
        set_error_handler(HandlerWithResponse([](const httplib::Request&, httplib::Response& out) {
            if (out.body.empty()) { // the parser's own refusals
                const HttpFailure failure(out.status, "request",
                                          out.status == kLongAddress ? "its address is too long."
                                                                     : "is not valid HTTP.");
                HttpAnswer answer;
                answer.status = out.status;
                answer.body = ErrorJson(failure);
                TakeAnswer(answer, out);
            }
            return HandlerResponse::Handled;
        }));
    }

    RawAnswer Run(const RawRequest& request) {
        MemoryStream stream(request);
        s_request = &request;
        s_answer = {};
        bool isClosed = false;
        process_request(stream, true, isClosed, [](httplib::Request& parsed) {
            parsed.ranges.clear(); // many ranges would turn a short answer into a long one
        });
        s_request = nullptr;
        return {stream.TakeWritten(), s_answer.isEventStream};
    }

  private:
    HttpAnswer Answer(const httplib::Request& request) const {
        try {
            return m_handler(RequestOf(request, *s_request));
        } catch (const std::exception& error) {
            return FailedAnswer(error);
        }
    }

    // The request that this thread is working on: the parser passes no context.
    static thread_local const RawRequest* s_request;
    static thread_local HttpAnswer s_answer;

    HttpHandler m_handler;
};

thread_local const RawRequest* Exchange::Parser::s_request = nullptr;
thread_local HttpAnswer Exchange::Parser::s_answer;

Exchange::Exchange(HttpHandler handler) : m_parser(std::make_unique<Parser>(std::move(handler))) {}
Exchange::~Exchange() = default;

RawAnswer Exchange::Run(const RawRequest& request) const {
    return m_parser->Run(request);
}

std::string WholeAnswer(const HttpAnswer& answer) {
    std::string text = Format("HTTP/1.1 %d %s\r\nConnection: close\r\nContent-Type: %s\r\n",
                              answer.status, ReasonPhrase(answer.status), answer.type.c_str());
    for (const auto* headers : {&kHeaders, &answer.headers}) {
        for (const auto& [name, value] : *headers) {
            text += name + ": " + value + "\r\n";
        }
    }
    if (!answer.isEventStream) {
        text += Format("Content-Length: %zu\r\n", answer.body.size());
    }
    return text + "\r\n" + answer.body;
}

HttpAnswer FailedAnswer(const std::exception& error) {
    HttpAnswer answer;
    if (const auto* failure = dynamic_cast<const Failure*>(&error)) {
        answer.status = HttpStatusOf(*failure);
        answer.body = ErrorJson(ForClient(*failure));
    } else {
        answer.status = 500;
        answer.body = ErrorJson(HttpFailure(500, "ravo-serve", error.what()));
    }
    if (answer.status == 401) {
        answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    }
    return answer;
}

} // namespace lab::serve
