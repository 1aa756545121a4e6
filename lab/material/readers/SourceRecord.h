#pragma once

#include "lab/material/readers/Numbers.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A record of any format as stored in its file, before it is converted into the form that the
// library plays.
namespace lab {

// Longer records are refused: a header can announce any length, and processing it would cost time
// and memory.
constexpr int64_t kMostSamples = int64_t{1} << 33;

struct SourceSignal {
    std::string description;
    std::string unit = "mV"; // in the file; voltages are read in millivolts in any case
    bool isVoltage = true;
    Rate rate;
    int64_t samples = 0;
    int64_t cut = 0; // further samples that its header announces but its file does not hold

    // Where the file holds whole numbers: value = sample * gain + baseline, per millivolt for
    // voltages, else per unit. 0 where the file holds no whole numbers.
    double gain = 0.0;
    double baseline = 0.0;
    bool is16Bit = false; // whether all whole numbers but missing ones fit into 16 bits

    double Seconds() const { return static_cast<double>(samples) / rate.PerSecond(); }
};

struct SourceAnnotation {
    double seconds = 0.0;
    int64_t sample = 0; // in units of the record's frames
    int type = 0;       // the published code, 0 to 63
    std::string code;   // its usual symbol: "N", "V", "+" ...
    int subtype = 0;
    int channel = 0;
    int number = 0;
    std::string text;
};

struct SourceRecord {
    std::string name;
    std::string path;
    std::vector<std::string> files; // all files that the record is read from, `path` first
    Rate frameRate;                 // in which annotations count
    std::string time;               // time of its start, hh:mm:ss; may be empty
    std::string date;               // dd/mm/yyyy; may be empty
    std::vector<SourceSignal> signals;
    std::vector<std::string> warnings;
    bool isCut = false; // a file ends early; a warning says where
};

// Samples of several signals; samples that the record does not have are NaN.
using Samples = std::vector<std::vector<double>>;

// Reads the samples of a record from its beginning, a block at a time, so that its length costs no
// memory. Fails with a sentence that names the file.
class SourceReader {
  public:
    SourceReader() = default;
    virtual ~SourceReader() = default;
    SourceReader(const SourceReader&) = delete;
    SourceReader& operator=(const SourceReader&) = delete;

    const SourceRecord& Record() const { return m_record; }

    // Starts (again) at the beginning, in order to read these signals.
    virtual void Begin(const std::vector<std::size_t>& signals) = 0;

    // Replaces the contents of `block` by the next samples, one row for each signal of Begin, all
    // rows of the same span of time. False at the end.
    virtual bool Read(Samples& block) = 0;

    // The annotations within the record itself; annotation files beside it are not included.
    virtual std::vector<SourceAnnotation> Annotations() { return {}; }

  protected:
    SourceRecord m_record;
};

} // namespace lab
