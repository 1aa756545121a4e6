#include "lab/score/Figures.h"

#include <algorithm>

namespace lab::score {
namespace {

using ClassSet = std::vector<Class>;

std::int64_t Sum(const Matrix& matrix, const ClassSet& rows, const ClassSet& columns) {
    std::int64_t sum = 0;
    for (const Class row : rows) {
        for (const Class column : columns) {
            sum += matrix[row][column];
        }
    }
    return sum;
}

void Add(Matches& sum, const Matches& other) {
    sum.reference += other.reference;
    sum.matchedReference += other.matchedReference;
    sum.test += other.test;
    sum.matchedTest += other.matchedTest;
}

void Add(RunMatches& sum, const RunMatches& other) {
    for (std::size_t i = 0; i < kRunBins; ++i) {
        Add(sum[i], other[i]);
    }
}

void Add(Durations& sum, const Durations& other) {
    sum.reference += other.reference;
    sum.detected += other.detected;
    sum.test += other.test;
    sum.matched += other.matched;
}

template <class Counts>
void Name(Fractions& fractions, const std::string& name, const Counts& counts) {
    fractions.push_back({name + "_se", counts.Sensitivity()});
    fractions.push_back({name + "_ppv", counts.Predictivity()});
}

void NameRuns(Fractions& fractions, const std::string& prefix, const RunMatches& runs) {
    for (std::size_t i = 0; i < kRunBins; ++i) {
        Name(fractions, prefix + kRunBinNames[i], runs[i]);
    }
}

} // namespace

std::optional<double> FractionOf(double part, double whole) {
    return whole == 0.0 ? std::nullopt : std::optional(part / whole);
}

// ---- Fractions of counts ------------------------------------------------------------------------

std::optional<double> Detection::Sensitivity() const {
    return FractionOf(static_cast<double>(truePositives),
                      static_cast<double>(truePositives + falseNegatives));
}

std::optional<double> Detection::Predictivity() const {
    return FractionOf(static_cast<double>(truePositives),
                      static_cast<double>(truePositives + falsePositives));
}

std::optional<double> Detection::FalsePositiveRate() const {
    return FractionOf(static_cast<double>(falsePositives),
                      static_cast<double>(falsePositives + trueNegatives));
}

std::optional<double> Matches::Sensitivity() const {
    return FractionOf(static_cast<double>(matchedReference), static_cast<double>(reference));
}

std::optional<double> Matches::Predictivity() const {
    return FractionOf(static_cast<double>(matchedTest), static_cast<double>(test));
}

std::optional<double> Durations::Sensitivity() const {
    return FractionOf(detected, reference);
}

std::optional<double> Durations::Predictivity() const {
    return FractionOf(matched, test);
}

// ---- Counts of the matrix -----------------------------------------------------------------------

Detection Figures::Qrs() const {
    const ClassSet beats = {kNormal, kSupraventricular, kVentricular, kFusion, kUnclassifiable};
    return {Sum(matrix, beats, beats), Sum(matrix, beats, {kMissing, kShutDown}),
            Sum(matrix, {kMissing}, beats), 0};
}

// A test "v" where the reference has a fusion beat or one not to be classified counts on neither
// side.
Detection Figures::Ventricular() const {
    const ClassSet others = {kNormal, kSupraventricular, kFusion, kUnclassifiable};
    return {matrix[kVentricular][kVentricular],
            Sum(matrix, {kVentricular},
                {kNormal, kSupraventricular, kFusion, kUnclassifiable, kMissing, kShutDown}),
            Sum(matrix, {kNormal, kSupraventricular, kMissing}, {kVentricular}),
            Sum(matrix, others, others) + Sum(matrix, {kMissing}, others)};
}

// Of a test "s" only the reference's beats not to be classified count on neither side.
Detection Figures::Supraventricular() const {
    const ClassSet others = {kNormal, kVentricular, kFusion, kUnclassifiable};
    return {matrix[kSupraventricular][kSupraventricular],
            Sum(matrix, {kSupraventricular},
                {kNormal, kVentricular, kFusion, kUnclassifiable, kMissing, kShutDown}),
            Sum(matrix, {kNormal, kVentricular, kFusion, kMissing}, {kSupraventricular}),
            Sum(matrix, others, others) + Sum(matrix, {kMissing}, others)};
}

// ---- Records together ---------------------------------------------------------------------------

Figures& operator+=(Figures& sum, const Figures& other) {
    for (std::size_t row = 0; row < kLabels; ++row) {
        for (std::size_t column = 0; column < kLabels; ++column) {
            sum.matrix[row][column] += other.matrix[row][column];
        }
    }
    Add(sum.ventricularRuns, other.ventricularRuns);
    Add(sum.supraventricularRuns, other.supraventricularRuns);
    Add(sum.fibrillation, other.fibrillation);
    Add(sum.fibrillationSeconds, other.fibrillationSeconds);
    return sum;
}

Fractions FractionsOf(const Figures& figures) {
    const Detection ventricular = figures.Ventricular();
    const Detection supraventricular = figures.Supraventricular();
    Fractions fractions;
    Name(fractions, "qrs", figures.Qrs());
    Name(fractions, "veb", ventricular);
    fractions.push_back({"veb_fpr", ventricular.FalsePositiveRate()});
    Name(fractions, "sveb", supraventricular);
    fractions.push_back({"sveb_fpr", supraventricular.FalsePositiveRate()});
    NameRuns(fractions, "v_", figures.ventricularRuns);
    NameRuns(fractions, "s_", figures.supraventricularRuns);
    Name(fractions, "vf", figures.fibrillation);
    Name(fractions, "vf_duration", figures.fibrillationSeconds);
    return fractions;
}

Fractions AverageOf(const std::vector<Fractions>& records) {
    Fractions average = FractionsOf({});
    for (std::size_t i = 0; i < average.size(); ++i) {
        double sum = 0.0;
        int count = 0;
        for (const Fractions& record : records) {
            sum += record[i].value.value_or(0.0);
            count += record[i].value ? 1 : 0;
        }
        average[i].value = FractionOf(sum, count);
    }
    return average;
}

const NamedFraction* Find(const Fractions& fractions, const std::string& name) {
    const auto found =
        std::find_if(fractions.begin(), fractions.end(),
                     [&](const NamedFraction& fraction) { return fraction.name == name; });
    return found == fractions.end() ? nullptr : &*found;
}

} // namespace lab::score
