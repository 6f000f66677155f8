#include <kiv/concurrent/MSemaphore.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/ThreadState.h"

namespace {

using kiv::system::concurrent::MSemaphore;

// Units the semaphore holds now, taken out and put back.
int Units(MSemaphore& s) {
    int n = 0;
    while (s.TryAquire(0) == 1) {
        ++n;
    }
    if (n > 0) {
        s.Release(n);
    }
    return n;
}

TEST(MSemaphore, StartsFullAndPollsForUnits) {
    MSemaphore s(1);
    EXPECT_EQ(s.TryAquire(0), 1);
    EXPECT_EQ(s.TryAquire(0), 0);
    s.Release();
    EXPECT_EQ(s.TryAquire(0), 1);
}

TEST(MSemaphore, AReleasePastTheMaximumChangesNothing) {
    MSemaphore s(2);
    EXPECT_EQ(s.TryAquire(0), 1);
    s.Release(2);
    EXPECT_EQ(Units(s), 1);
    s.Release(1);
    s.Release(1);
    EXPECT_EQ(Units(s), 2);
}

TEST(MSemaphore, AquireOfNTakesNUnitsAndNothingForNBelowOne) {
    MSemaphore s(3);
    s.Aquire(0);
    s.Aquire(-2);
    EXPECT_EQ(Units(s), 3);
    s.Aquire(2);
    EXPECT_EQ(Units(s), 1);
    s.Aquire();
    EXPECT_EQ(Units(s), 0);
}

TEST(MSemaphore, TryAquireOfMoreUnitsThanAvailableTimesOutTakesNothingAndStillReturnsOne) {
    MSemaphore s(2);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(s.TryAquire(3, 50), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_EQ(Units(s), 2);
    EXPECT_EQ(s.TryAquire(0, 0), 1);
    EXPECT_EQ(Units(s), 2);
}

TEST(MSemaphore, TryAquireOfSeveralUnitsTakesThemAllWhenTheyArriveInTime) {
    MSemaphore s(2);
    s.Aquire(2);
    std::atomic<int> tid{0};
    std::atomic<int> result{-1};
    std::thread taker([&] {
        tid.store(kiv::test::CurrentThreadId());
        result.store(s.TryAquire(2, 60000));
    });
    while (tid.load() == 0) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(kiv::test::WaitUntilInFutexWait(tid.load()));
    s.Release();
    s.Release();
    taker.join();
    EXPECT_EQ(result.load(), 1);
    EXPECT_EQ(Units(s), 0);
}

TEST(MSemaphore, ACountOfZeroNeverHoldsAUnit) {
    MSemaphore s(0);
    s.Release();
    EXPECT_EQ(s.TryAquire(0), 0);
    EXPECT_EQ(s.TryAquire(10), 0);
}

TEST(MSemaphore, ANegativeCountGivesASemaphoreWhoseWaitsFailAtOnce) {
    MSemaphore s(-1);
    s.Aquire();  // returns: the wait fails
    s.Aquire(3);
    EXPECT_EQ(s.TryAquire(-1), 0);
    EXPECT_EQ(s.TryAquire(2, -1), 1);
}

TEST(MSemaphore, CopyingMovesTheSemaphore) {
    MSemaphore source(1);
    MSemaphore target(source);
    EXPECT_EQ(source.TryAquire(0), 0);
    EXPECT_EQ(target.TryAquire(0), 1);
    MSemaphore other(3);
    other = target;
    EXPECT_EQ(other.TryAquire(0), 0);  // target's semaphore, now empty
    other.Release();
    EXPECT_EQ(other.TryAquire(0), 1);
    EXPECT_EQ(target.TryAquire(0), 0);
}

}  // namespace
