#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// TOML as a tree of values with their positions. Only one unit includes the parser's own header.
namespace lab {

// From 1; columns count characters.
struct TomlPlace {
    unsigned line = 1;
    unsigned column = 1;
};

struct TomlEntry;

struct TomlNode {
    enum class Kind { kText, kWhole, kFraction, kTruth, kDate, kList, kTable };

    Kind kind = Kind::kTable;
    TomlPlace place;
    std::string text;    // a text's value; other values as written, except tables with a head
    double number = 0.0; // of a whole number or a fraction
    int64_t whole = 0;
    bool truth = false;
    std::vector<TomlNode> items;
    std::vector<TomlEntry> entries; // of a table, in the order in which they are written

    bool IsNumber() const { return kind == Kind::kWhole || kind == Kind::kFraction; }
    const TomlEntry* Find(const std::string& key) const;
};

struct TomlEntry {
    std::string key;
    TomlPlace place;
    TomlNode value;
};

// Thrown for text that is not TOML.
class TomlError : public std::runtime_error {
  public:
    TomlError(TomlPlace place, const std::string& problem)
        : std::runtime_error(problem), m_place(place) {}
    TomlPlace Place() const { return m_place; }

  private:
    TomlPlace m_place;
};

// A fault in a TOML file, in the form that editors parse from compilers.
struct Complaint {
    TomlPlace place;
    std::string field;
    std::string wrong;
    std::string allowed;
};

// The value as a complaint shows it: `the text "ten"`, `the number 0`, `a list`.
std::string Described(const TomlNode& value);

// Returns the root table or throws a TomlError.
TomlNode ReadToml(const std::string& text);

} // namespace lab
