#pragma once

#include <cstddef>
#include <cstdint>

namespace lab {

// The samples of one WFDB signal file, decoded, in the order in which the file holds them.
class SampleFile {
  public:
    virtual ~SampleFile() = default;
    SampleFile(const SampleFile&) = delete;
    SampleFile& operator=(const SampleFile&) = delete;

    // All samples of all signals.
    int64_t Count() const { return m_count; }

    // Whether the file ends after `samples` samples, apart from padding of the last group of bytes.
    bool EndsAfter(int64_t samples) const {
        const int64_t groups = (samples + m_samplesPerGroup - 1) / m_samplesPerGroup;
        return !m_endsWithinSample && (m_count == samples || m_count == groups * m_samplesPerGroup);
    }

    // The number that marks a missing sample.
    int32_t Missing() const { return m_missing; }

    // Returns to the first sample.
    virtual void Rewind() = 0;

    // The next up to `count` samples and, in `read`, their number, which is lower at the end only.
    // The caller may change them; they are valid until the next call.
    virtual int32_t* Next(std::size_t count, std::size_t& read) = 0;

  protected:
    SampleFile() = default;
    int64_t m_count = 0;
    int64_t m_samplesPerGroup = 1;
    bool m_endsWithinSample = false; // bytes left over at the end that do not make a whole sample
    int32_t m_missing = 0;
};

} // namespace lab
