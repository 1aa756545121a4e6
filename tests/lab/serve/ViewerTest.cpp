#include "lab/serve/Connection.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

using lab::serve::Connection;
using lab::serve::EventText;

namespace {

// A viewer and the other end of its connection.
struct Pair {
    Pair() {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        viewer.emplace(ends[0]);
        viewer->Enter(Connection::Stage::kViewing);
    }
    ~Pair() { ::close(ends[1]); }

    // Everything that has been sent, and what still waits.
    std::string Read() {
        std::string all;
        std::array<char, 65536> piece{};
        for (bool isMore = true; isMore;) {
            EXPECT_TRUE(viewer->Flush());
            const ssize_t count = ::recv(ends[1], piece.data(), piece.size(), MSG_DONTWAIT);
            all.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
            isMore = count > 0 || viewer->HasOutput();
        }
        return all;
    }

    std::array<int, 2> ends{};
    std::optional<Connection> viewer;
};

std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace

// Three times in a row nothing is read: the one note that is left tells of all that was skipped.
TEST(ViewerTest, ANoteTellsOfEverythingSkippedSinceTheLastOne) {
    Pair pair;
    const auto event = EventText("samples", std::string(4000, '1'));
    std::size_t given = 0;
    for (int i = 0; i < 3; ++i) {
        for (; !pair.viewer->IsFull(); ++given) {
            pair.viewer->SendEvent(event);
            ASSERT_TRUE(pair.viewer->Flush());
        }
        pair.viewer->SkipToNow(EventText("state", "{}"));
        ++given;
    }
    const std::string all = pair.Read();
    const std::string note = "event: skipped\ndata: {\"events\":";
    ASSERT_EQ(CountOf(all, note), 1U);
    const std::size_t skipped = std::stoul(all.substr(all.find(note) + note.size()));
    EXPECT_EQ(CountOf(all, "event: samples") + CountOf(all, "event: state") + skipped, given);

    // What is skipped later is a matter of its own.
    while (!pair.viewer->IsFull()) {
        pair.viewer->SendEvent(event);
    }
    pair.viewer->SkipToNow(EventText("state", "{}"));
    EXPECT_NE(pair.Read().find(note + "400}"), std::string::npos);
}
