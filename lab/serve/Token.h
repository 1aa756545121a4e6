#pragma once

#include <string>

namespace lab::serve {

// The token that clients have to send.
class Token {
  public:
    // Reads it from a file that only its owner may read. Fails when others may read it, too, or
    // when it is empty.
    explicit Token(const std::string& path);

    // Whether a value of "Authorization" carries it. Takes the same time for every wrong one.
    bool IsIn(const std::string& authorization) const;

  private:
    std::string m_digest; // of the token
};

} // namespace lab::serve
