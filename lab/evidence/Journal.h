#pragma once

#include "lab/evidence/RunFolder.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace lab {

// The record of a run: one event per line, each on disk before the run goes on. Every other file of
// the folder is made from it.
class Journal {
  public:
    static constexpr const char* kName = "journal.jsonl";

    // Opens the folder's journal, or begins one. A torn last line, as a crash leaves it, is
    // dropped; nothing that was done is lost with it. Fails when any other line is not an event.
    explicit Journal(const RunFolder& folder);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    const std::vector<nlohmann::ordered_json>& Events() const { return m_events; }

    // Returns when the event is on disk. Fails when it cannot be written, and then leaves the
    // journal as it was. When the journal or its folder was removed, it is first written again.
    void Append(const nlohmann::ordered_json& event);

  private:
    void Rescue();
    bool FolderStays() const;
    std::string Text() const;

    const RunFolder& m_folder;
    int m_file = -1;
    int64_t m_size = 0;
    std::string m_path;
    std::vector<nlohmann::ordered_json> m_events;
};

// The events of a folder's journal, without locking or changing anything. Fails when there is none.
std::vector<nlohmann::ordered_json> ReadJournal(const std::string& folder);

} // namespace lab
