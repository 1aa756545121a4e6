#include "platform/ThreadEnd.h"
#include "tests/support/Sanitizers.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

void* WaitFor(void* event) {
    static_cast<CAutoResetEvent*>(event)->Wait();
    return nullptr;
}

TEST(ThreadEnd, JoinsAThreadThatEnds) {
    CAutoResetEvent end(true);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, &WaitFor, &end), 0);
    EXPECT_TRUE(JoinThreadWithin(thread, 60000));
}

TEST(ThreadEnd, LeavesAThreadThatRunsJoinable) {
    CAutoResetEvent end(false);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, &WaitFor, &end), 0);
    // Added to the present time, nearly all of these milliseconds carry over into the next second.
    const auto start = Clock::now();
    EXPECT_FALSE(JoinThreadWithin(thread, 999));
    EXPECT_GE(Clock::now() - start, milliseconds(990));
    EXPECT_FALSE(JoinThreadWithin(thread, 0));
    end.SetEvent();
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
}

TEST(ThreadEnd, DoesNotWaitForTheCallingThread) {
    EXPECT_FALSE(JoinThreadWithin(pthread_self(), 60000));
}

// A forked child inherits the record of a waiter but not the waiter.
TEST(ThreadEnd, EventWithoutItsWaitersCanBeDestroyed) {
    if (kUnderThreadSanitizer) {
        GTEST_SKIP() << "The sanitizer takes the parent's thread for one of the child.";
    }
    auto* const event = new CAutoResetEvent(false);
    pthread_t waiter{};
    ASSERT_EQ(pthread_create(&waiter, nullptr, &WaitFor, event), 0);
    usleep(50000);
    EXPECT_EXIT(
        {
            signal(SIGALRM, SIG_DFL);
            alarm(60);
            ForgetWaiters(*event);
            const int state = event->WaitTimeout(0);
            delete event;
            _exit(state == kWaitTimedOut ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    event->SetEvent();
    ASSERT_EQ(pthread_join(waiter, nullptr), 0);
    delete event;
}

} // namespace
