#include "lab/serve/Address.h"

#include "lab/common/Failure.h"
#include "lab/material/Leads.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace lab::serve {
namespace {

constexpr int kHighestPort = 65535;
constexpr int kBacklog = 1024;

[[noreturn]] void FailAddress(const std::string& text) {
    Fail(kUsage, "--listen " + text, "is not ADDRESS:PORT.",
         "For example 127.0.0.1:8737, [::1]:8737, or port 0 for any that is free.");
}

int PortOf(const std::string& text, const std::string& whole) {
    if (text.empty() || text.size() > 5 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        FailAddress(whole);
    }
    const int port = std::stoi(text);
    if (port > kHighestPort) {
        FailAddress(whole);
    }
    return port;
}

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

AddressList Resolve(const ListenAddress& address) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_PASSIVE;
    addrinfo* found = nullptr;
    const int error =
        ::getaddrinfo(address.host.c_str(), std::to_string(address.port).c_str(), &wanted, &found);
    if (error != 0) {
        Fail(kUsage, "--listen " + address.host,
             Format("is not an address of this machine: %s.", ::gai_strerror(error)));
    }
    return {found, ::freeaddrinfo};
}

// Address in figures and port.
std::pair<std::string, int> NumericOf(const sockaddr_storage& address) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    ::getnameinfo(reinterpret_cast<const sockaddr*>(&address), sizeof address, host.data(),
                  host.size(), port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV);
    std::string text = host.data();
    constexpr const char* kMapped = "::ffff:";
    if (text.rfind(kMapped, 0) == 0) {
        text.erase(0, std::strlen(kMapped));
    }
    return {text, std::atoi(port.data())};
}

std::pair<std::string, int> NameOf(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    return NumericOf(address);
}

bool IsLoopbackAddress(const std::string& address) {
    return address.rfind("127.", 0) == 0 || address == "::1";
}

bool IsAnyAddress(const std::string& address) {
    return address == "0.0.0.0" || address == "::";
}

std::string Bracketed(const std::string& host) {
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

std::string HostName() {
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

} // namespace

ListenAddress ParseListenAddress(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        FailAddress(text);
    }
    ListenAddress address;
    address.port = PortOf(text.substr(colon + 1), text);
    address.host = text.substr(0, colon);
    const bool isBracketed = address.host.front() == '[' && address.host.back() == ']';
    if (isBracketed) {
        address.host = address.host.substr(1, address.host.size() - 2);
    }
    if (address.host.empty() || (!isBracketed && address.host.find(':') != std::string::npos)) {
        FailAddress(text);
    }
    return address;
}

Listener::Listener(const ListenAddress& address) : m_name(address.host) {
    const AddressList found = Resolve(address);
    const std::string where = Bracketed(address.host) + ":" + std::to_string(address.port);
    m_socket = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int yes = 1;
    ::setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (m_socket == -1 || ::bind(m_socket, found->ai_addr, found->ai_addrlen) != 0 ||
        ::listen(m_socket, kBacklog) != 0) {
        const int reason = errno;
        ::close(m_socket);
        Fail(kUsage, where, Format("cannot be opened for listening: %s.", std::strerror(reason)),
             reason == EADDRINUSE ? "Another server may run there; --listen takes another port."
                                  : "--listen takes an address of this machine.");
    }
    std::tie(m_address, m_port) = NameOf(m_socket);
    m_isLoopback = IsLoopbackAddress(m_address);
}

Listener::~Listener() {
    ::close(m_socket);
}

std::string Listener::Url() const {
    return "http://" + Bracketed(m_address) + ":" + std::to_string(m_port);
}

std::vector<std::string> Listener::Hosts(const std::string& localAddress) const {
    std::vector<std::string> names = {m_name, m_address, localAddress};
    if (IsLoopbackAddress(localAddress)) {
        names.insert(names.end(), {"localhost", "127.0.0.1", "::1"});
    }
    if (IsAnyAddress(m_address)) {
        names.push_back(HostName());
    }
    constexpr int kDefaultPort = 80;
    std::vector<std::string> hosts;
    for (const std::string& name : names) {
        if (!name.empty()) {
            const std::string host = LowerCase(Bracketed(name));
            hosts.push_back(host + ":" + std::to_string(m_port));
            if (m_port == kDefaultPort) {
                hosts.push_back(host);
            }
        }
    }
    return hosts;
}

std::string LocalAddressOf(int socket) {
    return NameOf(socket).first;
}

} // namespace lab::serve
