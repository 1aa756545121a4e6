#include "lab/score/Classes.h"

#include "lab/score/Codes.h"

#include <string_view>

namespace lab::score {
namespace {

constexpr std::array<std::string_view, kBeatClasses> kSymbolsOf = {"NLRBejn", "AaJS", "VEr", "F",
                                                                   "/fQ?"};

std::array<Class, 256> MakeTable() {
    std::array<Class, 256> table{};
    table.fill(kMissing);
    for (std::size_t i = 0; i < kBeatClasses; ++i) {
        for (const char& symbol : kSymbolsOf[i]) {
            table[CodeOfSymbol({&symbol, 1})] = static_cast<Class>(i);
        }
    }
    return table;
}

} // namespace

Class ClassOf(std::uint8_t code) {
    static const std::array<Class, 256> table = MakeTable();
    return table[code];
}

} // namespace lab::score
