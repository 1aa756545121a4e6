#include "engine/Utils.h"

#include "tests/support/Files.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace {

using Strings = std::vector<std::string>;

// An image of exactly the text's size, and a line buffer of exactly the given one.
class LineReader {
  public:
    explicit LineReader(const std::string& text, size_t size = 256)
        : m_image(text.begin(), text.end()), m_line(size), m_cursor(m_image.data()) {}

    bool Next() {
        std::fill(m_line.begin(), m_line.end(), '?');
        return ReadTextLine(m_cursor, End(), m_line.data(), m_line.size());
    }

    std::string Line() const {
        return std::string(m_line.begin(), std::find(m_line.begin(), m_line.end(), '\0'));
    }

    size_t Position() const { return static_cast<size_t>(m_cursor - m_image.data()); }
    unsigned char* End() { return m_image.data() + m_image.size(); }
    const std::vector<char>& Buffer() const { return m_line; }

  private:
    std::vector<unsigned char> m_image;
    std::vector<char> m_line;
    unsigned char* m_cursor;
};

Strings AllLines(const std::string& text, size_t size = 256) {
    LineReader reader(text, size);
    Strings lines;
    while (reader.Next()) {
        lines.push_back(reader.Line());
    }
    EXPECT_EQ(reader.Position(), text.size());
    return lines;
}

Strings Fields(std::string line, const std::string& delimiters) {
    Strings fields;
    StringToken(line.data(), delimiters, fields);
    return fields;
}

} // namespace

// ---- Files -------------------------------------------------------------------------------------

TEST(FileBinaryData, ComesBackAsWritten) {
    const Scratch directory;
    const std::string path = directory / "data";
    std::vector<unsigned char> data(100000);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<unsigned char>(i * 7 + i / 256);
    }
    ASSERT_TRUE(WriteFileBinaryData(path.c_str(), data.data(), 100000));
    unsigned char* buffer = nullptr;
    unsigned int size = 0;
    ASSERT_TRUE(ReadFileBinaryData(path.c_str(), &buffer, &size));
    const std::unique_ptr<unsigned char[]> owner(buffer);
    ASSERT_EQ(size, data.size());
    EXPECT_EQ(std::memcmp(buffer, data.data(), size), 0);
}

TEST(FileBinaryData, ReplacesAnEarlierFile) {
    const Scratch directory;
    const std::string path = directory.Write("data", std::string(1000, 'x'));
    unsigned char text[] = {'a', 'b'};
    ASSERT_TRUE(WriteFileBinaryData(path.c_str(), text, 2));
    EXPECT_EQ(ReadFile(path), "ab");
    ASSERT_TRUE(WriteFileBinaryData(path.c_str(), nullptr, 0));
    EXPECT_EQ(ReadFile(path), "");
}

TEST(FileBinaryData, OfAnEmptyFileIsEmpty) {
    const Scratch directory;
    unsigned char* buffer = nullptr;
    unsigned int size = 1;
    ASSERT_TRUE(ReadFileBinaryData(directory.Write("empty", "").c_str(), &buffer, &size));
    const std::unique_ptr<unsigned char[]> owner(buffer);
    EXPECT_NE(buffer, nullptr);
    EXPECT_EQ(size, 0U);
}

TEST(FileBinaryData, FailsForWhatIsNoFile) {
    const Scratch directory;
    const std::string path = directory.Write("data", "x");
    unsigned char* buffer = nullptr;
    unsigned int size = 7;
    EXPECT_FALSE(ReadFileBinaryData((directory / "missing").c_str(), &buffer, &size));
    EXPECT_FALSE(ReadFileBinaryData(directory.Path().c_str(), &buffer, &size));
    EXPECT_FALSE(ReadFileBinaryData("/dev/zero", &buffer, &size));
    EXPECT_FALSE(ReadFileBinaryData("", &buffer, &size));
    EXPECT_FALSE(ReadFileBinaryData(nullptr, &buffer, &size));
    EXPECT_FALSE(ReadFileBinaryData(path.c_str(), nullptr, &size));
    EXPECT_FALSE(ReadFileBinaryData(path.c_str(), &buffer, nullptr));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(size, 7U);
}

TEST(FileBinaryData, FailsForAFileBeyondTheSizeType) {
    const Scratch directory;
    const std::string path = directory.Write("large", "x");
    std::error_code error;
    std::filesystem::resize_file(path, uint64_t{1} << 32, error);
    if (error) {
        GTEST_SKIP() << "no file of 4 GiB can be made here";
    }
    unsigned char* buffer = nullptr;
    unsigned int size = 0;
    EXPECT_FALSE(ReadFileBinaryData(path.c_str(), &buffer, &size));
}

TEST(FileBinaryData, FailsWhereItCannotBeWritten) {
    const Scratch directory;
    unsigned char text[] = {'a', 'b'};
    EXPECT_FALSE(WriteFileBinaryData(directory.Path().c_str(), text, 2));
    EXPECT_FALSE(WriteFileBinaryData((directory / "missing/data").c_str(), text, 2));
    EXPECT_FALSE(WriteFileBinaryData("/dev/full", text, 2));
    EXPECT_FALSE(WriteFileBinaryData(nullptr, text, 2));
    EXPECT_FALSE(WriteFileBinaryData((directory / "data").c_str(), nullptr, 2));
}

// ---- Numbers -----------------------------------------------------------------------------------

TEST(ToInt16, TurnsAWordIntoItsSignedValue) {
    EXPECT_EQ(ToInt16(0), 0);
    EXPECT_EQ(ToInt16(0x7FFF), 32767);
    EXPECT_EQ(ToInt16(0x8000), -32768);
    EXPECT_EQ(ToInt16(0xFFFF), -1);
    EXPECT_EQ(ToInt16(-5), -5);
}

TEST(ToDouble, TakesEveryFormOfANumber) {
    EXPECT_EQ(ToDouble("100"), 100.0);
    EXPECT_EQ(ToDouble("-0.5"), -0.5);
    EXPECT_EQ(ToDouble("+12"), 12.0);
    EXPECT_EQ(ToDouble(".25"), 0.25);
    EXPECT_EQ(ToDouble("5."), 5.0);
    EXPECT_EQ(ToDouble("1e3"), 1000.0);
    EXPECT_EQ(ToDouble("1E-3x"), 0.001);
    EXPECT_EQ(ToDouble(" \t\v7"), 7.0);
    EXPECT_EQ(ToDouble("0x10"), 16.0);
    EXPECT_EQ(ToDouble("-0X1p3"), -8.0);
    EXPECT_EQ(ToDouble("1e999"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(ToDouble("-inf"), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(ToDouble("nan")));
    EXPECT_EQ(ToDouble("1,5"), 1.0);
    EXPECT_EQ(ToDouble("0.1000000000000000055511151231257827021181583404541015625"), 0.1);
}

TEST(ToDouble, TakesTextForZero) {
    for (const char* text : {"", " ", "x", "-", "+-1", "V1", "0x", "e5", "."}) {
        EXPECT_EQ(ToDouble(text), 0.0) << text;
    }
}

// ---- Fields ------------------------------------------------------------------------------------

TEST(StringToken, SplitsAtRunsOfDelimiters) {
    EXPECT_EQ(Fields("10 20\t \t30", " \t"), (Strings{"10", "20", "30"}));
    EXPECT_EQ(Fields("  10 ", " "), (Strings{"10"}));
    EXPECT_EQ(Fields("1 2", ","), (Strings{"1 2"}));
    EXPECT_EQ(Fields("1 2", ""), (Strings{"1 2"}));
    EXPECT_EQ(Fields("", " "), Strings());
    EXPECT_EQ(Fields(" \t ", " \t"), Strings());
}

TEST(StringToken, LeavesTheLineAndAppendsToTheList) {
    char line[] = "a,b";
    Strings fields = {"first"};
    StringToken(line, ",", fields);
    EXPECT_EQ(fields, (Strings{"first", "a", "b"}));
    EXPECT_STREQ(line, "a,b");
    StringToken(nullptr, ",", fields);
    EXPECT_EQ(fields.size(), 3U);
}

// ---- Lines -------------------------------------------------------------------------------------

TEST(ReadTextLine, ReadsOnePerLineEnd) {
    EXPECT_EQ(AllLines("a\r\n\r\nb"), (Strings{"a", "b"}));
    EXPECT_EQ(AllLines("a\nb\n"), (Strings{"a", "b"}));
    EXPECT_EQ(AllLines("a\rb\r"), (Strings{"a", "b"}));
    EXPECT_EQ(AllLines("\n\n\na b\n\n\n"), (Strings{"a b"}));
    EXPECT_EQ(AllLines(""), Strings());
    EXPECT_EQ(AllLines("\r\n\r\n"), Strings());
    EXPECT_EQ(AllLines("  \t"), Strings());
}

TEST(ReadTextLine, LeavesTheCursorOnTheLineEnd) {
    LineReader reader("ab\r\ncd");
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Position(), 2U);
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Position(), 6U);
    EXPECT_FALSE(reader.Next());
    EXPECT_FALSE(reader.Next());
    EXPECT_EQ(reader.Position(), 6U);
}

TEST(ReadTextLine, KeepsTheBlanksOfSkippedLines) {
    EXPECT_EQ(AllLines("  \nx"), (Strings{"  x"}));
    EXPECT_EQ(AllLines(" \n\t\r\n\v\nx \ny"), (Strings{" \t\vx", "y"}));
}

TEST(ReadTextLine, TrimsTheRightEndOnly) {
    EXPECT_EQ(AllLines(" a b \t\n"), (Strings{" a b"}));
}

TEST(ReadTextLine, CutsALongLine) {
    EXPECT_EQ(AllLines("abcdef\ngh", 4), (Strings{"abc", "gh"}));
    EXPECT_EQ(AllLines(std::string(255, 'a') + "\n" + std::string(256, 'b')),
              (Strings{std::string(255, 'a'), std::string(255, 'b')}));
    // What lies beyond the buffer still determines that the line is not blank.
    EXPECT_EQ(AllLines("   x\ny", 4), (Strings{"", "y"}));
    EXPECT_EQ(AllLines("  \n  x\ny", 4), (Strings{"", "y"}));
    EXPECT_EQ(AllLines("x\ny", 1), (Strings{"", ""}));
}

TEST(ReadTextLine, FillsTheWholeBufferWithZerosBeforeItReads) {
    LineReader line("ab\n", 8);
    EXPECT_TRUE(line.Next());
    EXPECT_EQ(line.Buffer(), (std::vector<char>{'a', 'b', 0, 0, 0, 0, 0, 0}));
    LineReader reader("", 8);
    EXPECT_FALSE(reader.Next());
    EXPECT_EQ(reader.Buffer(), std::vector<char>(8));
    LineReader blank(" \n ", 8);
    EXPECT_FALSE(blank.Next());
    EXPECT_EQ(blank.Buffer(), (std::vector<char>{' ', ' ', 0, 0, 0, 0, 0, 0}));
}

TEST(ReadTextLine, ReadsNothingIntoNothing) {
    unsigned char image[] = {'a'};
    unsigned char* cursor = image;
    char line = '?';
    EXPECT_FALSE(ReadTextLine(cursor, image + 1, &line, 0));
    EXPECT_EQ(cursor, image);
    EXPECT_EQ(line, '?');
}

TEST(ReadTextLine, TakesBinaryBytesAsCharacters) {
    EXPECT_EQ(AllLines("\xFF\x80\n\xA0"), (Strings{"\xFF\x80", "\xA0"}));
    // A zero byte is not white space, and ends the text of its line.
    LineReader reader(std::string("\0\nb", 3));
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Line(), "");
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Line(), "b");
}

TEST(ReadTextLine, PassesAMillionBlankLines) {
    LineReader reader(std::string(1000000, '\n') + std::string(1000000, ' ') + "\nx");
    ASSERT_TRUE(reader.Next());
    EXPECT_EQ(reader.Line(), "");
    EXPECT_FALSE(reader.Next());
}

// ---- Names -------------------------------------------------------------------------------------

TEST(GetMaterialName, IsTheFileNameUpToItsLastPoint) {
    EXPECT_EQ(GetMaterialName("/data/1001.txt"), "1001");
    EXPECT_EQ(GetMaterialName("/data.d/a.b.ecg"), "a.b");
    EXPECT_EQ(GetMaterialName("/data.d/record"), "record");
    EXPECT_EQ(GetMaterialName("/data/.txt"), "");
    EXPECT_EQ(GetMaterialName("record.txt"), "ecord");
    EXPECT_EQ(GetMaterialName(""), "");
}
