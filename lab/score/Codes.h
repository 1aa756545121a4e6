#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lab::score {

// The annotation codes to which the rules of the comparison refer.
enum Code : std::uint8_t {
    kNoise = 14,             // "~", a change of signal quality
    kNote = 22,              // "\"", a remark
    kFibrillationBegin = 32, // "["
    kFibrillationEnd = 33,   // "]"
};

// The usual symbols by code, from 0 on; a blank for a code without one.
constexpr std::string_view kSymbols = " NLRaVFJASEj/Q~ | sT*D\"=pB^t+u?![]en@xf()r";

// The code that a symbol such as "V" stands for; 0, which is not a beat, for an unknown symbol.
constexpr std::uint8_t CodeOfSymbol(std::string_view symbol) {
    const auto found = symbol.size() == 1 && symbol != " " ? kSymbols.find(symbol.front())
                                                           : std::string_view::npos;
    return found == std::string_view::npos ? std::uint8_t{0} : static_cast<std::uint8_t>(found);
}

// The usual symbol of a code; "" for a code without one.
std::string SymbolOfCode(std::uint8_t code);

} // namespace lab::score
