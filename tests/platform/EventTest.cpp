#include "platform/Event.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// A timed-out wait leaves the event locked for good, so such an event is never destroyed.
template <typename Event>
Event& ImmortalEvent() {
    static auto* const events = new std::deque<Event>;
    return events->emplace_back(false);
}

// Waits until the real-time clock is well within a second: a deadline of less than a second,
// counted from the start of that second, has then passed.
void SettleInsideSecond() {
    timespec now{};
    do {
        usleep(1000);
        clock_gettime(CLOCK_REALTIME, &now);
    } while (now.tv_nsec < 50000000 || now.tv_nsec > 500000000);
}

void EndAfterOneSecond() {
    signal(SIGALRM, SIG_DFL);
    alarm(1);
}

template <typename Event>
class EventTest : public testing::Test {};

struct EventName {
    template <typename Event>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Event, CAutoResetEvent> ? "AutoReset" : "ManualReset";
    }
};

using Events = testing::Types<CAutoResetEvent, CManualResetEvent>;
TYPED_TEST_SUITE(EventTest, Events, EventName);

TYPED_TEST(EventTest, StartsInTheStateItIsGiven) {
    TypeParam clear(false);
    TypeParam set(true);
    EXPECT_EQ(clear.WaitTimeout(0), 110);
    EXPECT_EQ(set.WaitTimeout(0), 0);
}

TYPED_TEST(EventTest, ResetClears) {
    TypeParam event(true);
    EXPECT_EQ(event.ResetEvent(), 0);
    EXPECT_EQ(event.WaitTimeout(0), 110);
}

TYPED_TEST(EventTest, TimedWaitOnSetEventReturnsAtOnceAndUnlocks) {
    TypeParam event(true);
    EXPECT_EQ(event.WaitTimeout(5000), 0);
    EXPECT_EQ(event.SetEvent(), 0);
    EXPECT_EQ(WaitForSingleObject(&event, 5000), 0);
}

TYPED_TEST(EventTest, WaitReturnsWhenAnotherThreadSets) {
    TypeParam event(false);
    std::thread setter([&] {
        usleep(20000);
        event.SetEvent();
    });
    EXPECT_EQ(event.Wait(), 0);
    setter.join();
}

TYPED_TEST(EventTest, TimedWaitReturnsWhenAnotherThreadSets) {
    TypeParam event(false);
    std::thread setter([&] {
        usleep(20000);
        event.SetEvent();
    });
    EXPECT_EQ(event.WaitTimeout(60000), 0);
    setter.join();
}

TYPED_TEST(EventTest, WaitBelowOneSecondExpiresBeforeItsTime) {
    // If the sub-second part were milliseconds, each wait would last at least 400 ms.
    constexpr milliseconds kShort(300);
    auto shortest = Clock::duration::max();
    for (int i = 0; i < 20 && shortest >= kShort; ++i) {
        SettleInsideSecond();
        const auto start = Clock::now();
        EXPECT_EQ(ImmortalEvent<TypeParam>().WaitTimeout(999), 110);
        shortest = std::min<Clock::duration>(shortest, Clock::now() - start);
    }
    EXPECT_LT(shortest, kShort);
}

TYPED_TEST(EventTest, WaitLastsWholeSecondsFromTheStartOfTheCurrentSecond) {
    const time_t before = time(nullptr);
    EXPECT_EQ(ImmortalEvent<TypeParam>().WaitTimeout(2999), 110);
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_GE(after.tv_sec, before + 2);
}

TYPED_TEST(EventTest, CountOfMicrosecondsWrapsAt32Bits) {
    // 4294968 ms are 704 microseconds beyond 2^32.
    SettleInsideSecond();
    EXPECT_EQ(ImmortalEvent<TypeParam>().WaitTimeout(4294968), 110);
}

TYPED_TEST(EventTest, TimedOutWaitBlocksOtherThreads) {
    EXPECT_EXIT(
        {
            TypeParam& event = ImmortalEvent<TypeParam>();
            if (event.WaitTimeout(1) != 110) {
                _exit(1);
            }
            EndAfterOneSecond();
            std::thread other([&] {
                event.SetEvent();
                _exit(2);
            });
            other.join();
        },
        testing::KilledBySignal(SIGALRM), "");
}

TYPED_TEST(EventTest, TimedOutWaitBlocksTheThreadThatWaited) {
    EXPECT_EXIT(
        {
            TypeParam& event = ImmortalEvent<TypeParam>();
            if (event.WaitTimeout(1) != 110) {
                _exit(1);
            }
            EndAfterOneSecond();
            event.ResetEvent();
            _exit(2);
        },
        testing::KilledBySignal(SIGALRM), "");
}

TYPED_TEST(EventTest, PollThatFindsNothingUnlocks) {
    TypeParam event(false);
    EXPECT_EQ(event.WaitTimeout(0), 110);
    EXPECT_EQ(event.SetEvent(), 0);
    EXPECT_EQ(event.WaitTimeout(0), 0);
}

template <typename Event>
void* WaitForEver(void* event) {
    static_cast<Event*>(event)->Wait();
    return nullptr;
}

template <typename Event>
void* WaitLong(void* event) {
    static_cast<Event*>(event)->WaitTimeout(600000);
    return nullptr;
}

TYPED_TEST(EventTest, CancelledWaitersLeaveTheEventUnlocked) {
    for (auto* body : {&WaitForEver<TypeParam>, &WaitLong<TypeParam>}) {
        TypeParam event(false);
        pthread_t waiter{};
        ASSERT_EQ(pthread_create(&waiter, nullptr, body, &event), 0);
        usleep(20000);
        ASSERT_EQ(pthread_cancel(waiter), 0);
        void* result = nullptr;
        ASSERT_EQ(pthread_join(waiter, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_EQ(event.SetEvent(), 0);
        EXPECT_EQ(event.WaitTimeout(0), 0);
    }
}

TEST(AutoResetEvent, FirstPollTakesTheSignalHoweverOftenItWasSet) {
    CAutoResetEvent event(false);
    event.SetEvent();
    event.SetEvent();
    EXPECT_EQ(event.WaitTimeout(0), 0);
    EXPECT_EQ(event.WaitTimeout(0), 110);
}

TEST(AutoResetEvent, WaitAndTimedWaitTakeTheSignal) {
    CAutoResetEvent event(true);
    EXPECT_EQ(event.Wait(), 0);
    EXPECT_EQ(event.WaitTimeout(0), 110);
    event.SetEvent();
    EXPECT_EQ(event.WaitTimeout(5000), 0);
    EXPECT_EQ(event.WaitTimeout(0), 110);
}

TEST(ManualResetEvent, StaysSetUntilReset) {
    CManualResetEvent event(false);
    event.SetEvent();
    EXPECT_EQ(event.WaitTimeout(0), 0);
    EXPECT_EQ(event.WaitTimeout(0), 0);
    EXPECT_EQ(event.Wait(), 0);
    EXPECT_EQ(event.WaitTimeout(5000), 0);
    EXPECT_EQ(event.WaitTimeout(0), 0);
}

TEST(ManualResetEvent, MayBeDestroyedWhileAThreadWaits) {
    EXPECT_EXIT(
        {
            signal(SIGALRM, SIG_DFL);
            alarm(60);
            auto* storage = new char[sizeof(CManualResetEvent)];
            auto* event = new (storage) CManualResetEvent(false);
            pthread_t waiter{};
            pthread_create(&waiter, nullptr, &WaitForEver<CManualResetEvent>, event);
            usleep(50000);
            event->~CManualResetEvent();
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(WaitForMultipleObjects, DoesNotWaitForAll) {
    CAutoResetEvent first(true);
    CAutoResetEvent second(true);
    CEvent* events[] = {&first, &second};
    EXPECT_EQ(WaitForMultipleObjects(2, events, 1, 0xFFFFFFFF), 110);
    EXPECT_EQ(first.WaitTimeout(0), 0);
    EXPECT_EQ(second.WaitTimeout(0), 0);
}

TEST(WaitForMultipleObjects, LowestIndexWinsAndOnlyItIsConsumed) {
    CAutoResetEvent first(true);
    CAutoResetEvent second(true);
    CEvent* events[] = {&first, &second};
    EXPECT_EQ(WaitForMultipleObjects(2, events, 0, 0), 0);
    EXPECT_EQ(WaitForMultipleObjects(2, events, 0, 0), 1);
    EXPECT_EQ(WaitForMultipleObjects(2, events, 0, 0), 110);
}

TEST(WaitForMultipleObjects, WithoutTimePollsOnce) {
    CManualResetEvent clear(false);
    CManualResetEvent set(true);
    CEvent* events[] = {&clear, &set};
    EXPECT_EQ(WaitForMultipleObjects(1, events, 0, 0), 110);
    EXPECT_EQ(WaitForMultipleObjects(2, events, 0, 0), 1);
    EXPECT_EQ(WaitForMultipleObjects(0, nullptr, 0, 0), 110);
}

TEST(WaitForMultipleObjects, DeadlineIsExactToTheMillisecond) {
    CAutoResetEvent event(false);
    CEvent* events[] = {&event};
    const auto start = Clock::now();
    EXPECT_EQ(WaitForMultipleObjects(1, events, 0, 250), 110);
    EXPECT_GE(Clock::now() - start, milliseconds(249));
    event.SetEvent();
    EXPECT_EQ(WaitForMultipleObjects(1, events, 0, 250), 0);
}

TEST(WaitForMultipleObjects, WithoutDeadlineWaitsForTheSignal) {
    CAutoResetEvent first(false);
    CAutoResetEvent second(false);
    CEvent* events[] = {&first, &second};
    std::thread setter([&] {
        usleep(20000);
        second.SetEvent();
    });
    EXPECT_EQ(WaitForMultipleObjects(2, events, 0, 0xFFFFFFFF), 1);
    setter.join();
}

TEST(WaitForMultipleObjects, LongestBoundedTimeDoesNotOverflow) {
    CAutoResetEvent event(false);
    CEvent* events[] = {&event};
    std::thread setter([&] {
        usleep(20000);
        event.SetEvent();
    });
    EXPECT_EQ(WaitForMultipleObjects(1, events, 0, 0xFFFFFFFE), 0);
    setter.join();
}

TEST(Event, HasNoDataAndNoVirtualDestructor) {
    EXPECT_EQ(sizeof(CEvent), sizeof(void*));
    EXPECT_FALSE(std::has_virtual_destructor_v<CEvent>);
    EXPECT_FALSE(std::has_virtual_destructor_v<CAutoResetEvent>);
}

} // namespace
