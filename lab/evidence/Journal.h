#pragma once

#include "lab/evidence/RunFolder.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace lab {

// The truth about a run: one event a line, each on disk before anything else is done. Everything
// else in the folder is made from it.
class Journal {
  public:
    static constexpr const char* kName = "journal.jsonl";

    // Opens the folder's journal, or begins one. A torn last line, which a crash leaves, is dropped
    // and with it nothing that was done. Fails when any other line is no event.
    explicit Journal(const RunFolder& folder);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    const std::vector<nlohmann::ordered_json>& Events() const { return m_events; }

    // Returns when the event is on disk; fails when it cannot be brought there, and then leaves the
    // journal as it was. When the folder is gone, it is made again with the whole journal first.
    void Append(const nlohmann::ordered_json& event);

  private:
    void Rescue();

    const RunFolder& m_folder;
    int m_file = -1;
    int64_t m_size = 0;
    std::string m_path;
    std::vector<nlohmann::ordered_json> m_events;
};

// The events of a folder's journal, without locking or changing anything. Fails when there is none.
std::vector<nlohmann::ordered_json> ReadJournal(const std::string& folder);

} // namespace lab
