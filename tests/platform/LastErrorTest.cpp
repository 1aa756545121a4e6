#include "platform/LastError.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace {

std::string TextIn(std::size_t size) {
    std::string text(size + 1, '#');
    RAVOGetLastError(&text[0], size);
    EXPECT_EQ(text[size], '#') << "written past the end";
    return text.c_str();
}

TEST(LastError, IsNoneBeforeAFailure) {
    std::thread([] {
        EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_NONE);
        EXPECT_EQ(TextIn(10), "");
    }).join();
}

TEST(LastError, IsTheLastFailuresCodeAndText) {
    SetLastFailure(RAVO_ERROR_FORMAT, "%s: line %d", "100.hea", 3);
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_FORMAT);
    EXPECT_EQ(RAVOGetLastError(nullptr, 100), RAVO_ERROR_FORMAT);
    EXPECT_EQ(TextIn(100), "100.hea: line 3");
    SetLastFailure(RAVO_ERROR_MEMORY, "out of memory");
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), 5);
    EXPECT_EQ(TextIn(100), "out of memory");
}

TEST(LastError, LeavesABufferOfNoSizeAlone) {
    SetLastFailure(RAVO_ERROR_FORMAT, "x");
    char text = '#';
    RAVOGetLastError(&text, 0);
    EXPECT_EQ(text, '#');
}

TEST(LastError, LeavesErrnoAlone) {
    errno = ENOENT;
    SetLastFailure(RAVO_ERROR_NO_SUCH_FILE, "%s", std::strerror(EACCES));
    EXPECT_EQ(errno, ENOENT);
}

// "aé€😀": one, two, three and four bytes; with the terminator 11.
TEST(LastError, IsCutBetweenCharacters) {
    SetLastFailure(RAVO_ERROR_FORMAT, "a\u00e9\u20ac\U0001f600");
    const std::size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10};
    for (std::size_t size = 1; size <= 11; ++size) {
        EXPECT_EQ(TextIn(size).size(), expected[size - 1]) << size;
    }
    EXPECT_EQ(TextIn(12), "a\u00e9\u20ac\U0001f600");
}

TEST(LastError, IsCutAnywhereWhereItIsNotUtf8) {
    SetLastFailure(RAVO_ERROR_FORMAT, "\x80\x81\x82\x83\x84\x85\x86");
    EXPECT_EQ(TextIn(6), "\x80\x81\x82\x83\x84");
    EXPECT_EQ(TextIn(3), "\x80\x81");
    EXPECT_EQ(TextIn(1), "");
}

TEST(LastError, HasAtMost1023Bytes) {
    const std::string longPath(5000, 'p');
    SetLastFailure(RAVO_ERROR_NO_SUCH_FILE, "%s", longPath.c_str());
    EXPECT_EQ(TextIn(6000), std::string(1023, 'p'));
    SetLastFailure(RAVO_ERROR_NO_SUCH_FILE, "%s\u00e9", longPath.substr(0, 1022).c_str());
    EXPECT_EQ(TextIn(6000), std::string(1022, 'p'));
    SetLastFailure(RAVO_ERROR_NO_SUCH_FILE, "%s\u00e9", longPath.substr(0, 1021).c_str());
    EXPECT_EQ(TextIn(6000), std::string(1021, 'p') + "\u00e9");
}

TEST(LastError, IsEachThreadsOwn) {
    SetLastFailure(RAVO_ERROR_FORMAT, "here");
    int there = -1;
    std::thread([&] {
        there = RAVOGetLastError(nullptr, 0);
        SetLastFailure(RAVO_ERROR_MEMORY, "there");
    }).join();
    EXPECT_EQ(there, RAVO_ERROR_NONE);
    EXPECT_EQ(TextIn(10), "here");
}

TEST(LastError, IsPutBackAfterAnAttempt) {
    SetLastFailure(RAVO_ERROR_FORMAT, "before");
    {
        const CKeepLastFailure keep;
        SetLastFailure(RAVO_ERROR_MEMORY, "meanwhile");
    }
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_FORMAT);
    EXPECT_EQ(TextIn(10), "before");
}

TEST(SharedFailure, GoesFromThreadToThread) {
    static CSharedFailure shared;
    SetLastFailure(RAVO_ERROR_FORMAT, "before");
    EXPECT_FALSE(shared.Fetch());
    std::thread([] {
        SetLastFailure(RAVO_ERROR_SILENT, "/dev/ttyACM0: no answer");
        shared.Keep();
    }).join();
    EXPECT_EQ(TextIn(10), "before");
    EXPECT_TRUE(shared.Fetch());
    EXPECT_EQ(RAVOGetLastError(nullptr, 0), RAVO_ERROR_SILENT);
    EXPECT_EQ(TextIn(100), "/dev/ttyACM0: no answer");

    SetLastFailure(RAVO_ERROR_BUSY, "another");
    shared.Clear();
    EXPECT_FALSE(shared.Fetch());
    EXPECT_EQ(TextIn(100), "another");
}

} // namespace
