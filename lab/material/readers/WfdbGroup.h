#pragma once

#include "lab/material/readers/SampleFile.h"
#include "lab/material/readers/SourceRecord.h"
#include "lab/material/readers/WfdbHeader.h"

#include <memory>
#include <string>
#include <vector>

namespace lab {

// The signals in one file of a WFDB record that start together; skewed ones lie some frames later
// in the file than the others.
class WfdbGroup {
  public:
    // The group that begins with `signal` of the header, which must outlive it. Opens the file.
    WfdbGroup(const WfdbHeader& header, std::size_t signal);

    const std::string& Path() const { return m_path; }
    int64_t SamplesPerFrame() const { return m_perFrame; }
    int64_t Frames() const { return m_file->Count() / m_perFrame; } // of the file
    bool EndsWithinFrame() const { return !m_file->EndsAfter(Frames() * m_perFrame); }
    bool Holds(std::size_t signal) const;

    // Returns to the beginning, in order to read those of these signals that belong to the group.
    void Begin(const std::vector<std::size_t>& signals);

    // Fills the rows of the group's signals with the next `frames` frames; past the file's end
    // samples are missing.
    void Read(int64_t frames, Samples& block);

  private:
    // A wanted signal: its row in the block and where its samples lie among those of a frame.
    struct Row {
        std::size_t row;
        std::size_t first;
        std::size_t step;
        std::size_t perFrame;
        double gain;
        double baseline;
        std::vector<double> table; // values of all numbers, or empty
    };

    void RequireUniform() const;
    void SkipSkew();
    int32_t* Decode(std::size_t frames, std::size_t& samples);
    void Accumulate(int32_t* samples, std::size_t count);
    void AccumulateSignal(std::size_t number, int32_t* samples, std::size_t count);
    void Deliver(const Row& row, const int32_t* samples, std::size_t frames, std::size_t there,
                 std::vector<double>& out) const;

    const WfdbHeader& m_header;
    std::string m_path;
    int m_format;
    int64_t m_skew;
    std::vector<std::size_t> m_signals; // signals of the whole file, in its order
    int64_t m_perFrame = 0;
    std::unique_ptr<SampleFile> m_file;
    std::vector<Row> m_rows;
    std::vector<int32_t> m_sums; // sums of differences, one for each of m_signals
};

} // namespace lab
