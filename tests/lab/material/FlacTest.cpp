// Compressed signal files, made by the FLAC library's own encoder.
#include "Scratch.h"

#include "lab/material/readers/WfdbReader.h"

#include <gtest/gtest.h>

#ifdef RAVO_HAS_FLAC

#include <FLAC/stream_encoder.h>

#include <memory>

using namespace lab;

namespace {

struct DeleteEncoder {
    void operator()(FLAC__StreamEncoder* encoder) const { FLAC__stream_encoder_delete(encoder); }
};

FLAC__StreamEncoderWriteStatus Append(const FLAC__StreamEncoder* /*encoder*/,
                                      const FLAC__byte bytes[], size_t count, unsigned /*samples*/,
                                      unsigned /*frame*/, void* text) {
    static_cast<std::string*>(text)->append(reinterpret_cast<const char*>(bytes), count);
    return FLAC__STREAM_ENCODER_WRITE_STATUS_OK;
}

// Samples of `channels` signals, interleaved by instant.
std::string Compressed(const std::vector<FLAC__int32>& samples, unsigned channels, unsigned bits) {
    std::string stream;
    const std::unique_ptr<FLAC__StreamEncoder, DeleteEncoder> encoder(FLAC__stream_encoder_new());
    FLAC__stream_encoder_set_channels(encoder.get(), channels);
    FLAC__stream_encoder_set_bits_per_sample(encoder.get(), bits);
    FLAC__stream_encoder_set_sample_rate(encoder.get(), 250);
    FLAC__stream_encoder_set_total_samples_estimate(encoder.get(), samples.size() / channels);
    EXPECT_EQ(
        FLAC__stream_encoder_init_stream(encoder.get(), Append, nullptr, nullptr, nullptr, &stream),
        FLAC__STREAM_ENCODER_INIT_STATUS_OK);
    EXPECT_TRUE(FLAC__stream_encoder_process_interleaved(
        encoder.get(), samples.data(), static_cast<unsigned>(samples.size() / channels)));
    EXPECT_TRUE(FLAC__stream_encoder_finish(encoder.get()));
    return stream;
}

class FlacTest : public testing::Test {
  protected:
    // A record of two signals, gain 1 per mV.
    std::string Record(const std::string& format, const std::string& frames) const {
        return m_scratch.Write("r.hea", "r 2 250 " + frames + "\nr.dat " + format +
                                            " 1 16 0 0 0 0 I\nr.dat " + format +
                                            " 1 16 0 0 0 0 II\n");
    }

    Scratch m_scratch;
};

} // namespace

// The lowest number of each width is the one that stands for a missing sample.
TEST_F(FlacTest, EachWidthIsReadExactly) {
    for (const unsigned bits : {8U, 16U, 24U}) {
        const FLAC__int32 most = (1 << (bits - 1)) - 1;
        const FLAC__int32 least = -most - 1;
        m_scratch.Write("r.dat",
                        Compressed({1, -2, most, least + 1, least, 5, 0, most - 1}, 2, bits));
        const std::string path = Record(std::to_string(500 + bits), "4");
        const Samples samples = ReadAll(*OpenWfdb(path), {1, 0});
        EXPECT_EQ(samples[0], (std::vector<double>{-2.0, -most * 1.0, 5.0, most - 1.0})) << bits;
        EXPECT_EQ(Text({samples[1][0], samples[1][2], samples[1][3]}), "1 - 0 ") << bits;
        EXPECT_EQ(samples[1][1], most) << bits;
    }
}

// More than one FLAC frame and more than one block of the reader, read twice, without a length in
// the header.
TEST_F(FlacTest, LongStreamsAreReadWhole) {
    std::vector<FLAC__int32> samples;
    for (int i = 0; i < 100'000; ++i) {
        samples.push_back(i % 30'011 - 15'000);
        samples.push_back(-(i % 1'009));
    }
    m_scratch.Write("r.dat", Compressed(samples, 2, 16));
    const auto reader = OpenWfdb(Record("516", ""));
    for (int time = 0; time < 2; ++time) {
        const Samples read = ReadAll(*reader, {0, 1});
        ASSERT_EQ(read[0].size(), 100'000U);
        for (std::size_t i = 0; i < read[0].size(); ++i) {
            ASSERT_EQ(read[0][i], samples[2 * i]) << i;
            ASSERT_EQ(read[1][i], samples[2 * i + 1]) << i;
        }
    }
}

// A signal with two samples per frame: its channel holds them one after the other.
TEST_F(FlacTest, SeveralSamplesOfAFrame) {
    m_scratch.Write("r.dat", Compressed({1, 10, 2, 20, 3, 30, 4, 40}, 2, 16));
    const std::string path = Record("516x2", "2");
    const Samples samples = ReadAll(*OpenWfdb(path), {0, 1});
    EXPECT_EQ(Text(samples[0]), "1 2 3 4 ");
    EXPECT_EQ(Text(samples[1]), "10 20 30 40 ");
}

TEST_F(FlacTest, StreamsThatDoNotFitTheHeaderAreRefused) {
    const std::string stream = Compressed({1, 2, 3, 4}, 2, 16);
    const auto failed = [this](const std::string& format, const std::string& bytes) {
        m_scratch.Write("r.dat", bytes);
        const std::string path = Record(format, "2");
        return FailureOf([&] { ReadAll(*OpenWfdb(path), {0}); });
    };
    EXPECT_EQ(failed("516", stream), "");
    EXPECT_EQ(failed("524", stream).rfind("2 ", 0), 0U);                 // another width
    EXPECT_EQ(failed("516", Compressed({1}, 1, 16)).rfind("2 ", 0), 0U); // another number
    EXPECT_EQ(failed("516", stream.substr(0, 30)).rfind("2 ", 0), 0U);
    EXPECT_EQ(failed("516", stream.substr(0, stream.size() - 3)).rfind("2 ", 0), 0U);
    EXPECT_EQ(failed("516", "no stream").rfind("2 ", 0), 0U);
}

#endif
