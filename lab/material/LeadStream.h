#pragma once

#include "lab/material/GapBridge.h"
#include "lab/material/readers/SourceRecord.h"
#include "lab/material/Resampler.h"

#include <memory>
#include <vector>

namespace lab {

// The substitute for missing samples.
enum class Missing { kHold, kZero };

// Resamples some signals of a record to one rate and fills their missing samples.
class LeadStream {
  public:
    // `reader` must outlive the stream.
    LeadStream(SourceReader& reader, std::vector<std::size_t> signals, const Rate& rate,
               Missing missing);

    int64_t Frames() const { return m_frames; } // of the longest signal

    // Missing samples of each signal that were filled since Begin, without those past the end of
    // a shorter signal.
    const std::vector<int64_t>& Filled() const { return m_filled; }

    // The frames of signal `row` that are substitutes, including those after its end; valid after
    // the last Read.
    const std::vector<Gap>& Gaps(std::size_t row) const { return m_gaps[row]; }

    void Begin();

    // Replaces `block` by the next frames, rows of equal length without NaN. False at the end.
    // However far the rate is raised, it holds only some megabytes at a time.
    bool Read(Samples& block);

  private:
    struct Row {
        std::unique_ptr<Resampler> resampler; // null when the rate is right
        std::unique_ptr<GapBridge> bridge;    // beside it
        double held = 0.0;
        int64_t filled = 0; // samples that Fill has processed
        std::vector<double> waiting;
        int64_t taken = 0; // frames given out
    };

    std::size_t Pieces(const Samples& block) const;
    void TakePiece();
    void Take(std::size_t row, std::vector<double>& samples);
    void Finish();
    void Fill(std::size_t row, std::vector<double>& samples);
    void Resample(Row& row, const std::vector<double>& samples);
    void FinishResampling(std::size_t number);
    void FinishRow(std::size_t number);
    bool GiveOut(Samples& block);

    SourceReader& m_reader;
    std::vector<std::size_t> m_signals;
    Rate m_rate;
    Missing m_missing;
    int64_t m_frames = 0;
    std::vector<Row> m_rows;
    std::vector<int64_t> m_filled;
    std::vector<std::vector<Gap>> m_gaps;
    Samples m_read;
    std::vector<double> m_samples;
    std::size_t m_pieces = 0; // of m_read, processed one after the other
    std::size_t m_piece = 0;  // the next of them
    bool m_isOver = false;
};

// The highest of the rates if the simulator's clock can keep it; otherwise the next one above that
// it can keep, or its highest.
Rate PlayableRate(const Rate& highest);

} // namespace lab
