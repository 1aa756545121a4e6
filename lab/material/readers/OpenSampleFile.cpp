#include "lab/material/readers/OpenSampleFile.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"
#include "lab/material/readers/FlacFile.h"
#include "lab/material/readers/WfdbFormats.h"

#include <algorithm>
#include <vector>

namespace lab {
namespace {

class PackedFile : public SampleFile {
  public:
    PackedFile(const std::string& path, const WfdbFormat& format, int64_t offset,
               const std::string& cure)
        : m_file(path, cure), m_format(format), m_offset(offset), m_position(offset) {
        const int64_t bytes = std::max<int64_t>(m_file.Size() - offset, 0);
        m_count = format.SamplesIn(bytes);
        m_samplesPerGroup = format.samplesPerGroup;
        m_endsWithinSample = bytes > 0 && format.SamplesIn(bytes - 1) == m_count;
        m_missing = format.missing;
    }

    void Rewind() override {
        m_position = m_offset;
        m_begin = m_end = 0;
    }

    int32_t* Next(std::size_t count, std::size_t& read) override {
        if (m_end - m_begin < count) {
            Decode(count);
        }
        read = std::min(count, m_end - m_begin);
        int32_t* samples = m_samples.data() + m_begin;
        m_begin += read;
        return samples;
    }

  private:
    // Keeps the surplus of the last group and decodes up to `count` samples after it.
    void Decode(std::size_t count) {
        const std::size_t kept = m_end - m_begin;
        std::copy(m_samples.begin() + static_cast<std::ptrdiff_t>(m_begin),
                  m_samples.begin() + static_cast<std::ptrdiff_t>(m_end), m_samples.begin());
        const auto perGroup = static_cast<std::size_t>(m_format.samplesPerGroup);
        const auto groupBytes = static_cast<std::size_t>(m_format.bytesPerGroup);
        const std::size_t groups = (count - kept + perGroup - 1) / perGroup;
        m_bytes.resize(groups * groupBytes + kSpareBytes);
        m_samples.resize(std::max(m_samples.size(), kept + groups * perGroup));
        const std::size_t bytes = m_file.ReadAt(m_position, m_bytes.data(), groups * groupBytes);
        m_position += static_cast<int64_t>(bytes);
        // An incomplete group is decoded with zeros for the missing bytes.
        std::fill(m_bytes.begin() + static_cast<std::ptrdiff_t>(bytes), m_bytes.end(),
                  static_cast<unsigned char>(0));
        m_format.decode(m_bytes.data(), (bytes + groupBytes - 1) / groupBytes,
                        m_samples.data() + kept);
        m_begin = 0;
        m_end = kept + static_cast<std::size_t>(m_format.SamplesIn(static_cast<int64_t>(bytes)));
    }

    ByteFile m_file;
    const WfdbFormat& m_format;
    int64_t m_offset;
    int64_t m_position;
    std::vector<unsigned char> m_bytes;
    std::vector<int32_t> m_samples;
    std::size_t m_begin = 0; // of the samples not yet taken
    std::size_t m_end = 0;
};

} // namespace

bool IsCompressedFormat(int format) {
    return format == 508 || format == 516 || format == 524;
}

std::unique_ptr<SampleFile> OpenSampleFile(const std::string& path, int format, int64_t offset,
                                           std::size_t channels, const std::string& where,
                                           std::size_t signal) {
    const std::string cure =
        "The header " + Printable(where) + " names it; it must lie in the same folder.";
    if (const WfdbFormat* packed = FindWfdbFormat(format)) {
        return std::make_unique<PackedFile>(path, *packed, offset, cure);
    }
    if (IsCompressedFormat(format) && CanReadFlac()) {
        RequireFile(path, cure);
        return OpenFlacFile(path, format, channels);
    }
    Fail(kMaterial, where,
         Format("signal %zu is stored in format %d, which is not readable.", signal, format),
         IsCompressedFormat(format)
             ? "This build lacks the FLAC library; convert the record into format 16."
             : "Formats 8, 16, 24, 32, 61, 80, 160, 212, 310, 311, 508, 516 and 524 are: convert\n"
               "      the record into one of them.");
}

} // namespace lab
