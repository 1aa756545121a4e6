#include "lab/common/Text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace lab {
namespace {

// Well-formed enough to pass on: every lead byte is followed by as many continuation bytes as it
// announces.
bool IsUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::size_t more = byte < 0x80   ? 0
                                 : byte < 0xC2 ? text.size()
                                 : byte < 0xE0 ? 1
                                 : byte < 0xF0 ? 2
                                 : byte < 0xF5 ? 3
                                               : text.size();
        if (more >= text.size() - i) {
            return false;
        }
        for (std::size_t k = 0; k < more; ++k) {
            if (!IsContinuation(text[++i])) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

std::string Printable(const std::string& text) {
    std::string safe = text;
    std::replace_if(
        safe.begin(), safe.end(),
        [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < 0x20 || byte == 0x7F;
        },
        '?');
    return safe;
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::string ToUtf8(const std::string& text) {
    if (IsUtf8(text)) {
        return text;
    }
    std::string converted;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            converted += c;
        } else {
            converted += static_cast<char>(0xC0 | (byte >> 6));
            converted += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return converted;
}

std::string Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::vector<char> text(static_cast<std::size_t>(length < 0 ? 0 : length) + 1);
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    return text.data();
}

} // namespace lab
