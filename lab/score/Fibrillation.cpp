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

std::vector<Beat> Outside(const std::vector<Episode>& episodes, const std::vector<Beat>& beats) {
    std::vector<Beat> outside;
    outside.reserve(beats.size());
    auto episode = episodes.begin();
    for (const Beat& beat : beats) {
        while (episode != episodes.end() && episode->end < beat.time) {
            ++episode;
        }
        if (episode == episodes.end() || beat.time < episode->begin) {
            outside.push_back(beat);
        }
    }
    return outside;
}

} // namespace lab::score
