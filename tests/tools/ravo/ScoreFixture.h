#pragma once

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <string>

// `ravo score` on lists that a test writes.

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

inline const std::string kHeader = "seconds,code\n";

class ScoreTest : public testing::Test {
  protected:
    // 301 N, 302 V, 303 V, 304 S against 301 N, 302 V, 303 N and 310 N: Nn, Vv, Vn, So and On.
    void WriteLists() {
        m_reference = m_directory.Write("r/a.csv", kHeader + "301,N\n302,V\n303,V\n304,S\n");
        m_test = m_directory.Write("t/a.csv", kHeader + "301.1,N\n302,V\n303,N\n310,N\n");
    }

    Scratch m_directory;
    std::string m_reference;
    std::string m_test;
};
