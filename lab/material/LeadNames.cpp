#include "lab/material/LeadNames.h"

#include "lab/material/Leads.h"
#include "lab/material/readers/Numbers.h"

#include <algorithm>
#include <array>
#include <vector>

namespace lab {
namespace {

struct Name {
    const char* text; // in lower case
    ECG_Lead lead;
};

// Names that follow no rule, by the habits of the databases that use them.
constexpr std::array<Name, 23> kSpecial = {{
    {"ecg", ECG_LEAD_II},        {"ekg", ECG_LEAD_II},         {"ecg0", ECG_LEAD_II},
    {"ecg [ecg1]", ECG_LEAD_I},  {"ecg signal 0", ECG_LEAD_I}, {"ecg signal 1", ECG_LEAD_II},
    {"ecg leadii", ECG_LEAD_II}, {"mcl1", ECG_LEAD_I},         {"ml2", ECG_LEAD_II},
    {"ml5", ECG_LEAD_V5},        {"mli", ECG_LEAD_I},          {"mlii", ECG_LEAD_II},
    {"mod.v1", ECG_LEAD_V1},     {"mv2", ECG_LEAD_V2},         {"v1-v2", ECG_LEAD_V1},
    {"v2-v3", ECG_LEAD_V2},      {"v4-v5", ECG_LEAD_V4},       {"thorax_1", ECG_LEAD_I},
    {"thorax_2", ECG_LEAD_II},   {"abdomen_1", ECG_LEAD_V1},   {"abdomen_2", ECG_LEAD_V2},
    {"abdomen_3", ECG_LEAD_V3},  {"abdomen_4", ECG_LEAD_V4},
}};

constexpr std::array<Name, 9> kPlain = {{{"i", ECG_LEAD_I},
                                         {"ii", ECG_LEAD_II},
                                         {"v", ECG_LEAD_V1},
                                         {"v1", ECG_LEAD_V1},
                                         {"v2", ECG_LEAD_V2},
                                         {"v3", ECG_LEAD_V3},
                                         {"v4", ECG_LEAD_V4},
                                         {"v5", ECG_LEAD_V5},
                                         {"v6", ECG_LEAD_V6}}};

template <std::size_t Count>
ECG_Lead Find(const std::array<Name, Count>& names, const std::string& text) {
    for (const Name& name : names) {
        if (text == name.text) {
            return name.lead;
        }
    }
    return ECG_LEAD_NONE;
}

// The text without the name of the reference electrode.
std::string WithoutReference(const std::string& text) {
    constexpr std::array<const char*, 10> kReferences = {"-ref", "-a1",  "-a2",  "-m1", "-m2",
                                                         "-avg", "-gnd", "-ave", "-le", "+"};
    for (const std::string reference : kReferences) {
        if (text.size() > reference.size() &&
            text.compare(text.size() - reference.size(), reference.size(), reference) == 0) {
            return std::string(Trim(text.substr(0, text.size() - reference.size())));
        }
    }
    return text;
}

std::vector<std::string> Words(const std::string& text) {
    constexpr const char* kSeparators = " _:";
    std::vector<std::string> words;
    for (auto at = text.find_first_not_of(kSeparators); at != std::string::npos;) {
        const auto end = text.find_first_of(kSeparators, at);
        words.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(kSeparators, end);
    }
    return words;
}

bool IsPrefix(const std::string& word) {
    return word == "ecg" || word == "ekg" || word == "lead" || word == "st";
}

// "1/2": which of several measurements of the ST segment this is.
bool IsCount(const std::string& word) {
    return word.size() == 3 && word[1] == '/';
}

// "ecg1", "ekg2" and "st1" in one word: the prefix, if any, is taken off.
bool StripPrefix(std::string& word) {
    for (const std::string prefix : {"ecg", "ekg", "st"}) {
        if (word.size() > prefix.size() && word.compare(0, prefix.size(), prefix) == 0) {
            word.erase(0, prefix.size());
            return true;
        }
    }
    return false;
}

} // namespace

ECG_Lead LeadOfDescription(const std::string& description) {
    const std::string text = WithoutReference(LowerCase(std::string(Trim(description))));
    if (const ECG_Lead lead = Find(kSpecial, text); lead != ECG_LEAD_NONE) {
        return lead;
    }
    std::vector<std::string> words = Words(text);
    bool hasPrefix = false;
    while (words.size() > 1 && IsPrefix(words.front())) {
        words.erase(words.begin());
        hasPrefix = true;
    }
    while (words.size() > 1 && (IsCount(words.back()) || words.back() == "lead")) {
        words.pop_back();
    }
    if (words.size() != 1) {
        return ECG_LEAD_NONE;
    }
    hasPrefix = StripPrefix(words[0]) || hasPrefix;
    if (hasPrefix && (words[0] == "1" || words[0] == "2")) {
        return words[0] == "1" ? ECG_LEAD_I : ECG_LEAD_II;
    }
    return Find(kPlain, words[0]);
}

bool IsDerivedLead(const std::string& description) {
    std::vector<std::string> words = Words(WithoutReference(LowerCase(description)));
    while (words.size() > 1 && IsPrefix(words.front())) {
        words.erase(words.begin());
    }
    constexpr std::array<const char*, 4> kDerived = {"iii", "avr", "avl", "avf"};
    return words.size() == 1 &&
           std::find(kDerived.begin(), kDerived.end(), words[0]) != kDerived.end();
}

} // namespace lab
