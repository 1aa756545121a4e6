#include "lab/plan/Toml.h"

#include "lab/common/Failure.h"

// The parser asserts (in optimised builds: lets the compiler assume) that a key follows "[", which
// a text may violate. With both disabled it reports such a text properly.
#undef NDEBUG
#define TOML_ASSERT(expr) static_assert(true)
#include <toml++/toml.h>

#include <algorithm>
#include <tuple>

namespace lab {
namespace {

using Kind = TomlNode::Kind;

TomlPlace PlaceOf(const toml::source_region& region) {
    return {std::max(region.begin.line, 1U), std::max(region.begin.column, 1U)};
}

bool IsBefore(const TomlPlace& a, const TomlPlace& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
}

// Turns the parser's tree into ours; the original text is needed for the places.
class Translator {
  public:
    explicit Translator(const std::string& text) : m_text(text), m_lines{0} {
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] == '\n') {
                m_lines.push_back(at + 1);
            }
        }
    }

    TomlNode Translate(const toml::node& node) const {
        TomlNode made;
        made.place = PlaceOf(node.source());
        if (const toml::table* table = node.as_table()) {
            made.kind = Kind::kTable;
            made.text = table->is_inline() ? AsWritten(made.place) : "";
            TakeEntries(made, *table);
        } else if (const toml::array* list = node.as_array()) {
            made.kind = Kind::kList;
            made.text = AsWritten(made.place);
            for (const toml::node& item : *list) {
                made.items.push_back(Translate(item));
            }
        } else {
            TakeValue(made, node);
        }
        return made;
    }

  private:
    // The parser sorts keys by name.
    void TakeEntries(TomlNode& made, const toml::table& table) const {
        for (const auto& [key, value] : table) {
            made.entries.push_back(
                {std::string(key.str()), PlaceOf(key.source()), Translate(value)});
        }
        std::stable_sort(
            made.entries.begin(), made.entries.end(),
            [](const TomlEntry& a, const TomlEntry& b) { return IsBefore(a.place, b.place); });
    }

    void TakeValue(TomlNode& made, const toml::node& node) const {
        if (node.is_string()) {
            made.kind = Kind::kText;
            made.text = node.as_string()->get();
            return;
        }
        made.text = AsWritten(made.place);
        if (node.is_integer()) {
            made.kind = Kind::kWhole;
            made.whole = node.as_integer()->get();
            made.number = static_cast<double>(made.whole);
        } else if (node.is_floating_point()) {
            made.kind = Kind::kFraction;
            made.number = node.as_floating_point()->get();
        } else if (node.is_boolean()) {
            made.kind = Kind::kTruth;
            made.truth = node.as_boolean()->get();
        } else {
            made.kind = Kind::kDate;
        }
    }

    std::size_t OffsetOf(const TomlPlace& place) const {
        std::size_t at = m_lines[std::min<std::size_t>(place.line, m_lines.size()) - 1];
        for (unsigned column = 1; column < place.column && at < m_text.size(); ++column) {
            do {
                ++at;
            } while (at < m_text.size() && IsContinuation(m_text[at]));
        }
        return at;
    }

    // A value other than a text, without the blanks outside of texts.
    std::string AsWritten(const TomlPlace& place) const {
        std::string written;
        int depth = 0;
        char quote = 0;
        for (std::size_t at = OffsetOf(place); at < m_text.size(); ++at) {
            const char c = m_text[at];
            const bool isBlank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
            const bool isEnd = c == ']' || c == '}';
            if (quote != 0 || c == '"' || c == '\'') {
                quote = quote == 0 ? c : c == quote ? '\0' : quote;
            } else {
                depth += c == '[' || c == '{' ? 1 : isEnd ? -1 : 0;
                if (depth < 0 || (depth == 0 && (isBlank || isEnd || c == ',' || c == '#'))) {
                    return depth == 0 && isEnd ? written + c : written;
                }
            }
            written += isBlank && quote == 0 ? "" : std::string(1, c);
        }
        return written;
    }

    const std::string& m_text;
    std::vector<std::size_t> m_lines; // where each begins
};

} // namespace

const TomlEntry* TomlNode::Find(const std::string& key) const {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const TomlEntry& entry) { return entry.key == key; });
    return found == entries.end() ? nullptr : &*found;
}

TomlNode ReadToml(const std::string& text) {
    try {
        return Translator(text).Translate(toml::parse(text));
    } catch (const toml::parse_error& error) {
        throw TomlError(PlaceOf(error.source()), std::string(error.description()));
    }
}

std::string Described(const TomlNode& value) {
    switch (value.kind) {
    case Kind::kText:
        return "the text \"" + Printable(value.text) + "\"";
    case Kind::kWhole:
    case Kind::kFraction:
        return "the number " + value.text;
    case Kind::kTruth:
        return value.text;
    case Kind::kDate:
        return "a date or a time";
    case Kind::kList:
        return "the list " + Printable(value.text);
    case Kind::kTable:
        break;
    }
    return "a table";
}

} // namespace lab
