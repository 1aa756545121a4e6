#pragma once

#include <string>

namespace lab {

// Text for XML and HTML, between tags and in attributes: UTF-8, without characters that XML cannot
// represent.
inline std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '&') {
            escaped += "&amp;";
        } else if (c == '<') {
            escaped += "&lt;";
        } else if (c == '>') {
            escaped += "&gt;";
        } else if (c == '"') {
            escaped += "&quot;";
        } else if ((byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7F) {
            escaped += '?';
        } else {
            escaped += c;
        }
    }
    return escaped;
}

} // namespace lab
