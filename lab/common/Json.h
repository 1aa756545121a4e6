#pragma once

#include <cstdint>
#include <string>

namespace lab {

// Builds one JSON text. Keys appear in the order in which they are written; the caller keeps
// objects and arrays balanced.
class Json {
  public:
    Json& BeginObject();
    Json& EndObject();
    Json& BeginArray();
    Json& EndArray();
    Json& Key(const char* name);

    Json& Value(const std::string& text);
    Json& Value(const char* text);
    Json& Value(double number); // null when not finite
    Json& Value(int64_t number);
    Json& Value(int number);
    Json& Value(bool truth);
    Json& Null();

    template <typename T>
    Json& Field(const char* name, const T& value) {
        Key(name);
        return Value(value);
    }

    const std::string& Text() const { return m_text; }

  private:
    Json& Raw(const std::string& text);
    void Separate();

    std::string m_text;
    bool m_needsComma = false;
};

} // namespace lab
