#include "lab/material/readers/FlacFile.h"

#ifdef RAVO_HAS_FLAC

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"

#include <FLAC/stream_decoder.h>

#include <algorithm>
#include <vector>

namespace lab {
namespace {

struct DeleteDecoder {
    void operator()(FLAC__StreamDecoder* decoder) const { FLAC__stream_decoder_delete(decoder); }
};

class FlacFile : public SampleFile {
  public:
    FlacFile(const std::string& path, int format, std::size_t channels)
        : m_file(path), m_channels(channels), m_bits(static_cast<unsigned>(format - 500)) {
        m_missing = -(int32_t{1} << (m_bits - 1));
        Start();
        if (FLAC__stream_decoder_process_until_end_of_metadata(m_decoder.get()) == 0 ||
            !m_hasInformation) {
            FailDamaged();
        }
        m_count = static_cast<int64_t>(m_total * m_channels);
    }

    void Rewind() override { Start(); }

    int32_t* Next(std::size_t count, std::size_t& read) override {
        m_pending.erase(m_pending.begin(),
                        m_pending.begin() + static_cast<std::ptrdiff_t>(m_taken));
        m_taken = 0;
        while (m_pending.size() < count && Decode()) {
        }
        if (m_pending.size() < count && m_decoded < m_count) {
            FailDamaged();
        }
        read = std::min(count, m_pending.size());
        m_taken = read;
        return m_pending.data();
    }

  private:
    void Start() {
        m_position = 0;
        m_taken = 0;
        m_decoded = 0;
        m_pending.clear();
        m_hasFailed = false;
        m_decoder.reset(FLAC__stream_decoder_new());
        if (m_decoder == nullptr ||
            FLAC__stream_decoder_init_stream(m_decoder.get(), Supply, nullptr, nullptr, nullptr,
                                             nullptr, Take, Describe, Complain,
                                             this) != FLAC__STREAM_DECODER_INIT_STATUS_OK) {
            FailDamaged();
        }
    }

    // False at the end of the stream.
    bool Decode() {
        const bool isDone = FLAC__stream_decoder_process_single(m_decoder.get()) == 0;
        if (isDone || m_hasFailed) {
            FailDamaged();
        }
        return FLAC__stream_decoder_get_state(m_decoder.get()) !=
               FLAC__STREAM_DECODER_END_OF_STREAM;
    }

    [[noreturn]] void FailDamaged() const {
        Fail(kMaterial, m_file.Path(),
             Format("is not a FLAC stream of %zu channels of %u bits.", m_channels, m_bits),
             "Is the file complete? Its header says what it should hold.");
    }

    static FLAC__StreamDecoderReadStatus Supply(const FLAC__StreamDecoder* /*decoder*/,
                                                FLAC__byte buffer[], size_t* bytes, void* self) {
        auto* file = static_cast<FlacFile*>(self);
        *bytes = file->m_file.ReadAt(file->m_position, buffer, *bytes);
        file->m_position += static_cast<int64_t>(*bytes);
        return *bytes == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM
                           : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
    }

    static FLAC__StreamDecoderWriteStatus Take(const FLAC__StreamDecoder* /*decoder*/,
                                               const FLAC__Frame* frame,
                                               const FLAC__int32* const buffer[], void* self) {
        auto* file = static_cast<FlacFile*>(self);
        if (frame->header.channels != file->m_channels ||
            frame->header.bits_per_sample != file->m_bits) {
            file->m_hasFailed = true;
            return FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
        }
        file->m_decoded += static_cast<int64_t>(frame->header.blocksize * file->m_channels);
        for (std::size_t i = 0; i < frame->header.blocksize; ++i) {
            for (std::size_t channel = 0; channel < file->m_channels; ++channel) {
                file->m_pending.push_back(buffer[channel][i]);
            }
        }
        return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
    }

    static void Describe(const FLAC__StreamDecoder* /*decoder*/,
                         const FLAC__StreamMetadata* metadata, void* self) {
        auto* file = static_cast<FlacFile*>(self);
        const auto& information = metadata->data.stream_info;
        file->m_hasInformation = metadata->type == FLAC__METADATA_TYPE_STREAMINFO &&
                                 information.channels == file->m_channels &&
                                 information.bits_per_sample == file->m_bits;
        file->m_total = information.total_samples;
    }

    static void Complain(const FLAC__StreamDecoder* /*decoder*/,
                         FLAC__StreamDecoderErrorStatus /*status*/, void* self) {
        static_cast<FlacFile*>(self)->m_hasFailed = true;
    }

    ByteFile m_file;
    std::size_t m_channels;
    unsigned m_bits;
    std::unique_ptr<FLAC__StreamDecoder, DeleteDecoder> m_decoder;
    int64_t m_position = 0;
    uint64_t m_total = 0;
    bool m_hasInformation = false;
    bool m_hasFailed = false;
    std::vector<int32_t> m_pending;
    std::size_t m_taken = 0;
    int64_t m_decoded = 0; // samples since the last start
};

} // namespace

bool CanReadFlac() {
    return true;
}

std::unique_ptr<SampleFile> OpenFlacFile(const std::string& path, int format,
                                         std::size_t channels) {
    return std::make_unique<FlacFile>(path, format, channels);
}

} // namespace lab

#else

namespace lab {

bool CanReadFlac() {
    return false;
}

std::unique_ptr<SampleFile> OpenFlacFile(const std::string& /*path*/, int /*format*/,
                                         std::size_t /*channels*/) {
    return nullptr;
}

} // namespace lab

#endif
