#pragma once

#include <string>

namespace lab::serve {

// The word that clients have to know.
class Token {
  public:
    // Reads it from a file that only its owner may read. Fails when others may, and when it holds
    // no word.
    explicit Token(const std::string& path);

    // Whether a value of "Authorization" carries it. Takes the same time for every wrong one.
    bool IsIn(const std::string& authorization) const;

  private:
    std::string m_digest; // of the token
};

} // namespace lab::serve
