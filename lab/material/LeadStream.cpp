#include "lab/material/LeadStream.h"

#include <algorithm>
#include <cmath>

namespace lab {
namespace {

// The clock's timer has 16 bits at 6 MHz; the highest rate is one that the line carries with ease.
constexpr int64_t kLowestRate = 92;
constexpr int64_t kHighestRate = 20000;

} // namespace

Rate PlayableRate(const Rate& highest) {
    constexpr int64_t kMostTimes = 100;
    if (highest.PerSecond() > static_cast<double>(kHighestRate)) {
        return MakeRate(kHighestRate, 1);
    }
    // A whole multiple preserves the record's own sample instants.
    for (int64_t times = 1; times <= kMostTimes; ++times) {
        const Rate rate = highest * times;
        const double most = times == 1 ? kHighestRate : std::max(1000.0, 4.0 * highest.PerSecond());
        if (rate.IsWhole() && rate.numerator >= kLowestRate && rate.PerSecond() <= most) {
            return rate;
        }
    }
    const auto above = static_cast<int64_t>(std::ceil(highest.PerSecond()));
    return MakeRate(std::clamp(above, kLowestRate, kHighestRate), 1);
}

LeadStream::LeadStream(SourceReader& reader, std::vector<std::size_t> signals, const Rate& rate,
                       Missing missing)
    : m_reader(reader), m_signals(std::move(signals)), m_rate(rate), m_missing(missing) {
    for (const std::size_t number : m_signals) {
        const SourceSignal& signal = reader.Record().signals[number];
        m_frames = std::max(m_frames, ResampledCount(signal.samples, signal.rate, rate));
    }
}

void LeadStream::Begin() {
    m_rows.clear();
    m_rows.resize(m_signals.size());
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const Rate& rate = m_reader.Record().signals[m_signals[i]].rate;
        if (rate != m_rate) {
            m_rows[i].resampler = std::make_unique<Resampler>(rate, m_rate);
            m_rows[i].bridge = std::make_unique<GapBridge>(m_rate.PerSecond() / rate.PerSecond(),
                                                           m_missing == Missing::kHold);
        }
    }
    m_filled.assign(m_rows.size(), 0);
    m_gaps.assign(m_rows.size(), {});
    m_isOver = false;
    m_pieces = m_piece = 0;
    m_reader.Begin(m_signals);
}

bool LeadStream::Read(Samples& block) {
    block.resize(m_rows.size());
    while (!GiveOut(block)) {
        if (m_isOver) {
            return false;
        }
        if (m_piece < m_pieces) {
            TakePiece();
        } else if (m_reader.Read(m_read)) {
            m_pieces = Pieces(m_read);
            m_piece = 0;
        } else {
            Finish();
        }
    }
    return true;
}

// As many pieces as are needed so that none grows much beyond a block of frames.
std::size_t LeadStream::Pieces(const Samples& block) const {
    constexpr double kFramesPerPiece = 65536.0;
    std::size_t longest = 0;
    double frames = 0.0;
    for (std::size_t i = 0; i < block.size(); ++i) {
        const Rate& rate = m_reader.Record().signals[m_signals[i]].rate;
        const auto samples = static_cast<double>(block[i].size());
        frames = std::max(frames, samples * m_rate.PerSecond() / rate.PerSecond());
        longest = std::max(longest, block[i].size());
    }
    const double wanted = std::ceil(frames / kFramesPerPiece);
    return static_cast<std::size_t>(
        std::clamp(wanted, 1.0, std::max(1.0, static_cast<double>(longest))));
}

void LeadStream::TakePiece() {
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        const std::vector<double>& row = m_read[i];
        const auto at = [&](std::size_t piece) {
            return row.begin() + static_cast<std::ptrdiff_t>(row.size() * piece / m_pieces);
        };
        m_samples.assign(at(m_piece), at(m_piece + 1));
        Take(i, m_samples);
    }
    ++m_piece;
}

void LeadStream::Take(std::size_t number, std::vector<double>& samples) {
    Row& row = m_rows[number];
    if (row.resampler != nullptr) {
        std::vector<double> bridged;
        row.bridge->Bridge(samples, bridged);
        Resample(row, bridged);
    } else {
        Fill(number, samples);
        row.waiting.insert(row.waiting.end(), samples.begin(), samples.end());
    }
}

void LeadStream::Resample(Row& row, const std::vector<double>& samples) {
    const std::size_t before = row.waiting.size();
    row.resampler->Push(samples, row.waiting);
    row.bridge->Substitute(row.waiting, before);
}

void LeadStream::Fill(std::size_t row, std::vector<double>& samples) {
    double held = m_rows[row].held;
    std::vector<Gap>& gaps = m_gaps[row];
    for (double& sample : samples) {
        const int64_t number = m_rows[row].filled++;
        if (sample != sample) {
            sample = held;
            ++m_filled[row];
            if (gaps.empty() || gaps.back().end != number) {
                gaps.push_back({number, number});
            }
            gaps.back().end = number + 1;
        } else if (m_missing == Missing::kHold) {
            held = sample;
        }
    }
    m_rows[row].held = held;
}

void LeadStream::FinishResampling(std::size_t number) {
    Row& row = m_rows[number];
    std::vector<double> rest;
    row.bridge->Finish(rest);
    Resample(row, rest);
    const std::size_t before = row.waiting.size();
    row.resampler->Finish(row.waiting);
    row.bridge->Substitute(row.waiting, std::min(before, row.waiting.size()));
    row.held = row.bridge->Substitute();
    m_filled[number] = row.bridge->Missing();
    m_gaps[number] = row.bridge->Gaps();
}

// A signal that ends before the others continues with missing samples.
void LeadStream::FinishRow(std::size_t number) {
    Row& row = m_rows[number];
    if (row.resampler != nullptr) {
        FinishResampling(number);
    }
    const auto left = static_cast<std::size_t>(std::max<int64_t>(m_frames - row.taken, 0));
    if (row.waiting.size() < left) {
        const auto there = static_cast<int64_t>(row.waiting.size());
        m_gaps[number].push_back({row.taken + there, m_frames});
    }
    row.waiting.resize(left, row.held);
}

void LeadStream::Finish() {
    m_isOver = true;
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        FinishRow(i);
    }
}

bool LeadStream::GiveOut(Samples& block) {
    std::size_t frames = SIZE_MAX;
    for (const Row& row : m_rows) {
        frames = std::min(frames, row.waiting.size());
    }
    for (std::size_t i = 0; i < m_rows.size(); ++i) {
        Row& row = m_rows[i];
        const auto left = static_cast<std::size_t>(std::max<int64_t>(m_frames - row.taken, 0));
        frames = std::min(frames, left);
    }
    for (std::size_t i = 0; i < m_rows.size() && frames > 0; ++i) {
        Row& row = m_rows[i];
        const auto end = row.waiting.begin() + static_cast<std::ptrdiff_t>(frames);
        block[i].assign(row.waiting.begin(), end);
        row.waiting.erase(row.waiting.begin(), end);
        row.taken += static_cast<int64_t>(frames);
    }
    return frames > 0;
}

} // namespace lab
