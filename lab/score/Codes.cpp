#include "lab/score/Codes.h"

#include <array>

namespace lab::score {
namespace {

// By code, from 0 on; a blank where a code has no symbol.
constexpr std::string_view kSymbols = " NLRaVFJASEj/Q~ | sT*D\"=pB^t+u?![]en@xf()r";

} // namespace

std::uint8_t CodeOfSymbol(std::string_view symbol) {
    const auto found = symbol.size() == 1 && symbol != " " ? kSymbols.find(symbol.front())
                                                           : std::string_view::npos;
    return found == std::string_view::npos ? std::uint8_t{0} : static_cast<std::uint8_t>(found);
}

std::string SymbolOfCode(std::uint8_t code) {
    const bool isKnown = code < kSymbols.size() && kSymbols[code] != ' ';
    return isKnown ? std::string(1, kSymbols[code]) : std::string();
}

} // namespace lab::score
