#include "lab/score/Compare.h"

#include "lab/score/Episodes.h"
#include "lab/score/Shutdown.h"

#include <utility>

namespace lab::score {
namespace {

// The row or column of a beat without a counterpart: missing, or shut down.
Class Silence(const Shutdowns& shutdowns, Int128 time) {
    return shutdowns.Contain(time) ? kShutDown : kMissing;
}

std::vector<Judgement> Judge(const Comparison& comparison) {
    const Shutdowns ofReference(comparison.timeline.reference);
    const Shutdowns ofTest(comparison.timeline.test);
    const Int128 learning = comparison.timeline.learning;
    const Beats reference = comparison.ReferenceBeats();
    const Beats test = comparison.TestBeats();
    std::vector<Judgement> judgements;
    const auto pairs = PairBeats(reference, test, comparison.timeline.window);
    judgements.reserve(pairs.size());
    for (const Pair& pair : pairs) {
        const bool hasReference = pair.reference != kNone;
        const bool hasTest = pair.test != kNone;
        const Int128 time = hasReference ? reference.Time(pair.reference) : test.Time(pair.test);
        judgements.push_back(
            {pair, hasReference ? reference.Type(pair.reference) : Silence(ofReference, time),
             hasTest ? test.Type(pair.test) : Silence(ofTest, time), time > learning});
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
    const Beats referenceBeats = comparison.ReferenceBeats();
    const Beats testBeats = comparison.TestBeats();
    const auto referenceRuns = RunsOf(referenceBeats, type, fibrillation);
    const auto testRuns = RunsOf(testBeats, type, fibrillation);
    const RunList reference = {referenceBeats, referenceRuns};
    const RunList test = {testBeats, testRuns};
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
