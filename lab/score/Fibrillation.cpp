#include "lab/score/Fibrillation.h"

#include "lab/score/Codes.h"

namespace lab::score {

std::vector<Episode> EpisodesOf(const std::vector<Event>& events) {
    std::vector<Episode> episodes;
    bool isOpen = false;
    for (const Event& event : events) {
        if (event.code == kFibrillationBegin && !isOpen) {
            episodes.push_back({event.time, events.back().time});
            isOpen = true;
        } else if (event.code == kFibrillationEnd && isOpen) {
            episodes.back().end = event.time;
            isOpen = false;
        }
    }
    return episodes;
}

std::vector<std::uint32_t> BeatsOutside(const std::vector<Episode>& episodes,
                                        const std::vector<Event>& events) {
    std::vector<std::uint32_t> beats;
    beats.reserve(events.size());
    auto episode = episodes.begin();
    for (std::uint32_t i = 0; i < events.size(); ++i) {
        const Event& event = events[i];
        while (episode != episodes.end() && episode->end < event.time) {
            ++episode;
        }
        if (ClassOf(event.code) < kBeatClasses &&
            (episode == episodes.end() || event.time < episode->begin)) {
            beats.push_back(i);
        }
    }
    return beats;
}

} // namespace lab::score
