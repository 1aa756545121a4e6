#include "lab/serve/Framing.h"

#include "lab/serve/HttpFailure.h"

#include "lab/material/Leads.h"

#include <algorithm>

namespace lab::serve {
namespace {

constexpr const char* kEndOfHead = "\r\n\r\n";
constexpr std::size_t kEndOfHeadBytes = 4;
constexpr std::size_t kLongestLength = 9; // digits of a Content-Length

std::size_t LengthOf(const std::string& text) {
    if (text.empty() || text.size() > kLongestLength ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        Refuse(400, "Content-Length", "is not a number of bytes.");
    }
    return std::stoul(text);
}

} // namespace

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

Framing::State Framing::Take(const char* bytes, std::size_t count) {
    if (m_hasHead) {
        m_body.append(bytes, std::min(count, m_bodyBytes - m_body.size()));
    } else {
        const std::size_t from = m_bytes.size() < kEndOfHeadBytes ? 0 : m_bytes.size() - 3;
        m_bytes.append(bytes, count);
        const std::size_t end = m_bytes.find(kEndOfHead, from);
        if (std::min(end, m_bytes.size()) > kMostHeadBytes) {
            Refuse(431, "request", "its header is too long.", "At most 16 kB are accepted.");
        }
        if (end == std::string::npos) {
            return State::kIncomplete;
        }
        TakeHead(end);
    }
    return m_body.size() == m_bodyBytes ? State::kComplete : State::kIncomplete;
}

// The request line and each header line, then what has arrived of the body with them.
void Framing::TakeHead(std::size_t end) {
    m_hasHead = true;
    bool isFirst = true;
    for (std::size_t at = 0; at < end;) {
        const std::size_t next = std::min(m_bytes.find("\r\n", at), end);
        const std::string line = m_bytes.substr(at, next - at);
        if (isFirst) {
            m_head = TakeRequestLine(line) + "\r\n";
        } else {
            TakeHeader(line);
        }
        isFirst = false;
        at = next + 2;
    }
    m_head += (m_authority ? "Host: " + *m_authority + "\r\n" : "") + "\r\n";
    m_body = m_bytes.substr(end + kEndOfHeadBytes, m_bodyBytes);
    m_bytes.clear();
}

// "GET http://127.0.0.1:8737/x HTTP/1.1" is "GET /x HTTP/1.1" of that host.
std::string Framing::TakeRequestLine(const std::string& line) {
    const std::string scheme = "http://";
    const std::size_t target = std::min(line.find(' '), line.size() - 1) + 1;
    if (LowerCase(line.substr(target, scheme.size())) != scheme) {
        return line;
    }
    const std::size_t host = target + scheme.size();
    const std::size_t end = std::min(line.find_first_of("/?# ", host), line.size());
    m_authority = line.substr(host, end - host);
    const bool hasPath = line.compare(end, 1, "/") == 0;
    return line.substr(0, target) + (hasPath ? "" : "/") + line.substr(end);
}

void Framing::TakeHeader(const std::string& line) {
    const std::size_t colon = line.find(':');
    const std::string name = LowerCase(line.substr(0, colon));
    const std::string value = colon == std::string::npos ? "" : Trimmed(line.substr(colon + 1));
    if (name == "transfer-encoding") {
        Refuse(400, "Transfer-Encoding", "is not accepted.",
               "Send the body with a Content-Length.");
    }
    if (name == "content-length") {
        if (m_hasLength) {
            Refuse(400, "Content-Length", "is given twice.");
        }
        m_hasLength = true;
        m_bodyBytes = LengthOf(value);
        if (m_bodyBytes > kMostBodyBytes) {
            Refuse(413, "request", "its body is too long.", "At most 64 kB are accepted.");
        }
    }
    if (name == "expect") {
        m_isExpecting = LowerCase(value) == "100-continue";
        return;
    }
    if (name != "host" || !m_authority) {
        m_head += line + "\r\n";
    }
}

bool Framing::TakeExpectation() {
    const bool isExpecting = m_hasHead && m_isExpecting && m_body.size() < m_bodyBytes;
    m_isExpecting = m_isExpecting && !isExpecting;
    return isExpecting;
}

} // namespace lab::serve
