#include "lab/material/GapBridge.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace lab {

void GapBridge::Bridge(const std::vector<double>& samples, std::vector<double>& out) {
    for (const double sample : samples) {
        if (std::isnan(sample)) {
            Miss(out);
        } else {
            Reach(sample, out);
        }
        ++m_taken;
    }
}

void GapBridge::Finish(std::vector<double>& out) {
    out.insert(out.end(), static_cast<std::size_t>(m_waiting), m_last);
    m_waiting = 0;
    if (m_isInGap) {
        m_gaps.back().end = Resampled(m_taken);
    }
}

void GapBridge::Substitute(std::vector<double>& samples, std::size_t begin) {
    for (std::size_t i = begin; i < samples.size(); ++i, ++m_done) {
        while (m_gap < m_gaps.size() && m_done >= m_gaps[m_gap].end) {
            ++m_gap;
        }
        if (m_gap < m_gaps.size() && m_done >= m_gaps[m_gap].begin) {
            samples[i] = m_substitutes[m_gap];
        }
    }
}

// The first resampled sample that lies nearer to `sample` than to its predecessor.
int64_t GapBridge::Resampled(int64_t sample) const {
    const double first = std::ceil((static_cast<double>(sample) - 0.5) * m_ratio - 1e-6);
    return std::max<int64_t>(static_cast<int64_t>(first), 0);
}

void GapBridge::Miss(std::vector<double>& out) {
    if (!m_isInGap) {
        m_isInGap = true;
        m_gaps.push_back({Resampled(m_taken), std::numeric_limits<int64_t>::max()});
        m_substitutes.push_back(m_holds ? m_last : 0.0);
    }
    ++m_missing;
    if (m_waiting < kLongest) {
        ++m_waiting;
    } else {
        out.push_back(m_last);
        m_hasBegun = true;
    }
}

void GapBridge::Reach(double sample, std::vector<double>& out) {
    if (m_isInGap) {
        m_isInGap = false;
        m_gaps.back().end = Resampled(m_taken);
        const double from = m_hasBegun ? m_last : sample;
        const double step = (sample - from) / static_cast<double>(m_waiting + 1);
        for (int64_t i = 1; i <= m_waiting; ++i) {
            out.push_back(from + step * static_cast<double>(i));
        }
        m_waiting = 0;
    }
    out.push_back(sample);
    m_last = sample;
    m_hasBegun = true;
}

} // namespace lab
