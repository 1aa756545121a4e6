#pragma once

#include "lab/material/Record.h"

#include <optional>
#include <string>
#include <vector>

namespace lab::score {

// A section of one signal.
struct Trace {
    std::string name;
    std::vector<double> seconds; // of the record
    std::vector<double> millivolts;
};

// The first two signals of a record.
class StripSamples {
  public:
    // Loads the record. When it cannot be loaded, there are no traces, and `Remark` says why.
    explicit StripSamples(const std::string& header);

    const std::string& Remark() const { return m_remark; }
    std::vector<Trace> Read(double from, double to) const;

  private:
    void Load(const std::string& header);

    std::optional<Record> m_record;
    double m_rate = 0.0; // samples per second, including the fraction that the library drops
    std::string m_remark;
};

} // namespace lab::score
