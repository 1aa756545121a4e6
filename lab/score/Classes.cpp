#include "lab/score/Classes.h"

#include "lab/score/Codes.h"

#include <string_view>

namespace lab::score {
namespace {

constexpr std::array<std::string_view, kBeatClasses> kSymbolsOf = {"NLRBejn", "AaJS", "VEr", "F",
                                                                   "/fQ?"};

constexpr std::array<Class, 256> MakeTable() {
    std::array<Class, 256> table{};
    for (Class& each : table) {
        each = kMissing;
    }
    for (std::size_t i = 0; i < kBeatClasses; ++i) {
        for (const char& symbol : kSymbolsOf[i]) {
            table[CodeOfSymbol({&symbol, 1})] = static_cast<Class>(i);
        }
    }
    return table;
}

} // namespace

constexpr std::array<Class, 256> kClassOfCode = MakeTable();

} // namespace lab::score
