#include "platform/Files.h"

#include "platform/LastError.h"
#include "tests/support/Files.h"

#include <atomic>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

constexpr uid_t kNobody = 65534;

// A link owned by another user that leads to `victim`; false when not run as root, who alone can
// make one.
bool PlantLink(const std::string& victim, const std::string& planted) {
    return symlink(victim.c_str(), planted.c_str()) == 0 &&
           lchown(planted.c_str(), kNobody, kNobody) == 0;
}

TEST(CreateOrdinaryFile, FollowsALinkOfItsUserAlone) {
    const Scratch directory;
    const std::string mine = directory.Write("mine", "old");
    ASSERT_EQ(symlink(mine.c_str(), (directory / "link").c_str()), 0);
    EXPECT_NE(CreateOrdinaryFile((directory / "link").c_str()), nullptr);
    EXPECT_EQ(ReadFile(mine), "");

    const std::string victim = directory.Write("victim", "old");
    if (!PlantLink(victim, directory / "planted")) {
        GTEST_SKIP() << "Only root can make another user's link.";
    }
    EXPECT_EQ(CreateOrdinaryFile((directory / "planted").c_str()), nullptr);
    EXPECT_EQ(LastFailure().code, RAVO_ERROR_WRITE);
    EXPECT_EQ(LastFailure().text,
              (directory / "planted") + ": a link that belongs to another user");
    EXPECT_EQ(ReadFile(victim), "old");
}

// The link may be put there after the check of the name and before the opening.
TEST(CreateOrdinaryFile, FollowsNoLinkThatAppearsMeanwhile) {
    const Scratch directory;
    const std::string victim = directory.Write("victim", "old");
    const std::string output = directory / "output";
    const std::string planted = directory / "planted";
    if (!PlantLink(victim, planted)) {
        GTEST_SKIP() << "Only root can make another user's link.";
    }
    std::atomic<bool> isOver{false};
    std::thread other([&] {
        while (!isOver) {
            std::rename(planted.c_str(), output.c_str());
            unlink(output.c_str());
            PlantLink(victim, planted);
        }
    });
    for (int i = 0; i < 20000 && !testing::Test::HasFailure(); ++i) {
        CreateOrdinaryFile(output.c_str());
        EXPECT_EQ(ReadFile(victim), "old") << i;
    }
    isOver = true;
    other.join();
}

} // namespace
