#include "lab/serve/PlayOrder.h"

#include "lab/plan/Fields.h"
#include "lab/plan/JsonNode.h"
#include "lab/serve/HttpFailure.h"

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <vector>

namespace lab::serve {
namespace {

using nlohmann::json;

constexpr int kBadRequest = 400;
constexpr int kUnprocessable = 422;
constexpr std::size_t kDeepest = 8;

// Refuses two fields of one name: only one would count, and it is undefined which one.
class StrictParser {
  public:
    json Parse(const std::string& text) {
        try {
            return json::parse(text, [this](int depth, json::parse_event_t event, json& value) {
                return Look(depth, event, value);
            });
        } catch (const json::exception& error) {
            const std::string reason = error.what();
            const std::size_t at = reason.find("] ");
            Refuse(kBadRequest, "body",
                   "is not JSON: " + (at == std::string::npos ? reason : reason.substr(at + 2)));
        }
    }

  private:
    bool Look(int depth, json::parse_event_t event, const json& value) {
        if (static_cast<std::size_t>(depth) > kDeepest) {
            Refuse(kBadRequest, "body", "is nested too deeply.");
        }
        if (event == json::parse_event_t::object_start) {
            m_keys.emplace_back();
        } else if (event == json::parse_event_t::object_end) {
            m_keys.pop_back();
        } else if (event == json::parse_event_t::key &&
                   !m_keys.back().insert(value.get<std::string>()).second) {
            Refuse(kBadRequest, value.get<std::string>(), "is given twice.");
        }
        return true;
    }

    std::vector<std::set<std::string>> m_keys;
};

json ParseObject(const std::string& body) {
    json parsed = StrictParser().Parse(body);
    if (!parsed.is_object()) {
        Refuse(kUnprocessable, "body", "is not an object of JSON.");
    }
    return parsed;
}

std::string DescribeGiven(const json& value, const TomlNode& node) {
    return value.is_null() ? "null" : value.is_object() ? "an object" : Described(node);
}

// What a field allows, put for JSON: a plan's table LEAD = 2 is the object {"LEAD": 2}.
std::string InJson(const std::string& allowed) {
    static const std::regex kTable("a table ([A-Z]+) = ([\"A-Z]+)");
    return std::regex_replace(allowed, kTable, "an object {\"$1\": $2}");
}

void TakeField(PlannedStep& step, const std::string& name, const json& value) {
    const Field* field = FindField(name, MaskOf(StepKind::kMaterial));
    if (field == nullptr || !(field->isOption || name == "material")) {
        Refuse(kUnprocessable, Printable(name), "is not a field of a play.",
               "Fields are those of a step of material in a plan, by the long names of the "
               "options of `ravo play`.");
    }
    const TomlNode node = NodeOfJson(value);
    const std::string allowed = field->refuse(node);
    if (!allowed.empty()) {
        Refuse(kUnprocessable, name, "is " + DescribeGiven(value, node) + ".",
               "It takes " + InJson(allowed) + ".");
    }
    field->set(step, node);
}

} // namespace

PlayOrder ReadPlayOrder(const std::string& body) {
    const json parsed = ParseObject(body);
    PlannedStep step;
    for (const auto& [name, value] : parsed.items()) {
        TakeField(step, name, value);
    }
    if (step.material.empty()) {
        Refuse(kUnprocessable, "material", "is missing.",
               "Give a file's path, builtin:NAME or a waveform's name.");
    }
    PlayOrder order{step.material, step.play.material.builtinNoise, step.play};
    order.request.material.name = step.material;
    order.request.material.start = order.request.start;
    return order;
}

bool ReadNoiseOrder(const std::string& body) {
    const json parsed = ParseObject(body);
    for (const auto& [name, value] : parsed.items()) {
        if (name != "on" || !value.is_boolean()) {
            Refuse(kUnprocessable, Printable(name), "does not belong here.",
                   "The body is {\"on\":true} or {\"on\":false}.");
        }
    }
    if (!parsed.contains("on")) {
        Refuse(kUnprocessable, "on", "is missing.", "The body is {\"on\":true} or {\"on\":false}.");
    }
    return parsed.at("on").get<bool>();
}

void RequireNoOrder(const std::string& body) {
    if (body.find_first_not_of(" \t\r\n") != std::string::npos && !ParseObject(body).empty()) {
        Refuse(kUnprocessable, "body", "has fields, and this takes none.");
    }
}

} // namespace lab::serve
