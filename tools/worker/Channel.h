#pragma once

#include "lab/common/Mutex.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Messages between the interpreter and its worker: two numbers of 64 bits, the lengths of the two
// parts that follow: a JSON object and its payload of bytes. All numbers are the machine's own.
namespace worker {

// Uninitialised bytes: received data overwrites them all.
class Payload {
  public:
    Payload() = default;
    explicit Payload(std::size_t size) : m_bytes(new char[size]), m_size(size) {}

    char* Data() { return m_bytes.get(); }
    const char* Data() const { return m_bytes.get(); }
    std::size_t Size() const { return m_size; }

  private:
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_size = 0;
};

// The check mistakes the move of JSON, which is declared not to throw, for one that may throw.
struct Message { // NOLINT(bugprone-exception-escape)
    nlohmann::json head;
    Payload payload;
};

// Bytes sent after the head, one piece after the other.
struct Piece {
    const void* data;
    std::size_t size;
};

// The two ends that the worker holds. One thread receives, any thread sends.
class Channel {
  public:
    Channel(int in, int out) : m_in(in), m_out(out) {}

    int In() const { return m_in; }

    // False when the other side has closed its end or sends anything but a message.
    bool Receive(Message& message) const;

    // False when the other side has closed its end.
    bool Send(const nlohmann::json& head, const std::vector<Piece>& payload = {});

  private:
    int m_in;
    int m_out;
    lab::Mutex m_sending;
};

} // namespace worker
