#pragma once

#include <string>

namespace lab {

// Text from a file, made safe for a terminal: control characters become "?".
std::string Printable(const std::string& text);

// The encoding of texts in records is unknown: a text that is not UTF-8 is read as Latin-1.
std::string ToUtf8(const std::string& text);

// Whether a byte of UTF-8 continues a character.
bool IsContinuation(char c);

// printf into a string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace lab
