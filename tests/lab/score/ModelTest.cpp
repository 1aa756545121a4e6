// Random pairs of lists: every count and every fraction of the comparison against a model that
// shares no code with it. RAVO_SCORE_PAIRS sets how many pairs are tried.

#include "Model.h"

#include "lab/score/Codes.h"
#include "lab/score/Compare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

using namespace lab::score;

namespace {

constexpr long kDefaultPairs = 20'000;

long PairsToTry() {
    const char* wanted = std::getenv("RAVO_SCORE_PAIRS");
    return wanted != nullptr ? std::strtol(wanted, nullptr, 10) : kDefaultPairs;
}

// The input of one trial, for the code and for the model.
struct Trial {
    AnnotationList reference;
    AnnotationList test;
    Rules rules;
    model::Marks referenceMarks;
    model::Marks testMarks;
    model::Rules modelRules;
    std::string text;
};

class Maker {
  public:
    explicit Maker(unsigned seed) : m_random(seed) {}

    Trial Make() {
        Trial trial;
        const int span = Pick({3, 10, 40, 400, 3000}); // few samples: a crowd; many: far apart
        const int kind = Below(4);
        const long referenceRate = Pick({250, 360, 1000, 128});
        const long testRate = Below(2) == 0 ? referenceRate : Pick({250, 360, 500, 77});
        const long ppm = Below(3) == 0 ? Below(2001) - 1000 : 0;
        const long offset = Below(3) == 0 ? Below(801) - 400 : 0; // milliseconds
        FillList(trial.reference, Rational(1, referenceRate), span, kind);
        FillList(trial.test, Rational(1, testRate), span, kind);
        if (Below(2) == 0) {
            Resemble(trial.test, trial.reference);
        }
        const long window = Pick({0, 20, 50, 150, 150, 1000});
        const long learning = Below(2) == 0 ? -1'000'000 : Below(static_cast<int>(span) * 2);
        trial.rules = {Rational(learning, 250), Rational(window, 1000), Rational(offset, 1000),
                       Rational(ppm)};
        trial.modelRules = {{learning, 250}, {window, 1000}};
        trial.referenceMarks = MarksOf(trial.reference, 0, 0);
        trial.testMarks = MarksOf(trial.test, ppm, offset);
        trial.text = Text(trial);
        return trial;
    }

  private:
    int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
    int Pick(std::initializer_list<int> choices) {
        return choices.begin()[Below(static_cast<int>(choices.size()))];
    }

    // The kinds differ in the annotations that are frequent: normal beats, ectopic ones, episodes,
    // noise.
    char Symbol(int kind) {
        static const char* const kFrequent[] = {"NNNNNNNVSF", "VVVVVVSSNQ", "[]V[]NVSV",
                                                "~~NNVVS~"};
        static const std::string kAll = "NLRBejnAaJSVErF/fQ?[]~+!|\"x";
        const std::string frequent = kFrequent[kind];
        return Below(12) == 0
                   ? kAll[static_cast<std::size_t>(Below(static_cast<int>(kAll.size())))]
                   : frequent[static_cast<std::size_t>(Below(static_cast<int>(frequent.size())))];
    }

    Annotation Any(int span, int kind) {
        const char symbol = Symbol(kind);
        const auto subtype = static_cast<std::int16_t>(symbol == '~' ? Pick({-1, -1, 0, 1}) : 0);
        return {Below(span), CodeOfSymbol({&symbol, 1}), subtype};
    }

    void FillList(AnnotationList& list, const Rational& unit, int span, int kind) {
        list.unit = unit;
        const int count = Pick({0, 1, 2, 5, 12, 30});
        for (int i = 0; i < count; ++i) {
            list.annotations.push_back(Any(span, kind));
        }
        PutInOrder(list);
    }

    // Most of the reference's annotations, some moved or with another code.
    void Resemble(AnnotationList& test, const AnnotationList& reference) {
        test.annotations.clear();
        test.unit = reference.unit;
        for (Annotation annotation : reference.annotations) {
            annotation.time = annotation.time + (Below(3) == 0 ? Below(61) - 30 : 0);
            annotation.code = Below(6) == 0 ? std::uint8_t{5} : annotation.code;
            if (Below(8) != 0) {
                test.annotations.push_back(annotation);
            }
        }
        PutInOrder(test);
    }

    // Time = sample / rate x (1 + ppm / 10^6) + offset / 1000, over one denominator.
    static model::Marks MarksOf(const AnnotationList& list, long ppm, long offset) {
        const model::Wide rate = list.unit.Denominator();
        model::Marks marks;
        for (const Annotation& annotation : list.annotations) {
            const model::Wide numerator =
                annotation.time * (1'000'000 + ppm) * 1000 + offset * 1'000'000 * rate;
            const std::string symbol = SymbolOfCode(annotation.code);
            marks.push_back({{numerator, rate * 1'000'000'000},
                             symbol.empty() ? ' ' : symbol[0],
                             annotation.subtype});
        }
        return marks;
    }

    static std::string Text(const model::Marks& marks) {
        std::string text;
        for (const model::Mark& mark : marks) {
            text += std::to_string(static_cast<double>(mark.time.numerator) /
                                   static_cast<double>(mark.time.denominator)) +
                    " " + mark.symbol + (mark.subtype == -1 ? "-1, " : ", ");
        }
        return text;
    }
    static std::string Text(const Trial& trial) {
        return "reference: " + Text(trial.referenceMarks) + "\ntest: " + Text(trial.testMarks) +
               "\nwindow " + std::to_string(trial.rules.window.ToDouble()) + ", learning " +
               std::to_string(trial.rules.learning.ToDouble());
    }

    std::mt19937 m_random;
};

long long CountOf(const model::Counts& counts, const std::string& name) {
    const auto found = counts.counts.find(name);
    return found == counts.counts.end() ? 0 : found->second;
}

double SecondsOf(const model::Counts& counts, const std::string& name) {
    const auto found = counts.seconds.find(name);
    return found == counts.seconds.end() ? 0.0 : found->second;
}

void ExpectMatrix(const Figures& figures, const model::Counts& expected) {
    const std::string rows = "NSVFQOX";
    const std::string columns = "nsvfqox";
    for (std::size_t row = 0; row < rows.size(); ++row) {
        for (std::size_t column = 0; column < columns.size(); ++column) {
            const std::string cell = {rows[row], columns[column]};
            ASSERT_EQ(figures.matrix[row][column], CountOf(expected, cell)) << cell;
        }
    }
}

void ExpectMatches(const Matches& matches, const model::Counts& expected,
                   const std::string& prefix) {
    ASSERT_EQ(matches.reference, CountOf(expected, prefix + "reference")) << prefix;
    ASSERT_EQ(matches.matchedReference, CountOf(expected, prefix + "matchedReference")) << prefix;
    ASSERT_EQ(matches.test, CountOf(expected, prefix + "test")) << prefix;
    ASSERT_EQ(matches.matchedTest, CountOf(expected, prefix + "matchedTest")) << prefix;
}

void ExpectFigures(const Figures& figures, const model::Counts& expected) {
    ASSERT_NO_FATAL_FAILURE(ExpectMatrix(figures, expected));
    const char* const bins[] = {"couplet_", "short_", "long_"};
    for (std::size_t i = 0; i < kRunBins; ++i) {
        const std::string bin = bins[i];
        ASSERT_NO_FATAL_FAILURE(ExpectMatches(figures.ventricularRuns[i], expected, "v_" + bin));
        ASSERT_NO_FATAL_FAILURE(
            ExpectMatches(figures.supraventricularRuns[i], expected, "s_" + bin));
    }
    ASSERT_NO_FATAL_FAILURE(ExpectMatches(figures.fibrillation, expected, "vf_"));
    const Durations& seconds = figures.fibrillationSeconds;
    ASSERT_NEAR(seconds.reference, SecondsOf(expected, "reference"), 1e-9);
    ASSERT_NEAR(seconds.detected, SecondsOf(expected, "matchedReference"), 1e-9);
    ASSERT_NEAR(seconds.test, SecondsOf(expected, "test"), 1e-9);
    ASSERT_NEAR(seconds.matched, SecondsOf(expected, "matchedTest"), 1e-9);
}

// The sums whose fractions are the figures, from the model's cells.
void ExpectDetections(const Figures& figures, const model::Counts& expected) {
    const auto sum = [&](const std::string& rows, const std::string& columns) {
        long long all = 0;
        for (const char row : rows) {
            for (const char column : columns) {
                all += CountOf(expected, {row, column});
            }
        }
        return all;
    };
    ASSERT_EQ(figures.Qrs().truePositives, sum("NSVFQ", "nsvfq"));
    ASSERT_EQ(figures.Qrs().falseNegatives, sum("NSVFQ", "ox"));
    ASSERT_EQ(figures.Qrs().falsePositives, sum("O", "nsvfq"));
    ASSERT_EQ(figures.Ventricular().truePositives, sum("V", "v"));
    ASSERT_EQ(figures.Ventricular().falseNegatives, sum("V", "nsfqox"));
    ASSERT_EQ(figures.Ventricular().falsePositives, sum("NSO", "v"));
    ASSERT_EQ(figures.Ventricular().trueNegatives, sum("NSFQO", "nsfq"));
    ASSERT_EQ(figures.Supraventricular().truePositives, sum("S", "s"));
    ASSERT_EQ(figures.Supraventricular().falseNegatives, sum("S", "nvfqox"));
    ASSERT_EQ(figures.Supraventricular().falsePositives, sum("NVFO", "s"));
    ASSERT_EQ(figures.Supraventricular().trueNegatives, sum("NVFQO", "nvfq"));
}

} // namespace

TEST(ModelTest, AgreesOnEveryFigureOfRandomLists) {
    const long pairs = PairsToTry();
    for (long i = 0; i < pairs; ++i) {
        const Trial trial = Maker(static_cast<unsigned>(i)).Make();
        const Comparison comparison = Compare(trial.reference, trial.test, trial.rules);
        const model::Counts expected =
            model::Compare(trial.referenceMarks, trial.testMarks, trial.modelRules);
        SCOPED_TRACE("pair " + std::to_string(i) + "\n" + trial.text);
        ASSERT_NO_FATAL_FAILURE(ExpectFigures(comparison.figures, expected));
        ASSERT_NO_FATAL_FAILURE(ExpectDetections(comparison.figures, expected));
    }
}

// Without learning period and fibrillation, which use the reference's times, and without shutdowns,
// which count as misses but not as false positives, both sides are treated alike.
TEST(ModelTest, SwappingSidesTransposesTheMatrix) {
    for (unsigned seed = 0; seed < 2000; ++seed) {
        Trial trial = Maker(seed).Make();
        const auto isBeat = [](const Annotation& annotation) {
            return ClassOf(annotation.code) == kMissing;
        };
        for (AnnotationList* list : {&trial.reference, &trial.test}) {
            auto& all = list->annotations;
            all.erase(std::remove_if(all.begin(), all.end(), isBeat), all.end());
        }
        trial.rules = {-1'000'000, trial.rules.window, 0, 0};
        const Figures forth = Compare(trial.reference, trial.test, trial.rules).figures;
        const Figures back = Compare(trial.test, trial.reference, trial.rules).figures;
        for (std::size_t row = 0; row < kLabels; ++row) {
            for (std::size_t column = 0; column < kLabels; ++column) {
                ASSERT_EQ(forth.matrix[row][column], back.matrix[column][row]) << seed;
            }
        }
        ASSERT_EQ(forth.Qrs().Sensitivity(), back.Qrs().Predictivity()) << seed;
        ASSERT_EQ(forth.Qrs().Predictivity(), back.Qrs().Sensitivity()) << seed;
    }
}
