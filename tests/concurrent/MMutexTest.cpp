// MMutex, MSynchronizedBlock and MLock.
#include <kiv/concurrent/MLock.h>
#include <kiv/concurrent/MMutex.h>
#include <kiv/concurrent/MSynchronizedBlock.h>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "support/ThreadState.h"

namespace {

using kiv::system::concurrent::MLock;
using kiv::system::concurrent::MMutex;
using kiv::system::concurrent::MSynchronizedBlock;

// A thread that takes `take`; the test can make sure it is blocked before
// letting it through.
struct Contender : kiv::test::BlockedThreads {
    explicit Contender(std::function<void()> take)
        : BlockedThreads([take] {
              take();
              return 0;
          }) {}
    bool Got() const { return Done() == 1; }
};

TEST(MMutex, MutexAndLockExcludeOtherThreads) {
    MMutex mutex;
    MLock lock;
    long counters[2] = {};  // deliberately not atomic: one per lock
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            long& counter = counters[t % 2];
            for (int i = 0; i < 10000; ++i) {
                if (t % 2 == 0) {
                    MSynchronizedBlock block(&mutex);
                    ++counter;
                } else {
                    lock.Lock();
                    ++counter;
                    lock.Unlock();
                }
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(counters[0], 20000);
    EXPECT_EQ(counters[1], 20000);
}

TEST(MMutex, CopyingMovesTheLockAndLeavesTheSourceEmpty) {
    MMutex source;
    MMutex target(source);
    target.Aquire();
    {
        // The source no longer refers to the held lock: it neither blocks
        // nor fails.
        Contender other([&] {
            source.Aquire();
            source.Release();
        });
        other.Join();
        EXPECT_TRUE(other.Got());
    }
    target.Release();
    MMutex assigned;
    assigned = target;
    MMutex& same = assigned;
    assigned = same;  // assigning to itself keeps the lock
    assigned.Aquire();
    Contender other([&] {
        assigned.Aquire();
        assigned.Release();
    });
    EXPECT_TRUE(other.AllAsleep()) << "the lock still excludes other threads";
    EXPECT_FALSE(other.Got());
    assigned.Release();
    other.Join();
    EXPECT_TRUE(other.Got());
}

// The holder may enter again and must leave as often as it entered.
TEST(MSynchronizedBlock, HoldsTheMutexForItsScopeAndCopiesReleaseWithoutTakingIt) {
    MMutex mutex;
    std::optional<Contender> other;
    {
        MSynchronizedBlock block(&mutex);
        other.emplace([&] { MSynchronizedBlock inner(&mutex); });
        ASSERT_TRUE(other->AllAsleep());
        mutex.Aquire();                      // held twice
        { MSynchronizedBlock copy(block); }  // the copy took nothing and released once
        EXPECT_FALSE(other->Got()) << "still held once";
    }  // the block releases the last hold
    other->Join();
    EXPECT_TRUE(other->Got());
}

// TryLock(0) from another thread, which gives back a lock it gets.
int TryLockElsewhere(MLock& lock) {
    int result = -1;
    std::thread([&] {
        result = lock.TryLock(0);
        if (result == 1) {
            lock.Unlock();
        }
    }).join();
    return result;
}

TEST(MLock, TryLockFromAnotherThreadFailsAtOnceWhileHeldAndCopyingMovesTheLock) {
    MLock source;
    source.Lock();
    EXPECT_EQ(source.TryLock(0), 0) << "not recursive: the holder's own try fails too";
    EXPECT_EQ(TryLockElsewhere(source), 0);
    source.Unlock();
    EXPECT_EQ(TryLockElsewhere(source), 1);
    MLock target(source);
    target.Lock();
    EXPECT_EQ(TryLockElsewhere(target), 0);
    EXPECT_EQ(source.TryLock(0), 0) << "the emptied source holds nothing: its try fails";
    target.Unlock();
}

}  // namespace
