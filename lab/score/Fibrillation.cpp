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

std::vector<Beat> BeatsOutside(const std::vector<Episode>& episodes,
                               const std::vector<Event>& events) {
    std::vector<Beat> beats;
    beats.reserve(events.size());
    auto episode = episodes.begin();
    for (const Event& event : events) {
        const Class type = ClassOf(event.code);
        while (episode != episodes.end() && episode->end < event.time) {
            ++episode;
        }
        if (type < kBeatClasses && (episode == episodes.end() || event.time < episode->begin)) {
            beats.push_back({event.time, type});
        }
    }
    return beats;
}

} // namespace lab::score
