#include "lab/score/Codes.h"

namespace lab::score {

std::string SymbolOfCode(std::uint8_t code) {
    const bool isKnown = code < kSymbols.size() && kSymbols[code] != ' ';
    return isKnown ? std::string(1, kSymbols[code]) : std::string();
}

} // namespace lab::score
