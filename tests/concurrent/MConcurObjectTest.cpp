#include <kiv/concurrent/MConcurObject.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/ThreadState.h"

namespace {

using kiv::system::concurrent::MConcurObject;

// Threads that each wait once on an object, without timeout; Sum() counts
// the waits that were woken.
struct Waiters : kiv::test::BlockedThreads {
    Waiters(MConcurObject& object, int count)
        : BlockedThreads(count, [&object] { return object.Wait(); }) {}
};

TEST(MConcurObject, WithoutAWaiterOneNotifyIsRememberedAndNotifyAllNothing) {
    MConcurObject object;
    object.Notify();
    object.Notify();
    EXPECT_EQ(object.Wait(0), 1);
    EXPECT_EQ(object.Wait(0), 0);
    object.NotifyAll();
    EXPECT_EQ(object.Wait(10), 0) << "a timed-out wait returns 0";
}

TEST(MConcurObject, NotifyWakesOneWaiterAndNotifyAllWakesEvery) {
    MConcurObject object;
    Waiters two(object, 2);
    ASSERT_TRUE(two.AllAsleep());
    object.Notify();
    EXPECT_EQ(two.AwaitDone(1), 1);
    EXPECT_EQ(object.Wait(0), 0) << "consumed by the woken waiter";
    EXPECT_EQ(two.Sum(), 1);
    object.Notify();
    two.Join();
    EXPECT_EQ(two.Sum(), 2);

    Waiters three(object, 3);
    ASSERT_TRUE(three.AllAsleep());
    object.NotifyAll();
    three.Join();
    EXPECT_EQ(three.Sum(), 3);
    EXPECT_EQ(object.Wait(0), 0);
}

// Waits and broadcasts racing each other: every generation must be freed
// exactly once, whoever drops its last reference (the sanitizer builds see
// a double or missing free), and the object keeps working afterwards.
TEST(MConcurObject, GenerationsSurviveWaitsRacingBroadcasts) {
    MConcurObject object;
    std::atomic<bool> stop{false};
    std::atomic<long> woken{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            while (!stop.load()) {
                woken.fetch_add(object.Wait(1));
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 3000; ++i) {
            object.NotifyAll();
            if (i % 7 == 0) {
                object.Notify();
            }
        }
        stop.store(true);
    });
    for (auto& t : threads) {
        t.join();
    }
    while (object.Wait(0) == 1) {
        // a remembered Notify of the race
    }
    object.Notify();
    EXPECT_EQ(object.Wait(0), 1);
    EXPECT_EQ(object.Wait(0), 0);
    Waiters one(object, 1);
    ASSERT_TRUE(one.AllAsleep());
    object.NotifyAll();
    one.Join();
    EXPECT_EQ(one.Sum(), 1);
}

TEST(MConcurObject, CopyingMovesTheObject) {
    MConcurObject source;
    source.Notify();
    MConcurObject target(source);
    EXPECT_EQ(source.Wait(0), 0);
    EXPECT_EQ(target.Wait(0), 1);
    MConcurObject other;
    other = target;
    other.Notify();
    EXPECT_EQ(other.Wait(0), 1);
}

}  // namespace
