#pragma once

#include "lab/score/Classes.h"
#include "lab/score/Runs.h"

#include <optional>
#include <string>
#include <vector>

namespace lab::score {

// `part` divided by `whole`; nothing when `whole` is 0: undefined is not 0.
std::optional<double> FractionOf(double part, double whole);

// Counts of beats. The sensitivity, the positive predictivity, and the share of false positives in
// all beats that are not of the class.
struct Detection {
    std::int64_t truePositives = 0;
    std::int64_t falseNegatives = 0;
    std::int64_t falsePositives = 0;
    std::int64_t trueNegatives = 0; // 0 for QRS, where it is undefined

    std::optional<double> Sensitivity() const;
    std::optional<double> Predictivity() const;
    std::optional<double> FalsePositiveRate() const;
};

// Counts of runs or episodes: the reference's, of which some were found, and the test's, of which
// some are right.
struct Matches {
    std::int64_t reference = 0;
    std::int64_t matchedReference = 0;
    std::int64_t test = 0;
    std::int64_t matchedTest = 0;

    std::optional<double> Sensitivity() const;
    std::optional<double> Predictivity() const;
};

// The total seconds of the episodes counted, and how many of them lie within the other side's
// episodes.
struct Durations {
    double reference = 0.0;
    double detected = 0.0;
    double test = 0.0;
    double matched = 0.0;

    std::optional<double> Sensitivity() const;
    std::optional<double> Predictivity() const;
};

// Pairs by their classes: rows are the reference's, columns the test's.
using Matrix = std::array<std::array<std::int64_t, kLabels>, kLabels>;

using RunMatches = std::array<Matches, kRunBins>;
constexpr std::array<const char*, kRunBins> kRunBinNames = {"couplet", "short", "long"};

// All that is counted of one record, or of all records together.
struct Figures {
    Matrix matrix{};
    RunMatches ventricularRuns;
    RunMatches supraventricularRuns;
    Matches fibrillation;
    Durations fibrillationSeconds;

    Detection Qrs() const;
    Detection Ventricular() const;
    Detection Supraventricular() const;
};

// Adds the counts of another record.
Figures& operator+=(Figures& sum, const Figures& other);

// A fraction and its name, which tells what it is a fraction of: "qrs_se", "veb_fpr",
// "s_couplet_ppv" or "vf_duration_se", for example. Nothing where it is undefined.
struct NamedFraction {
    std::string name;
    std::optional<double> value;
};
using Fractions = std::vector<NamedFraction>;

// All fractions of the figures, always the same names in the same order.
Fractions FractionsOf(const Figures& figures);

// For each fraction, the mean over the records in which it is defined.
Fractions AverageOf(const std::vector<Fractions>& records);

// The fraction of that name; null when no fraction has it.
const NamedFraction* Find(const Fractions& fractions, const std::string& name);

} // namespace lab::score
