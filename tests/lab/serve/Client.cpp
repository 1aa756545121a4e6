#include "Client.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr int kPatienceMilliseconds = 60'000;

std::string Read(int descriptor) {
    std::array<char, 65536> piece{};
    pollfd wait{descriptor, POLLIN, 0};
    if (::poll(&wait, 1, kPatienceMilliseconds) <= 0) {
        throw std::runtime_error("nothing comes");
    }
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    return count > 0 ? std::string(piece.data(), static_cast<std::size_t>(count)) : "";
}

struct Child {
    pid_t id;
    int out; // a pipe from its standard output or error
};

Child Start(const char* program, const std::vector<std::string>& options, int stream) {
    std::vector<std::string> words = {program};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], stream);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    return {child, ends[0]};
}

int WaitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> WithFirst(std::vector<std::string> first, std::vector<std::string> rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

std::string Folder::WriteRamp(const std::string& name, int seconds) const {
    constexpr int kRate = 250;
    std::string samples;
    for (int frame = 0; frame < seconds * kRate; ++frame) {
        const auto value = static_cast<uint16_t>(frame - 1000);
        samples += static_cast<char>(value & 0xFF);
        samples += static_cast<char>(value >> 8);
    }
    Write(name + ".dat", samples);
    const std::string stem = fs::path(name).filename().string();
    return Write(name + ".hea", stem + " 1 250 " + std::to_string(seconds * kRate) + "\n" + stem +
                                    ".dat 16 1000/mV 16 0 0 0 0 I\n");
}

Connection::Connection(int port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("no connection");
    }
}

Connection::~Connection() {
    ::close(m_socket);
}

void Connection::Send(const std::string& bytes) const {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count =
            ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return; // refused before all of it was read
        }
        sent += static_cast<std::size_t>(count);
    }
}

std::string Connection::ReadToEnd() const {
    std::string all = m_rest;
    for (std::string piece = Read(m_socket); !piece.empty(); piece = Read(m_socket)) {
        all += piece;
    }
    return all;
}

std::string Connection::ReadUntil(const std::string& mark) {
    std::size_t from = 0;
    std::size_t at = 0;
    while ((at = m_rest.find(mark, from)) == std::string::npos) {
        from = m_rest.size() < mark.size() ? 0 : m_rest.size() - mark.size();
        const std::string piece = Read(m_socket);
        if (piece.empty()) {
            throw std::runtime_error("the server has closed after: " + m_rest);
        }
        m_rest += piece;
    }
    std::string text = m_rest.substr(0, at + mark.size());
    m_rest.erase(0, at + mark.size());
    return text;
}

Reply ReplyOf(const std::string& bytes) {
    Reply reply;
    const std::size_t end = bytes.find("\r\n\r\n");
    if (bytes.rfind("HTTP/1.1 ", 0) != 0 || end == std::string::npos) {
        ADD_FAILURE() << "no answer: " << bytes;
        return reply;
    }
    reply.status = std::stoi(bytes.substr(9, 3));
    reply.body = bytes.substr(end + 4);
    for (std::size_t at = bytes.find("\r\n") + 2; at < end;) {
        const std::size_t next = bytes.find("\r\n", at);
        const std::string line = bytes.substr(at, next - at);
        const std::size_t colon = line.find(": ");
        reply.headers[LowerCase(line.substr(0, colon))] = line.substr(colon + 2);
        at = next + 2;
    }
    return reply;
}

ServerProgram::ServerProgram(std::vector<std::string> options)
    : ServerProgram(RAVO_SERVE_PROGRAM, WithFirst({"--listen", "127.0.0.1:0"}, std::move(options)),
                    STDOUT_FILENO) {}

ServerProgram ServerProgram::OfRun(std::vector<std::string> options) {
    return {RAVO_PROGRAM, WithFirst({"run", "--serve", "127.0.0.1:0"}, std::move(options)),
            STDERR_FILENO};
}

ServerProgram::ServerProgram(const char* program, const std::vector<std::string>& words,
                             int channel) {
    const Child child = Start(program, words, channel);
    m_child = child.id;
    m_out = child.out;
    std::string line;
    while (line.find('\n') == std::string::npos) {
        const std::string piece = Read(child.out);
        if (piece.empty()) {
            break;
        }
        line += piece;
    }
    const std::string expected = "listening on http://127.0.0.1:";
    if (line.rfind(expected, 0) != 0) {
        throw std::runtime_error("the server says: " + line);
    }
    m_port = std::stoi(line.substr(expected.size()));
}

ServerProgram::~ServerProgram() {
    if (m_child > 0) {
        ::kill(m_child, SIGKILL);
        WaitFor(m_child);
    }
    ::close(m_out);
}

int ServerProgram::End(int signal) {
    ::kill(m_child, signal);
    return AwaitEnd();
}

int ServerProgram::AwaitEnd() {
    const int status = WaitFor(m_child);
    m_child = -1;
    return status;
}

pid_t ServerProgram::ChildId() const {
    std::vector<pid_t> children;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
        const pid_t process = std::atoi(entry.path().filename().c_str());
        std::string stat; // the name of the program in brackets, its state, its parent, ...
        if (process > 0 && std::getline(std::ifstream(entry.path() / "stat"), stat)) {
            const std::size_t end = std::min(stat.rfind(") "), stat.size());
            pid_t parent = -1;
            std::sscanf(stat.c_str() + end, ") %*c %d", &parent);
            children.insert(children.end(), parent == m_child ? 1 : 0, process);
        }
    }
    EXPECT_EQ(children.size(), 1U);
    return children.empty() ? -1 : children.front();
}

Reply ServerProgram::Raw(const std::string& bytes) const {
    const Connection connection(m_port);
    connection.Send(bytes);
    return ReplyOf(connection.ReadToEnd());
}

Reply ServerProgram::Get(const std::string& target, const std::string& headers) const {
    return Raw("GET " + target + " HTTP/1.1\r\nHost: " + Host() + "\r\n" + headers + "\r\n");
}

Reply ServerProgram::Post(const std::string& target, const std::string& body,
                          const std::string& headers) const {
    return Raw("POST " + target + " HTTP/1.1\r\nHost: " + Host() + "\r\n" + headers +
               "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

void ServerProgram::EndWait(bool isSo, const nlohmann::json& state) {
    EXPECT_TRUE(isSo) << state.dump();
}

void ServerProgram::Pause() {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

std::pair<int, std::string> RunServer(const std::vector<std::string>& options) {
    const Child child = Start(RAVO_SERVE_PROGRAM, options, STDERR_FILENO);
    std::string text;
    for (std::string piece = Read(child.out); !piece.empty(); piece = Read(child.out)) {
        text += piece;
    }
    ::close(child.out);
    return {WaitFor(child.id), text};
}

Viewer::Viewer(const ServerProgram& server, const std::string& headers)
    : m_connection(server.Port()) {
    m_connection.Send("GET /api/events HTTP/1.1\r\nHost: " + server.Host() + "\r\n" + headers +
                      "\r\n");
    const Reply head = ReplyOf(m_connection.ReadUntil("\r\n\r\n"));
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.headers.at("content-type"), "text/event-stream");
}

Viewer::Event Viewer::Next() {
    const std::string text = m_connection.ReadUntil("\n\n");
    const std::size_t line = text.find('\n');
    return {text.substr(7, line - 7), nlohmann::json::parse(text.substr(line + 7))};
}

void Viewer::Vanish() const {
    sock_filter dropAll = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &dropAll};
    if (::setsockopt(m_connection.Socket(), SOL_SOCKET, SO_ATTACH_FILTER, &program,
                     sizeof program) != 0) {
        throw std::runtime_error("the socket takes no filter");
    }
}

nlohmann::json Viewer::Next(const std::string& name) {
    for (;;) {
        Event event = Next();
        if (event.name == name) {
            return std::move(event.data);
        }
    }
}
