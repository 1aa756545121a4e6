#include "lab/material/MemoryReader.h"

#include <algorithm>
#include <utility>

namespace lab {
namespace {

constexpr std::size_t kSamplesPerBlock = 8192;

class MemoryReader : public SourceReader {
  public:
    MemoryReader(SourceRecord record, Samples samples) : m_samples(std::move(samples)) {
        m_record = std::move(record);
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_wanted = signals;
        m_done = 0;
    }

    bool Read(Samples& block) override {
        block.resize(m_wanted.size());
        bool isOver = true;
        for (std::size_t i = 0; i < m_wanted.size(); ++i) {
            const std::vector<double>& row = m_samples[m_wanted[i]];
            const std::size_t begin = std::min(m_done, row.size());
            const std::size_t end = std::min(m_done + kSamplesPerBlock, row.size());
            block[i].assign(row.begin() + static_cast<std::ptrdiff_t>(begin),
                            row.begin() + static_cast<std::ptrdiff_t>(end));
            isOver = isOver && begin == end;
        }
        m_done += kSamplesPerBlock;
        return !isOver;
    }

  private:
    Samples m_samples;
    std::vector<std::size_t> m_wanted;
    std::size_t m_done = 0;
};

} // namespace

std::unique_ptr<SourceReader> ReadFromMemory(SourceRecord record, Samples samples) {
    return std::make_unique<MemoryReader>(std::move(record), std::move(samples));
}

} // namespace lab
