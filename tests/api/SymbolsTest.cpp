// The exports of the shared library are those of the checked-in list: none missing, none added.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

struct PipeCloser {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

std::vector<std::string> LinesOf(const std::string& command) {
    std::vector<std::string> lines;
    const std::unique_ptr<FILE, PipeCloser> pipe(popen(command.c_str(), "r"));
    char line[1024];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        lines.emplace_back(line);
        lines.back().pop_back();
    }
    return lines;
}

// "0000000000012345 T RAVOInit@@RAVO_1" names RAVOInit in version RAVO_1.
std::vector<std::string> ExportedSymbols() {
    std::vector<std::string> symbols;
    for (const std::string& line :
         LinesOf("nm -D --defined-only --with-symbol-versions '" RAVO_SHARED_LIBRARY "'")) {
        const std::string symbol = line.substr(line.rfind(' ') + 1);
        if (symbol != "RAVO_1") {
            symbols.push_back(symbol);
        }
    }
    std::sort(symbols.begin(), symbols.end());
    return symbols;
}

TEST(SymbolsTest, AreTheListedOnes) {
    std::vector<std::string> expected;
    std::ifstream list(RAVO_EXPORTS_LIST);
    for (std::string name; std::getline(list, name);) {
        expected.push_back(name + "@@RAVO_1");
    }
    ASSERT_GT(expected.size(), 50U);
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(ExportedSymbols(), expected);
}

TEST(SymbolsTest, LibraryHasItsSoname) {
    const std::vector<std::string> lines =
        LinesOf("objdump -p '" RAVO_SHARED_LIBRARY "' | grep SONAME");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("libravo.so.1"), std::string::npos);
}

} // namespace
