#pragma once

#include "lab/material/Outputs.h"

#include <string>
#include <vector>

namespace worker {

// The records, one for each start, in which the emulated simulator writes the frames that it
// receives.
class OutputRecords {
  public:
    // `path` is the common beginning of the paths of their files; empty when there are none.
    explicit OutputRecords(std::string path) : m_path(std::move(path)) {}

    // Removes the records of earlier plays; only the last one is read.
    void Clear() const;

    // Reads the last start's record, which the simulator completes at the stop. Fails, status 2,
    // when nothing has been played.
    lab::Outputs Read() const;

  private:
    std::vector<std::string> Files() const;
    std::string Header() const;

    std::string m_path;
};

} // namespace worker
