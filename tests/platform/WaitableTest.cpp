// Events, semaphores and waits inside one process, unnamed and named.
#include "platform/Waitable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/WaitableDiagnostics.h"
#include "support/ThreadState.h"

namespace {

using kiv::platform::Event;
using kiv::platform::EventReset;
using kiv::platform::EventSignaller;
using kiv::platform::kInfinite;
using kiv::platform::kWaitFailed;
using kiv::platform::kWaitTimeout;
using kiv::platform::Semaphore;
using kiv::platform::Waitable;
using kiv::platform::WaitFor;
using kiv::platform::WaitForAny;

constexpr int kLong = 30000;  // for things that must happen

// Threads that each wait once on `object`; Sum() counts the waits that
// ended with the object signalled.
struct Waiters : kiv::test::BlockedThreads {
    Waiters(const Waitable& object, int count)
        : BlockedThreads(count, [&object] { return WaitFor(object, kLong) == 0 ? 1 : 0; }) {}
};

// Starts `count` waiters on `object`, calls `wake` once they all sleep, and
// returns how many of them the wake released (-1 if one never slept).
int Released(const Waitable& object, int count, const std::function<void()>& wake) {
    Waiters waiters(object, count);
    if (!waiters.AllAsleep()) {
        return -1;
    }
    wake();
    waiters.Join();
    return waiters.Sum();
}

// The named-object table's census: objects, processes, records, agreement.
std::tuple<int, int, int, bool> Census() {
    kiv::platform::NamedObjectCensus c;
    EXPECT_TRUE(kiv::platform::TakeNamedObjectCensus(&c));
    return {c.objects, c.processes, c.records, c.consistent};
}

TEST(Event, AutomaticEventReleasesOneWaiterPerSetOrPulseAndStaysSignalledUntilAWait) {
    Event event = Event::Create(EventReset::Automatic, false);
    {
        Waiters waiters(event, 3);
        ASSERT_TRUE(waiters.AllAsleep());
        event.Set();
        EXPECT_EQ(waiters.AwaitDone(1), 1);
        EXPECT_EQ(WaitFor(event, 0), kWaitTimeout) << "the released waiter consumed the signal";
        EXPECT_EQ(waiters.Done(), 1);
        event.Pulse();
        EXPECT_EQ(waiters.AwaitDone(2), 2);
        EXPECT_EQ(WaitFor(event, 0), kWaitTimeout);
        EXPECT_EQ(waiters.Done(), 2);
        event.Set();
        waiters.Join();
        EXPECT_EQ(waiters.Sum(), 3);
    }
    EXPECT_EQ(Released(event, 1,
                       [&] {
                           event.Set();
                           event.Set();  // releases nobody: leaves the event signalled
                       }),
              1);
    EXPECT_EQ(WaitFor(event, 0), 0);
    EXPECT_EQ(WaitFor(event, 0), kWaitTimeout);
    Event initially = Event::Create(EventReset::Automatic, true);
    initially.Set();  // a signalled event does not count
    EXPECT_EQ(WaitFor(initially, 0), 0);
    EXPECT_EQ(WaitFor(initially, 0), kWaitTimeout);
    initially.Set();
    initially.Pulse();  // without waiters it leaves nothing behind
    EXPECT_EQ(WaitFor(initially, 0), kWaitTimeout);
}

TEST(Event, ManualEventReleasesEveryWaiterAndStaysSignalledUntilResetWhileAPulseLeavesItReset) {
    Event event = Event::Create(EventReset::Manual, false);
    EXPECT_EQ(Released(event, 3, [&] { event.Set(); }), 3);
    EXPECT_EQ(WaitFor(event, 0), 0);
    EXPECT_EQ(WaitFor(event, 0), 0);
    event.Reset();
    EXPECT_EQ(WaitFor(event, 0), kWaitTimeout);
    EXPECT_EQ(Released(event, 2, [&] { event.Pulse(); }), 2);
    EXPECT_EQ(WaitFor(event, 0), kWaitTimeout);
    event.Set();
    event.Pulse();  // without waiters it leaves nothing behind
    EXPECT_EQ(WaitFor(event, 0), kWaitTimeout);
}

TEST(Semaphore, CreationChecksTheCountsAReleasePastTheMaximumIsRefusedAndOfNWakesN) {
    EXPECT_FALSE(Semaphore::Create(2, 1).IsValid());
    EXPECT_FALSE(Semaphore::Create(-1, 1).IsValid());
    Semaphore empty = Semaphore::Create(0, 0);  // never holds a unit
    ASSERT_TRUE(empty.IsValid());
    EXPECT_FALSE(empty.Release());
    EXPECT_EQ(WaitFor(empty, 0), kWaitTimeout);

    Semaphore sem = Semaphore::Create(1, 3);
    int previous = -1;
    EXPECT_TRUE(sem.Release(2, &previous));
    EXPECT_EQ(previous, 1);
    previous = -1;
    EXPECT_FALSE(sem.Release(1, &previous));  // 3 + 1 > 3: nothing changes
    EXPECT_EQ(previous, -1);
    EXPECT_FALSE(sem.Release(0));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WaitFor(sem, 0), 0);
    }
    EXPECT_EQ(WaitFor(sem, 0), kWaitTimeout);
    EXPECT_TRUE(sem.Release(3, &previous));
    EXPECT_EQ(previous, 0);

    sem = Semaphore::Create(0, 10);  // a release of n wakes n waiters
    Waiters waiters(sem, 3);
    ASSERT_TRUE(waiters.AllAsleep());
    sem.Release(2);
    EXPECT_EQ(waiters.AwaitDone(2), 2);
    EXPECT_EQ(WaitFor(sem, 0), kWaitTimeout);
    sem.Release(1);
    waiters.Join();
    EXPECT_EQ(waiters.Sum(), 3);
}

TEST(WaitForAny, ReturnsTheLowestSignalledIndexConsumesOnlyThatObjectTimesOutAndFailsOnBadInput) {
    Event a = Event::Create(EventReset::Automatic, false);
    Semaphore b = Semaphore::Create(1, 1);
    Event c = Event::Create(EventReset::Automatic, true);
    EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), 1);
    EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), 2);
    EXPECT_EQ(WaitForAny({&a, &b, &c}, 0), kWaitTimeout);
    EXPECT_EQ(WaitForAny({&a, &b, &c}, 20), kWaitTimeout);
    // Invalid handles and bad counts fail.
    Event invalid;
    EXPECT_EQ(WaitFor(invalid, 0), kWaitFailed);
    EXPECT_EQ(WaitForAny({&b, &invalid}, 0), kWaitFailed);
    EXPECT_EQ(WaitForAny(std::span<const Waitable* const>(), 0), kWaitFailed);
    std::vector<const Waitable*> tooMany(kiv::platform::kMaxWaitObjects + 1, &c);
    EXPECT_EQ(WaitForAny(tooMany, 0), kWaitFailed);
    EXPECT_FALSE(invalid.Set());
}

TEST(WaitForAny, WakesForTheObjectSignalledByAnotherThread) {
    std::vector<Event> events(kiv::platform::kMaxWaitObjects);
    std::vector<const Waitable*> list;
    for (Event& e : events) {
        e = Event::Create(EventReset::Automatic, false);
        list.push_back(&e);
    }
    kiv::test::BlockedThreads waiter([&] { return WaitForAny(list, kLong); });
    ASSERT_TRUE(waiter.AllAsleep());
    events[41].Set();
    waiter.Join();
    EXPECT_EQ(waiter.Sum(), 41);
    EXPECT_EQ(WaitFor(events[41], 0), kWaitTimeout);
}

TEST(TickCount, MovesForward) {
    const std::uint32_t first = kiv::platform::TickCount();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_NE(kiv::platform::TickCount(), first);
}

TEST(NamedObjects, CreateAnswersWhetherItExistedIgnoresParametersThenAndNamesAreExactAndBounded) {
    bool existed = true;
    Event first = Event::Create(L"KIV_TEST_EVENT", EventReset::Manual, false, &existed);
    ASSERT_TRUE(first.IsValid());
    EXPECT_FALSE(existed);
    Event second = Event::Create(L"KIV_TEST_EVENT", EventReset::Automatic, true, &existed);
    ASSERT_TRUE(second.IsValid());
    EXPECT_TRUE(existed);
    // Still the manual, non-signalled event created first.
    EXPECT_EQ(WaitFor(second, 0), kWaitTimeout);
    first.Set();
    EXPECT_EQ(WaitFor(second, 0), 0);
    EXPECT_EQ(WaitFor(Event::Open(L"KIV_TEST_EVENT"), 0), 0);
    // An empty name creates an unnamed object each time.
    Event a = Event::Create(L"", EventReset::Manual, true, &existed);
    EXPECT_FALSE(existed);
    Event b = Event::Create(L"", EventReset::Manual, false, &existed);
    EXPECT_FALSE(existed);
    EXPECT_EQ(WaitFor(a, 0), 0);
    EXPECT_EQ(WaitFor(b, 0), kWaitTimeout);
    // Names are exact, bounded and not shared by an event and a semaphore.
    Event lower = Event::Create(L"gps fix ü", EventReset::Manual, true);
    EXPECT_FALSE(Event::Open(L"GPS FIX ü").IsValid());
    EXPECT_EQ(WaitFor(Event::Open(L"gps fix ü"), 0), 0);
    EXPECT_FALSE(Event::Open(L"no such name").IsValid());
    existed = false;
    EXPECT_FALSE(Semaphore::Create(L"gps fix ü", 0, 1, &existed).IsValid());
    EXPECT_TRUE(existed);
    EXPECT_FALSE(Semaphore::Open(L"gps fix ü").IsValid());
    const std::wstring longest(kiv::platform::kMaxObjectName, L'x');
    EXPECT_TRUE(Event::Create(longest, EventReset::Manual, false).IsValid());
    EXPECT_FALSE(Event::Create(longest + L"x", EventReset::Manual, false).IsValid());
}

TEST(NamedObjects, TheLastCloseDestroysTheObjectAndItsSignalAndManyHandlesShareOneRecord) {
    Semaphore sem = Semaphore::Create(L"units", 2, 5);
    Semaphore again = Semaphore::Open(L"units");
    ASSERT_TRUE(again.IsValid());
    sem.Close();
    EXPECT_EQ(WaitFor(again, 0), 0);  // alive through the second handle
    again.Release(3);
    again.Close();
    EXPECT_FALSE(Semaphore::Open(L"units").IsValid());
    bool existed = true;
    Semaphore fresh = Semaphore::Create(L"units", 0, 5, &existed);
    EXPECT_FALSE(existed);
    EXPECT_EQ(WaitFor(fresh, 0), kWaitTimeout);
    fresh.Close();

    // Many handles of one process share one record, and go with the last.
    std::vector<Event> handles;
    for (int i = 0; i < 5000; ++i) {
        handles.push_back(Event::Create(L"opened often", EventReset::Automatic, false));
        ASSERT_TRUE(handles.back().IsValid());
    }
    EXPECT_EQ(Census(), std::make_tuple(1, 1, 1, true));
    handles.clear();
    EXPECT_EQ(Census(), std::make_tuple(0, 0, 0, true));
}

TEST(NamedObjects, EachNamespaceHasItsOwnObjects) {
    Event here = Event::Create(L"KIV_GPS_EVENT_FIX", EventReset::Automatic, true);
    const std::string original = std::getenv("KIV_NAMESPACE");
    setenv("KIV_NAMESPACE", (original + "other").c_str(), 1);
    bool existed = true;
    Event there = Event::Create(L"KIV_GPS_EVENT_FIX", EventReset::Automatic, false, &existed);
    EXPECT_FALSE(existed);
    EXPECT_EQ(WaitFor(there, 0), kWaitTimeout);
    there.Close();
    setenv("KIV_NAMESPACE", original.c_str(), 1);
    EXPECT_EQ(WaitFor(here, 0), 0);
}

TEST(EventSignaller, ReachesTheEventOnlyWhileAHandleHoldsItAndFollowsItsSuccessors) {
    EventSignaller signaller(L"KIV_GPS_EVENT_FIX");
    EXPECT_FALSE(signaller.Set());  // nobody holds it: the signal is lost
    bool existed = true;
    Event first = Event::Create(L"KIV_GPS_EVENT_FIX", EventReset::Automatic, false, &existed);
    EXPECT_FALSE(existed);
    EXPECT_EQ(WaitFor(first, 0), kWaitTimeout);
    EXPECT_TRUE(signaller.Set());
    EXPECT_TRUE(signaller.Set());  // an automatic event keeps one signal
    EXPECT_EQ(WaitFor(first, 0), 0);
    EXPECT_EQ(WaitFor(first, 0), kWaitTimeout);
    EXPECT_EQ(Released(first, 1, [&] { EXPECT_TRUE(signaller.Set()); }), 1);
    // The signal of an event nobody holds does not outlive it.
    EXPECT_TRUE(signaller.Set());
    first.Close();
    EXPECT_FALSE(signaller.Set());
    // Another object that takes the freed slot is not signalled in its place.
    Event other = Event::Create(L"other", EventReset::Manual, false);
    EXPECT_FALSE(signaller.Set());
    EXPECT_EQ(WaitFor(other, 0), kWaitTimeout);
    // A manual event of the name, made anew, is found and stays signalled.
    Event manual = Event::Create(L"KIV_GPS_EVENT_FIX", EventReset::Manual, false);
    EXPECT_TRUE(signaller.Set());
    EXPECT_EQ(WaitFor(manual, 0), 0);
    EXPECT_EQ(WaitFor(manual, 0), 0);
    // A semaphore of the name is no event.
    manual.Close();
    Semaphore named = Semaphore::Create(L"KIV_GPS_EVENT_FIX", 0, 5);
    EXPECT_FALSE(signaller.Set());
    EXPECT_EQ(WaitFor(named, 0), kWaitTimeout);
    EXPECT_EQ(Census(), std::make_tuple(2, 1, 2, true)) << "the signaller holds no handle";
}

}  // namespace
