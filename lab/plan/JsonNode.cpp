#include "lab/plan/JsonNode.h"

namespace lab {

TomlNode NodeOfJson(const nlohmann::json& value) {
    using Kind = TomlNode::Kind;
    TomlNode node;
    node.text = value.is_string()
                    ? value.get<std::string>()
                    : value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    if (value.is_string()) {
        node.kind = Kind::kText;
    } else if (value.is_boolean()) {
        node.kind = Kind::kTruth;
        node.truth = value.get<bool>();
    } else if (value.is_number()) {
        const bool isWhole = value.is_number_integer() &&
                             !(value.is_number_unsigned() &&
                               value.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX));
        node.kind = isWhole ? Kind::kWhole : Kind::kFraction;
        node.whole = isWhole ? value.get<int64_t>() : 0;
        node.number = value.get<double>();
    } else if (value.is_array()) {
        node.kind = Kind::kList;
        for (const nlohmann::json& item : value) {
            node.items.push_back(NodeOfJson(item));
        }
    } else {
        node.kind = value.is_null() ? Kind::kDate : Kind::kTable; // no field takes a date
        for (const auto& [key, item] : value.items()) {
            if (value.is_object()) {
                node.entries.push_back({key, {}, NodeOfJson(item)});
            }
        }
    }
    return node;
}

} // namespace lab
