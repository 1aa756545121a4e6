#pragma once

#include "tests/support/Files.h"

#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/types.h>
#include <vector>

// The server as a program, and clients that know nothing about its implementation.

class Folder : public Scratch {
  public:
    // Lead I of `seconds` seconds at 250 per second: frame n carries n - 1000 microvolts.
    std::string WriteRamp(const std::string& name, int seconds) const;
};

struct Reply {
    int status = 0;
    std::map<std::string, std::string> headers; // names in lower case
    std::string body;

    nlohmann::json Json() const { return nlohmann::json::parse(body); }
};

// A connection to the server.
class Connection {
  public:
    explicit Connection(int port);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    int Socket() const { return m_socket; }
    void Send(const std::string& bytes) const;

    // The data received until the server closes the connection.
    std::string ReadToEnd() const;

    // The data received up to `mark`, including it; fails the test when it does not arrive.
    std::string ReadUntil(const std::string& mark);

  private:
    int m_socket;
    std::string m_rest;
};

Reply ReplyOf(const std::string& bytes);

// A program that serves the page, as long as the object exists.
class ServerProgram {
  public:
    // With `--listen 127.0.0.1:0`; waits for its address.
    explicit ServerProgram(std::vector<std::string> options);

    // `ravo run` with `--serve 127.0.0.1:0`; waits for the same.
    static ServerProgram OfRun(std::vector<std::string> options);

    ~ServerProgram(); // by force, if it is still running
    ServerProgram(const ServerProgram&) = delete;
    ServerProgram& operator=(const ServerProgram&) = delete;

    int Port() const { return m_port; }
    std::string Host() const { return "127.0.0.1:" + std::to_string(m_port); }
    pid_t Id() const { return m_child; }

    // The only process that it has started; fails the test when their number is not one.
    pid_t ChildId() const;

    // Sends the request as it is.
    Reply Raw(const std::string& bytes) const;
    Reply Get(const std::string& target, const std::string& headers = {}) const;
    Reply Post(const std::string& target, const std::string& body,
               const std::string& headers = "Content-Type: application/json\r\n") const;
    nlohmann::json State() const { return Get("/api/state").Json(); }

    // Polls the state until the condition holds; fails the test when that takes too long.
    template <typename Condition>
    nlohmann::json Await(const Condition& isSo) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        for (;;) {
            nlohmann::json state = State();
            if (isSo(state) || std::chrono::steady_clock::now() > end) {
                EndWait(isSo(state), state);
                return state;
            }
            Pause();
        }
    }

    // Sends a signal and returns the exit status, 128 + N when it was ended by signal N.
    int End(int signal);

    // The same for a program that ends by itself.
    int AwaitEnd();

  private:
    ServerProgram(const char* program, const std::vector<std::string>& words, int channel);
    static void EndWait(bool isSo, const nlohmann::json& state);
    static void Pause();

    pid_t m_child = -1;
    int m_out = -1; // of the channel that transmits the address
    int m_port = 0;
};

// Starts ravo-serve and returns its exit status and what it wrote to standard error.
std::pair<int, std::string> RunServer(const std::vector<std::string>& options);

// A viewer: the stream of events.
class Viewer {
  public:
    explicit Viewer(const ServerProgram& server, const std::string& headers = {});

    struct Event {
        std::string name;
        nlohmann::json data;
    };
    Event Next();
    nlohmann::json Next(const std::string& name); // skips the others

    // Acts like a machine that is switched off: from now on, nothing that is sent to it arrives.
    void Vanish() const;

  private:
    Connection m_connection;
};
