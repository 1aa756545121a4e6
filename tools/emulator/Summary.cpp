#include "tools/emulator/Summary.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

namespace emulator {
namespace {

struct AnswerTimes {
    long long median = 0;
    long long percentile999 = 0;
    long long longest = 0;
};

AnswerTimes Summarise(std::vector<std::chrono::microseconds> times) {
    if (times.empty()) {
        return {};
    }
    std::sort(times.begin(), times.end());
    const std::size_t last = times.size() - 1;
    return {times[last / 2].count(), times[last * 999 / 1000].count(), times[last].count()};
}

std::string Number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", value);
    return text.data();
}

using Line = std::pair<const char*, std::string>;

// The figures under the names that scripts use.
std::vector<Line> FiguresOf(const Journal& journal) {
    const Counters count = journal.Count();
    const AnswerTimes answers = Summarise(journal.AnswerTimes());
    const std::vector<SeenStart> starts = journal.Starts();
    const double rate = starts.empty() ? 0.0 : starts.back().rate;
    return {
        {"starts", std::to_string(count.starts)},
        {"stops", std::to_string(count.stops)},
        {"framesPerSecond", Number(rate)},
        {"playedSeconds", Number(count.playedSeconds)},
        {"frames", std::to_string(count.frames)},
        {"packets", std::to_string(count.packets)},
        {"sequenceGaps", std::to_string(count.sequenceGaps)},
        {"markers", std::to_string(count.markers)},
        {"strayHeaderBytes", std::to_string(count.strayHeaderBytes)},
        {"requests", std::to_string(count.requests)},
        {"unaskedPackets", std::to_string(count.unaskedPackets)},
        {"packetsOutsidePlay", std::to_string(count.packetsOutsidePlay)},
        {"underruns", std::to_string(count.underruns)},
        {"delayReports", std::to_string(count.delayReports)},
        {"delayMs", std::to_string(count.delayMs)},
        {"droppedFrames", std::to_string(count.droppedFrames)},
        {"bytes", std::to_string(count.bytes)},
        {"unknownBytes", std::to_string(count.unknownBytes)},
        {"answerMedianUs", std::to_string(answers.median)},
        {"answer999Us", std::to_string(answers.percentile999)},
        {"answerMaxUs", std::to_string(answers.longest)},
    };
}

} // namespace

std::string TextSummary(const Journal& journal) {
    const Counters count = journal.Count();
    const AnswerTimes answers = Summarise(journal.AnswerTimes());
    std::array<char, 1024> text{};
    std::snprintf(
        text.data(), text.size(),
        "simulator   %llu starts, %llu stops, %.1f s of play\n"
        "frames      %llu in %llu packets, %llu sequence gaps, %llu marker bytes\n"
        "underruns   %llu, reported delays %llu ms\n"
        "answers     %llu requests, median %lld us, 99.9 %% below %lld us, longest %lld us\n"
        "stray       %llu unknown bytes, %llu packets outside play, %llu not asked for\n",
        static_cast<unsigned long long>(count.starts), static_cast<unsigned long long>(count.stops),
        count.playedSeconds, static_cast<unsigned long long>(count.frames),
        static_cast<unsigned long long>(count.packets),
        static_cast<unsigned long long>(count.sequenceGaps),
        static_cast<unsigned long long>(count.markers),
        static_cast<unsigned long long>(count.underruns),
        static_cast<unsigned long long>(count.delayMs),
        static_cast<unsigned long long>(count.requests), answers.median, answers.percentile999,
        answers.longest, static_cast<unsigned long long>(count.unknownBytes),
        static_cast<unsigned long long>(count.packetsOutsidePlay),
        static_cast<unsigned long long>(count.unaskedPackets));
    return text.data();
}

std::string JsonSummary(const Journal& journal) {
    std::string json;
    for (const auto& [name, value] : FiguresOf(journal)) {
        json += json.empty() ? "{" : ", ";
        json += std::string("\"") + name + "\": " + value;
    }
    return json + "}";
}

} // namespace emulator
