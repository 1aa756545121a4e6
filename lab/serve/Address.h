#pragma once

#include <string>
#include <vector>

// Where the server listens.
namespace lab::serve {

struct ListenAddress {
    std::string host; // "127.0.0.1", "::1", "bench.example"
    int port = 0;     // 0: any free one
};

// "ADDRESS:PORT", "[ADDRESS]:PORT" of IPv6. Fails with a sentence about --listen.
ListenAddress ParseListenAddress(const std::string& text);

// A socket that listens.
class Listener {
  public:
    // Fails when the address is not this machine's or is in use.
    explicit Listener(const ListenAddress& address);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int Descriptor() const { return m_socket; }
    int Port() const { return m_port; }
    bool IsLoopback() const { return m_isLoopback; }

    // "http://127.0.0.1:8737"
    std::string Url() const;

    // The values of the Host header by which clients that connect to `localAddress` may name the
    // server, in lower case.
    std::vector<std::string> Hosts(const std::string& localAddress) const;

  private:
    std::string m_name; // as given
    std::string m_address;
    int m_socket = -1;
    int m_port = 0;
    bool m_isLoopback = false;
};

// The address of this machine at which a connection arrived.
std::string LocalAddressOf(int socket);

} // namespace lab::serve
