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

TEST(MSemaphore, StartsFullAndUnitsAreTakenAndGivenBackWithinTheCount) {
    MSemaphore s(3);
    s.Aquire(0);
    s.Aquire(-2);
    EXPECT_EQ(Units(s), 3) << "nothing is taken for n below one";
    s.Aquire(2);
    EXPECT_EQ(Units(s), 1);
    EXPECT_EQ(s.TryAquire(0), 1);
    EXPECT_EQ(s.TryAquire(0), 0);
    s.Release();
    EXPECT_EQ(s.TryAquire(0), 1);
    s.Release(2);
    s.Release(2);  // past the maximum: changes nothing
    EXPECT_EQ(Units(s), 2);
    s.Release(1);
    s.Release(1);
    EXPECT_EQ(Units(s), 3);
    s.Aquire(3);
    EXPECT_EQ(Units(s), 0);
    // More units than available: times out, takes nothing, and still returns 1.
    s.Release(2);
    EXPECT_EQ(s.TryAquire(3, 50), 1);
    EXPECT_EQ(Units(s), 2);
    EXPECT_EQ(s.TryAquire(0, 0), 1);
    EXPECT_EQ(Units(s), 2);
}

TEST(MSemaphore, TryAquireOfSeveralUnitsTakesThemAllWhenTheyArriveInTime) {
    MSemaphore s(2);
    s.Aquire(2);
    kiv::test::BlockedThreads taker([&] { return s.TryAquire(2, 60000); });
    ASSERT_TRUE(taker.AllAsleep());
    s.Release();
    s.Release();
    taker.Join();
    EXPECT_EQ(taker.Sum(), 1);
    EXPECT_EQ(Units(s), 0);
}

TEST(MSemaphore, ACountOfZeroNeverHoldsAUnitAndANegativeOneFailsEveryWaitAtOnce) {
    MSemaphore zero(0);
    zero.Release();
    EXPECT_EQ(zero.TryAquire(0), 0);
    EXPECT_EQ(zero.TryAquire(10), 0);
    MSemaphore negative(-1);
    negative.Aquire();  // returns: the wait fails
    negative.Aquire(3);
    EXPECT_EQ(negative.TryAquire(-1), 0);
    EXPECT_EQ(negative.TryAquire(2, -1), 1);
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
