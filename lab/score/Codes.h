#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace lab::score {

// The annotation codes that rules of the comparison name.
enum Code : std::uint8_t {
    kNoise = 14,             // "~", a change of signal quality
    kNote = 22,              // "\"", a remark
    kFibrillationBegin = 32, // "["
    kFibrillationEnd = 33,   // "]"
};

// The code that a symbol such as "V" stands for; 0, which is no beat, for a symbol of no meaning.
std::uint8_t CodeOfSymbol(std::string_view symbol);

// The usual symbol of a code; "" for a code without one.
std::string SymbolOfCode(std::uint8_t code);

} // namespace lab::score
