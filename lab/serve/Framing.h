#pragma once

#include <cstddef>
#include <optional>
#include <string>

// Where one request ends in the bytes of a connection. The library that parses it gets whole
// requests only, so that a slow client holds no thread.
namespace lab::serve {

constexpr std::size_t kMostHeadBytes = std::size_t{16} << 10;
constexpr std::size_t kMostBodyBytes = std::size_t{64} << 10;

// The text without leading and trailing blanks.
std::string Trimmed(const std::string& text);

class Framing {
  public:
    enum class State { kIncomplete, kComplete, kRefused };

    // Takes bytes off a connection; throws an HttpFailure when they cannot become a request.
    State Take(const char* bytes, std::size_t count);

    // Of a complete request: everything before the body without "Expect", and the body. Where the
    // request line names the host, as for a proxy, the head has that host alone.
    const std::string& Head() const { return m_head; }
    const std::string& Body() const { return m_body; }

    // Whether the client waits for "100 Continue" before it sends the body. True only once.
    bool TakeExpectation();

  private:
    void TakeHead(std::size_t end);
    std::string TakeRequestLine(const std::string& line);
    void TakeHeader(const std::string& line);

    std::string m_bytes; // of the head, as far as it has arrived
    std::string m_head;
    std::optional<std::string> m_authority; // host in a request line that carries one
    std::string m_body;
    std::size_t m_bodyBytes = 0;
    bool m_hasHead = false;
    bool m_hasLength = false;
    bool m_isExpecting = false;
};

} // namespace lab::serve
