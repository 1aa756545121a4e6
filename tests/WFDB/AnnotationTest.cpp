#include "WFDB/annotation.h"
#include "tests/support/Files.h"
#include "tests/support/PublicRecord.h"
#include "WFDB/stdafx.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>

namespace {

using Words = std::vector<unsigned>;

std::vector<uint8_t> Encode(const Words& words) {
    std::vector<uint8_t> bytes;
    for (const unsigned word : words) {
        bytes.push_back(static_cast<uint8_t>(word % 256));
        bytes.push_back(static_cast<uint8_t>(word / 256));
    }
    return bytes;
}

std::vector<uint8_t> Join(std::vector<uint8_t> bytes, const std::vector<uint8_t>& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

size_t CountOpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

// A record header whose annotation file holds the bytes given.
class Annotation : public testing::Test {
  protected:
    Annotation() : m_header(MakeHeader()) {}

    int Load(const std::vector<uint8_t>& bytes) {
        return WFDBLoadAnnotation(m_directory.Write("r.atr", bytes).c_str(), m_header.get());
    }
    int Next() { return WFDBNextAnnotation(m_header.get(), &m_annotation); }
    WFDB_HEADER* Header() { return m_header.get(); }

    // Fields of the packed structure, by value.
    uint32_t Time() const { return m_annotation.Time; }
    int Type() const { return m_annotation.Type; }
    int SubType() const { return m_annotation.SubType; }
    int Channel() const { return m_annotation.Channel; }
    int Number() const { return m_annotation.Number; }
    std::string AuxText() const { return m_annotation.AuxText; }

    Scratch m_directory;
    WFDB_ANNOTATION m_annotation = {};

  private:
    using OwnedHeader = std::unique_ptr<WFDB_HEADER, decltype(&WFDBFreeHeader)>;

    OwnedHeader MakeHeader() const {
        std::string path = m_directory.Write("r.hea", "r 1 360 1000\nr.dat 212 200 11 0\n");
        return {WFDBReadHeader(path.data()), WFDBFreeHeader};
    }

    OwnedHeader m_header;
};

} // namespace

TEST_F(Annotation, OneAnnotationThenTheEnd) {
    ASSERT_EQ(Load(Encode({0x0412, 0x0000})), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
    EXPECT_EQ(Type(), 1);
    EXPECT_EQ(SubType(), 0);
    EXPECT_EQ(Channel(), 0);
    EXPECT_EQ(Number(), 0);
    EXPECT_EQ(m_annotation.Reserved, 0);
    EXPECT_EQ(AuxText(), "");
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(Next(), 0);
}

TEST_F(Annotation, DeliversWhateverTheCallerLeftInTheStructure) {
    ASSERT_EQ(Load(Encode({0x0412, 0x0000})), 1);
    std::memset(&m_annotation, 0xA5, sizeof(m_annotation));
    ASSERT_EQ(Next(), 1);
    const WFDB_ANNOTATION expected = {18, 1, 0, 0, 0, 0, ""};
    EXPECT_EQ(std::memcmp(&m_annotation, &expected, sizeof(expected)), 0);
}

TEST_F(Annotation, SkipAddsToTheFollowingTime) {
    const std::vector<uint8_t> interval = {0x01, 0x00, 0x00, 0x00};
    ASSERT_EQ(Load(Join(Join(Encode({0x0402, 0xEC00}), interval), Encode({0x0405, 0}))), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 2U);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 65543U);
    EXPECT_EQ(Next(), 0);
}

TEST_F(Annotation, SkipIntervalIsInPdpOrderAndMayBeNegative) {
    // 0x01020304, whose own 10-bit value is ignored, then -3.
    ASSERT_EQ(Load(Join(Join(Join(Encode({0x0400, 0xEFFF}), {0x02, 0x01, 0x04, 0x03}),
                             Join(Encode({0x0400, 0xEC00}), {0xFF, 0xFF, 0xFD, 0xFF})),
                        Encode({0x0400, 0}))),
              1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 0U);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 0x01020304U);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 0x01020301U);
}

TEST_F(Annotation, TimeWrapsAt32Bits) {
    ASSERT_EQ(
        Load(Join(Join(Encode({0x0402, 0xEC00}), {0xFF, 0xFF, 0xFF, 0xFF}), Encode({0x0404, 0}))),
        1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 2U);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 5U);
}

TEST_F(Annotation, FileThatBeginsWithASkipDeliversItAsAnAnnotation) {
    ASSERT_EQ(Load(Join(Join(Encode({0xEC00}), {0x03, 0x04, 0x05, 0x08}), Encode({0}))), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 59);
    EXPECT_EQ(Time(), 0U);
    // The interval's bytes are read as the words 0x0403 and 0x0805.
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 1);
    EXPECT_EQ(Time(), 3U);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 2);
    EXPECT_EQ(Time(), 8U);
    EXPECT_EQ(Next(), 0);
}

TEST_F(Annotation, NumberHoldsForAllThatFollow) {
    ASSERT_EQ(Load(Encode({0x0401, 0x0401, 0xF007, 0x0401, 0xF3FF, 0})), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Number(), 0);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Number(), 7);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Number(), 1023);
    EXPECT_EQ(g_iAnnotationNumber, 1023);
}

TEST_F(Annotation, ChannelHoldsForAllThatFollowAndSubTypeDoesNot) {
    ASSERT_EQ(Load(Encode({0x0401, 0xF803, 0xF405, 0x0401, 0})), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Channel(), 3);
    EXPECT_EQ(SubType(), 5);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Channel(), 3);
    EXPECT_EQ(SubType(), 0);
    EXPECT_EQ(g_iAnnotationChannel, 3);
}

TEST_F(Annotation, CodeZeroWithAValueIsAnAnnotation) {
    ASSERT_EQ(Load(Encode({0x0007, 0xE803, 0})), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 0);
    EXPECT_EQ(Time(), 7U);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 58);
    EXPECT_EQ(Time(), 10U);
}

TEST_F(Annotation, AuxTextOfFiveReadsSixBytes) {
    ASSERT_EQ(Load(Join(Join(Encode({0x7012, 0xFC05}), {'(', 'A', 'F', 'I', 'B', 0}),
                        Encode({0x0405, 0}))),
              1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 28);
    EXPECT_EQ(AuxText(), "(AFIB");
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 23U);
    EXPECT_EQ(AuxText(), "");
}

TEST_F(Annotation, AuxTextOfThreeTakesThePadByteIn) {
    ASSERT_EQ(Load(Join(Join(Encode({0x7012, 0xFF03}), {'(', 'V', 'T', 'x'}), Encode({0x0405, 0}))),
              1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(AuxText(), "(VTx");
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 23U);
}

TEST_F(Annotation, LongAuxTextIsCutTo31Bytes) {
    // The longest count, 255, reads 256 bytes.
    const std::vector<uint8_t> text(256, 'a');
    ASSERT_EQ(Load(Join(Join(Encode({0x7001, 0xFCFF}), text), Encode({0x0405, 0}))), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(AuxText(), std::string(31, 'a'));
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 6U);
}

TEST_F(Annotation, TextsOfAFileLongerThanTheStreamsBufferAreWhole) {
    // Ten bytes an annotation, so that texts lie across the ends of a buffer of any usual size.
    constexpr int kCount = 30000;
    std::vector<uint8_t> bytes;
    for (int i = 0; i < kCount; ++i) {
        const std::string text = std::to_string(100000 + i);
        bytes = Join(std::move(bytes), Encode({0x0402, 0xFC06}));
        bytes.insert(bytes.end(), text.begin(), text.end());
    }
    ASSERT_EQ(Load(Join(std::move(bytes), Encode({0}))), 1);
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(Next(), 1);
        ASSERT_EQ(Time(), 2U * static_cast<uint32_t>(i + 1));
        ASSERT_EQ(AuxText(), std::to_string(100000 + i));
    }
    EXPECT_EQ(Next(), 0);
}

TEST_F(Annotation, SecondAuxTextReplacesTheFirst) {
    ASSERT_EQ(Load(Join(Join(Join(Encode({0x7001, 0xFC06}), {'f', 'i', 'r', 's', 't', '!'}),
                             Join(Encode({0xFC02}), {'o', 'k'})),
                        Encode({0}))),
              1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(AuxText(), "ok");
}

TEST_F(Annotation, EmptyAuxTextCountsAsAFailedRead) {
    ASSERT_EQ(Load(Encode({0x7001, 0xFC00, 0x0405, 0})), 1);
    EXPECT_EQ(Next(), 0);
    // The saved word stays, so the annotation is returned once more, with a new time.
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Type(), 28);
    EXPECT_EQ(Time(), 2U);
}

TEST_F(Annotation, TruncatedFilesEndTheReading) {
    const std::vector<std::vector<uint8_t>> files = {
        Encode({0x0412}),
        Join(Encode({0x0412}), {0x00}),
        Encode({0x0412, 0xEC00}),
        Join(Encode({0x0412, 0xEC00}), {1, 0, 0}),
        Join(Encode({0x0412, 0xFC05}), {'a', 'b', 'c', 'd', 'e'}),
        Encode({0x0412, 0xF007}),
    };
    for (const std::vector<uint8_t>& file : files) {
        ASSERT_EQ(Load(file), 1);
        EXPECT_EQ(Next(), 0);
        EXPECT_EQ(g_iAnnotationWord, 0x0412);
        EXPECT_EQ(Next(), 0);
    }
}

TEST_F(Annotation, LastAnnotationOfAFileWithoutEndWordIsNotDelivered) {
    ASSERT_EQ(Load(Encode({0x0412, 0x0413})), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(g_iAnnotationWord, 0x0413);
}

TEST_F(Annotation, RewindDeliversTheFirstAgainButKeepsChannelAndNumber) {
    ASSERT_EQ(Load(Encode({0x0412, 0x0401, 0xF803, 0xF007, 0})), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Channel(), 0);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Next(), 0);

    WFDBAnnotationSeekBegin(Header());
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
    EXPECT_EQ(Type(), 1);
    EXPECT_EQ(Channel(), 3);
    EXPECT_EQ(Number(), 7);
}

TEST_F(Annotation, LoadingResetsTimeChannelAndNumber) {
    ASSERT_EQ(Load(Encode({0x0412, 0xF803, 0xF007, 0x0401, 0})), 1);
    ASSERT_EQ(Next(), 1);
    ASSERT_EQ(Load(Encode({0x0402, 0})), 1);
    EXPECT_EQ(g_iAnnotationWord, 0x0402);
    EXPECT_EQ(g_iAnnotationTime, 0U);
    EXPECT_EQ(g_iAnnotationChannel, 0);
    EXPECT_EQ(g_iAnnotationNumber, 0);
}

TEST_F(Annotation, LoadingAgainClosesTheEarlierFile) {
    ASSERT_EQ(Load(Encode({0x0412, 0})), 1);
    const size_t open = CountOpenDescriptors();
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(Load(Encode({0x0402, 0})), 1);
    }
    EXPECT_EQ(CountOpenDescriptors(), open);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 2U);
}

TEST_F(Annotation, FileWithoutAWordIsNotLoaded) {
    const size_t open = CountOpenDescriptors();
    for (const std::vector<uint8_t>& file : {std::vector<uint8_t>{}, std::vector<uint8_t>{0x12}}) {
        EXPECT_EQ(Load(file), 0);
        EXPECT_EQ(GetAnnotationFile(Header()), nullptr);
    }
    EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST_F(Annotation, LoadingAFileWithoutAWordClosesTheEarlierFile) {
    ASSERT_EQ(Load(Encode({0x0412, 0})), 1);
    EXPECT_EQ(Load({}), 0);
    EXPECT_EQ(GetAnnotationFile(Header()), nullptr);
    EXPECT_NE(g_iAnnotationWord, 0);
    EXPECT_EQ(Next(), 0);
}

TEST_F(Annotation, MissingFileLeavesTheEarlierOneOpen) {
    ASSERT_EQ(Load(Encode({0x0412, 0})), 1);
    EXPECT_EQ(WFDBLoadAnnotation((m_directory / "missing.atr").c_str(), Header()), 0);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
}

TEST_F(Annotation, FileThatOnlyHoldsTheEndLoadsAndHasNoAnnotation) {
    ASSERT_EQ(Load(Encode({0})), 1);
    EXPECT_EQ(Next(), 0);
}

TEST_F(Annotation, DirectoryIsNotAnAnnotationFile) {
    EXPECT_EQ(WFDBLoadAnnotation(m_directory.Path().c_str(), Header()), 0);
    EXPECT_EQ(GetAnnotationFile(Header()), nullptr);
}

TEST_F(Annotation, HeaderWithoutAnnotationFileHasNoneWhateverAnotherHeaderReads) {
    ASSERT_EQ(Load(Encode({0x0412, 0x0401, 0})), 1);
    std::string path = m_directory / "r.hea";
    WFDB_HEADER* other = WFDBReadHeader(path.data());
    EXPECT_EQ(WFDBNextAnnotation(other, &m_annotation), 0);
    WFDBAnnotationSeekBegin(other);
    WFDBFreeHeader(other);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
}

TEST_F(Annotation, NullArgumentsAreRefused) {
    ASSERT_EQ(Load(Encode({0x0412, 0})), 1);
    EXPECT_EQ(WFDBLoadAnnotation((m_directory / "r.atr").c_str(), nullptr), 0);
    EXPECT_EQ(WFDBLoadAnnotation(nullptr, Header()), 0);
    EXPECT_EQ(WFDBNextAnnotation(nullptr, &m_annotation), 0);
    EXPECT_EQ(WFDBNextAnnotation(Header(), nullptr), 0);
    WFDBAnnotationSeekBegin(nullptr);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
}

TEST_F(Annotation, RewindOfAFileThatWasEmptiedKeepsTheSavedWord) {
    ASSERT_EQ(Load(Encode({0x0412, 0x0401, 0})), 1);
    std::filesystem::resize_file(m_directory / "r.atr", 0);
    WFDBAnnotationSeekBegin(Header());
    EXPECT_EQ(g_iAnnotationTime, 0U);
    EXPECT_NE(g_iAnnotationWord, 0);
}

TEST_F(Annotation, GarbageEnds) {
    std::vector<uint8_t> garbage(60000);
    uint32_t state = 1;
    for (uint8_t& byte : garbage) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    ASSERT_EQ(Load(garbage), 1);
    size_t count = 0;
    while (Next() == 1) {
        ASSERT_LE(Type(), 63);
        ++count;
    }
    EXPECT_LE(count, garbage.size() / 2);
}

TEST_F(Annotation, ReadsTheBeatsOfRecord100) {
    const std::string path = PublicRecord("100.atr");
    if (path.empty()) {
        GTEST_SKIP() << "The public record 100 is missing.";
    }
    ASSERT_EQ(WFDBLoadAnnotation(path.c_str(), Header()), 1);
    ASSERT_EQ(Next(), 1);
    EXPECT_EQ(Time(), 18U);
    EXPECT_EQ(Type(), 28);
    EXPECT_EQ(AuxText(), "(N");

    int normal = 0, atrial = 0, ventricular = 0, all = 1;
    while (Next() == 1) {
        ++all;
        normal += Type() == 1 ? 1 : 0;
        ventricular += Type() == 5 ? 1 : 0;
        atrial += Type() == 8 ? 1 : 0;
    }
    // The counts that PhysioNet publishes for the record.
    EXPECT_EQ(all, 2274);
    EXPECT_EQ(normal, 2239);
    EXPECT_EQ(atrial, 33);
    EXPECT_EQ(ventricular, 1);
}
