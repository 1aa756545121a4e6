#pragma once

#include "lab/score/Compare.h"
#include "lab/score/CsvAnnotations.h"

#include <string>

// Lists and rules as tests write them.

// "1.0 N, 1.5 V": seconds and symbols; "~-1" is a noise annotation of subtype -1.
inline lab::score::AnnotationList ListOf(const std::string& text) {
    std::string csv = "seconds,code,subtype\n";
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(", ", at), text.size());
        std::string line = text.substr(at, end - at);
        line.replace(line.find(' '), 1, ",");
        const auto minus = line.find("~-1");
        csv += (minus == std::string::npos ? line + "," : line.substr(0, minus) + "~,-1") + "\n";
        at = end + 2;
    }
    return lab::score::ParseCsv(csv, "list").list;
}

// Without a learning period that would include the tests' beats.
inline lab::score::Rules RulesFor(const std::string& learning = "-1000000") {
    lab::score::Rules rules;
    rules.learning = lab::score::Rational(*lab::score::ParseDecimal(learning));
    return rules;
}

inline lab::score::Comparison CompareLists(const std::string& reference, const std::string& test,
                                           const lab::score::Rules& rules = RulesFor()) {
    return Compare(ListOf(reference), ListOf(test), rules);
}

// The cells of the matrix that are not 0, in the order of rows: "Nn 2, Vo 1".
inline std::string CellsOf(const lab::score::Comparison& comparison) {
    using namespace lab::score;
    std::string text;
    for (std::size_t row = 0; row < kLabels; ++row) {
        for (std::size_t column = 0; column < kLabels; ++column) {
            if (const auto count = comparison.figures.matrix[row][column]; count != 0) {
                text += std::string(text.empty() ? "" : ", ") + kReferenceLetters[row] +
                        kTestLetters[column] + " " + std::to_string(count);
            }
        }
    }
    return text;
}

// "reference matchedReference test matchedTest"
inline std::string Text(const lab::score::Matches& matches) {
    return std::to_string(matches.reference) + " " + std::to_string(matches.matchedReference) +
           " " + std::to_string(matches.test) + " " + std::to_string(matches.matchedTest);
}
