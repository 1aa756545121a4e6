#include "WFDB/Utils.h"

#include "tests/support/Files.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

std::string Trimmed(void (*trim)(char*), const std::string& text) {
    std::vector<char> buffer(text.c_str(), text.c_str() + text.size() + 1);
    trim(buffer.data());
    return buffer.data();
}

std::string Appended(const std::string& path, const std::string& more) {
    std::vector<char> buffer(path.size() + more.size() + 2);
    std::strcpy(buffer.data(), path.c_str());
    PathAppend(buffer.data(), const_cast<char*>(more.c_str()));
    return buffer.data();
}

std::string PathNameOf(const std::string& path) {
    char out[256];
    std::memset(out, '?', sizeof(out));
    GetPathName(path.c_str(), out);
    return out;
}

// All 16 bytes of the result, so that the cleared tail is seen.
std::string RecordNameBytes(const std::string& path) {
    char out[16];
    std::memset(out, '?', sizeof(out));
    GetRecordName(path.c_str(), out);
    return std::string(out, sizeof(out));
}

std::string Padded(const std::string& name) {
    return name + std::string(16 - name.size(), '\0');
}

} // namespace

TEST(StringTrim, CutsWhiteSpaceWhereAsked) {
    EXPECT_EQ(Trimmed(StringTrimRight, " \tV 1 \t\r\n"), " \tV 1");
    EXPECT_EQ(Trimmed(StringTrimLeft, " \t\v\fV 1 \n"), "V 1 \n");
    EXPECT_EQ(Trimmed(StringTrim, " \tV 1 \t\r\n"), "V 1");
}

TEST(StringTrim, LeavesNothingOfBlankAndNothingToDoOnClean) {
    for (const auto trim : {StringTrimRight, StringTrimLeft, StringTrim}) {
        EXPECT_EQ(Trimmed(trim, ""), "");
        EXPECT_EQ(Trimmed(trim, " \t \n"), "");
        EXPECT_EQ(Trimmed(trim, "MLII"), "MLII");
        trim(nullptr);
    }
}

TEST(StringTrim, TakesCharactersAboveAsciiAsUnsigned) {
    EXPECT_EQ(Trimmed(StringTrim, "\xB5V\xFF"), "\xB5V\xFF");
}

TEST(PathAppend, AddsOneSeparator) {
    EXPECT_EQ(Appended("/data", "100"), "/data/100");
    EXPECT_EQ(Appended("/data/", "100"), "/data/100");
    EXPECT_EQ(Appended("data\\", "100"), "data\\100");
    EXPECT_EQ(Appended("", "100"), "100");
    EXPECT_EQ(Appended("/data", ""), "/data/");
}

TEST(PathAppend, IgnoresNull) {
    char path[] = "/data";
    PathAppend(path, nullptr);
    EXPECT_STREQ(path, "/data");
    PathAppend(nullptr, path);
}

TEST(PathFindFileName, ReturnsWhatFollowsTheLastSlash) {
    EXPECT_STREQ(PathFindFileName("/data/100.hea"), "100.hea");
    EXPECT_STREQ(PathFindFileName("/100.hea"), "100.hea");
    EXPECT_STREQ(PathFindFileName("./a"), "a");
}

TEST(PathFindFileName, DoesNotLookAtTheLastCharacter) {
    EXPECT_STREQ(PathFindFileName("/data/mit/"), "mit/");
    EXPECT_STREQ(PathFindFileName("//"), "/");
}

TEST(PathFindFileName, LosesTheFirstCharacterWithoutADirectory) {
    EXPECT_STREQ(PathFindFileName("100.hea"), "00.hea");
    EXPECT_STREQ(PathFindFileName("abc"), "bc");
    EXPECT_STREQ(PathFindFileName("ab"), "b");
}

TEST(PathFindFileName, KeepsOneCharacterAndRefusesNone) {
    EXPECT_STREQ(PathFindFileName("a"), "a");
    EXPECT_STREQ(PathFindFileName("/"), "/");
    EXPECT_EQ(PathFindFileName(""), nullptr);
    EXPECT_EQ(PathFindFileName(nullptr), nullptr);
}

TEST(PathFindExtension, ReturnsTheLastDotOfTheWholePath) {
    EXPECT_STREQ(PathFindExtension("/data/100.a.hea"), ".hea");
    EXPECT_STREQ(PathFindExtension("/data.mit/100"), ".mit/100");
    EXPECT_STREQ(PathFindExtension("100."), ".");
    EXPECT_EQ(PathFindExtension("100"), nullptr);
    EXPECT_EQ(PathFindExtension(""), nullptr);
    EXPECT_EQ(PathFindExtension(nullptr), nullptr);
}

TEST(DeleteFile, RemovesAFileAndIgnoresAMissingOne) {
    const Scratch directory;
    std::string path = directory.Write("100.dat", std::string("x"));
    DeleteFile(path.data());
    EXPECT_FALSE(std::filesystem::exists(path));
    DeleteFile(path.data());
    DeleteFile(nullptr);
}

TEST(GetPathName, CutsTheLastSlashAndWhatFollows) {
    EXPECT_EQ(PathNameOf("/data/mit/100.hea"), "/data/mit");
    EXPECT_EQ(PathNameOf("/data/mit/"), "/data/mit");
    EXPECT_EQ(PathNameOf("/100.hea"), "");
    EXPECT_EQ(PathNameOf("100.hea"), "./");
    EXPECT_EQ(PathNameOf(""), "./");
}

TEST(GetPathName, SeesTheFirst255Characters) {
    const std::string visible = "/" + std::string(254, 'd');
    EXPECT_EQ(PathNameOf("/data" + std::string(249, 'd') + "//100"),
              "/data" + std::string(249, 'd'));
    EXPECT_EQ(PathNameOf(visible + "/100"), "");
    char out[256];
    GetPathName(nullptr, out);
    EXPECT_STREQ(out, "./");
    GetPathName("/data/100", nullptr);
}

TEST(GetRecordName, IsTheFileNameWithoutExtension) {
    EXPECT_EQ(RecordNameBytes("/data/100.hea"), Padded("100"));
    EXPECT_EQ(RecordNameBytes("/data/a.b.hea"), Padded("a.b"));
    EXPECT_EQ(RecordNameBytes("/data/v102s"), Padded("v102s"));
    EXPECT_EQ(RecordNameBytes("/data/.hea"), Padded(""));
}

TEST(GetRecordName, HoldsFifteenCharacters) {
    EXPECT_EQ(RecordNameBytes("/data/0123456789abcdefgh.hea"), Padded("0123456789abcde"));
    EXPECT_EQ(RecordNameBytes("/data/0123456789.bcdefgh.hea"), Padded("0123456789"));
}

TEST(GetRecordName, OfNothingIsEmpty) {
    EXPECT_EQ(RecordNameBytes(""), Padded(""));
    char out[16];
    GetRecordName(nullptr, out);
    EXPECT_STREQ(out, "");
    GetRecordName("/data/100.hea", nullptr);
}
