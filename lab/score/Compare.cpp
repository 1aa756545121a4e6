#include "lab/score/Compare.h"

#include "lab/score/Episodes.h"
#include "lab/score/Shutdown.h"

#include <utility>

namespace lab::score {
namespace {

// A beat without a counterpart is in the row or column of the other side's silence.
Class Silence(const Shutdowns& shutdowns, Int128 time) {
    return shutdowns.Contain(time) ? kShutDown : kMissing;
}

std::vector<Judgement> Judge(const Comparison& comparison) {
    const Shutdowns ofReference(comparison.timeline.reference);
    const Shutdowns ofTest(comparison.timeline.test);
    const Int128 learning = comparison.timeline.learning;
    std::vector<Judgement> judgements;
    const auto pairs = PairBeats(comparison.reference, comparison.test, comparison.timeline.window);
    judgements.reserve(pairs.size());
    for (const Pair& pair : pairs) {
        const Beat* reference =
            pair.reference == kNone ? nullptr : &comparison.reference[pair.reference];
        const Beat* test = pair.test == kNone ? nullptr : &comparison.test[pair.test];
        judgements.push_back(
            {pair, reference != nullptr ? reference->type : Silence(ofReference, test->time),
             test != nullptr ? test->type : Silence(ofTest, reference->time),
             (reference != nullptr ? reference : test)->time > learning});
    }
    return judgements;
}

Matrix Count(const std::vector<Judgement>& judgements) {
    Matrix matrix{};
    for (const Judgement& judgement : judgements) {
        matrix[judgement.row][judgement.column] += judgement.isCounted ? 1 : 0;
    }
    return matrix;
}

RunMatches MatchRuns(const Comparison& comparison, const std::vector<Episode>& fibrillation,
                     Class type) {
    const Timeline& timeline = comparison.timeline;
    const auto referenceRuns = RunsOf(comparison.reference, type, fibrillation);
    const auto testRuns = RunsOf(comparison.test, type, fibrillation);
    const RunList reference = {comparison.reference, referenceRuns};
    const RunList test = {comparison.test, testRuns};
    const auto ofReference = CountRuns(reference, test, timeline.window, timeline.learning);
    const auto ofTest = CountRuns(test, reference, timeline.window, timeline.learning);
    RunMatches matches;
    for (std::size_t i = 0; i < kRunBins; ++i) {
        matches[i] = {ofReference.all[i], ofReference.matched[i], ofTest.all[i], ofTest.matched[i]};
    }
    return matches;
}

void MatchEpisodes(Figures& figures, const Timeline& timeline,
                   const std::vector<Episode>& reference, const std::vector<Episode>& test) {
    const auto ofReference = CountEpisodes(reference, test, timeline.learning);
    const auto ofTest = CountEpisodes(test, reference, timeline.learning);
    figures.fibrillation = {ofReference.all, ofReference.matched, ofTest.all, ofTest.matched};
    figures.fibrillationSeconds = {
        timeline.Seconds(ofReference.duration), timeline.Seconds(ofReference.shared),
        timeline.Seconds(ofTest.duration), timeline.Seconds(ofTest.shared)};
}

} // namespace

Comparison Compare(AnnotationList reference, AnnotationList test, const Rules& rules) {
    Comparison comparison;
    comparison.timeline = MakeTimeline(std::move(reference), std::move(test), rules);
    const Timeline& timeline = comparison.timeline;
    const auto fibrillation = EpisodesOf(timeline.reference);
    comparison.reference = BeatsOutside(fibrillation, timeline.reference);
    comparison.test = BeatsOutside(fibrillation, timeline.test);
    comparison.judgements = Judge(comparison);
    Figures& figures = comparison.figures;
    figures.matrix = Count(comparison.judgements);
    figures.ventricularRuns = MatchRuns(comparison, fibrillation, kVentricular);
    figures.supraventricularRuns = MatchRuns(comparison, fibrillation, kSupraventricular);
    MatchEpisodes(figures, timeline, fibrillation, EpisodesOf(timeline.test));
    return comparison;
}

} // namespace lab::score
