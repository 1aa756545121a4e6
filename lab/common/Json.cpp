#include "lab/common/Json.h"

#include "lab/common/Failure.h"

#include <cmath>

namespace lab {
namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : ToUtf8(text)) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (byte < 0x20 || byte == 0x7F) {
            quoted += Format("\\u%04x", byte);
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

} // namespace

void Json::Separate() {
    if (m_needsComma) {
        m_text += ',';
    }
}

Json& Json::Raw(const std::string& text) {
    Separate();
    m_text += text;
    m_needsComma = true;
    return *this;
}

Json& Json::BeginObject() {
    Separate();
    m_text += '{';
    m_needsComma = false;
    return *this;
}

Json& Json::EndObject() {
    m_text += '}';
    m_needsComma = true;
    return *this;
}

Json& Json::BeginArray() {
    Separate();
    m_text += '[';
    m_needsComma = false;
    return *this;
}

Json& Json::EndArray() {
    m_text += ']';
    m_needsComma = true;
    return *this;
}

Json& Json::Key(const char* name) {
    Raw(Quoted(name));
    m_text += ':';
    m_needsComma = false;
    return *this;
}

Json& Json::Value(const std::string& text) {
    return Raw(Quoted(text));
}
Json& Json::Value(const char* text) {
    return Raw(Quoted(text));
}
Json& Json::Value(int64_t number) {
    return Raw(Format("%lld", static_cast<long long>(number)));
}
Json& Json::Value(int number) {
    return Raw(Format("%d", number));
}
Json& Json::Value(bool truth) {
    return Raw(truth ? "true" : "false");
}
Json& Json::Null() {
    return Raw("null");
}

Json& Json::Value(double number) {
    return std::isfinite(number) ? Raw(Format("%.10g", number)) : Null();
}

} // namespace lab
