// MMutex, MSynchronizedBlock and MLock.
#include <kiv/concurrent/MLock.h>
#include <kiv/concurrent/MMutex.h>
#include <kiv/concurrent/MSynchronizedBlock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "support/ThreadState.h"

namespace {

using kiv::system::concurrent::MLock;
using kiv::system::concurrent::MMutex;
using kiv::system::concurrent::MSynchronizedBlock;

// A thread that takes `take` and records when it got it; the test can make
// sure it is blocked before letting it through.
class Contender {
public:
    template <typename Take>
    explicit Contender(Take take)
        : m_thread([this, take] {
              m_tid.store(kiv::test::CurrentThreadId());
              take();
              m_got.store(true);
          }) {}
    ~Contender() { Join(); }

    bool Blocked() {
        while (m_tid.load() == 0) {
            std::this_thread::yield();
        }
        return kiv::test::WaitUntilInFutexWait(m_tid.load());
    }
    bool Got() const { return m_got.load(); }
    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

private:
    std::atomic<int> m_tid{0};
    std::atomic<bool> m_got{false};
    std::thread m_thread;
};

TEST(MMutex, TheHolderMayEnterAgainAndMustLeaveAsOftenAsItEntered) {
    MMutex mutex;
    mutex.Aquire();
    mutex.Aquire();
    {
        Contender other([&] {
            mutex.Aquire();
            mutex.Release();
        });
        ASSERT_TRUE(other.Blocked());
        mutex.Release();
        EXPECT_FALSE(other.Got());  // still held once
        mutex.Release();
    }
}

TEST(MMutex, ExcludesOtherThreads) {
    MMutex mutex;
    long counter = 0;  // deliberately not atomic
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                MSynchronizedBlock block(&mutex);
                ++counter;
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(counter, 80000);
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
    assigned.Release();
}

TEST(MSynchronizedBlock, HoldsTheMutexForItsScopeAndCopiesReleaseWithoutTakingIt) {
    MMutex mutex;
    std::optional<Contender> other;
    {
        MSynchronizedBlock block(&mutex);
        other.emplace([&] { MSynchronizedBlock inner(&mutex); });
        ASSERT_TRUE(other->Blocked());
        mutex.Aquire();                      // held twice
        { MSynchronizedBlock copy(block); }  // the copy took nothing and released once
        EXPECT_FALSE(other->Got());
    }  // the block releases the last hold
    other->Join();
    EXPECT_TRUE(other->Got());
}

TEST(MLock, TryLockFromAnotherThreadFailsAtOnceWhileItIsHeld) {
    MLock lock;
    lock.Lock();
    std::atomic<int> result{-1};
    std::thread([&] { result.store(lock.TryLock(0)); }).join();
    EXPECT_EQ(result.load(), 0);
    lock.Unlock();
    std::thread([&] {
        result.store(lock.TryLock(0));
        lock.Unlock();
    }).join();
    EXPECT_EQ(result.load(), 1);
}

TEST(MLock, ExcludesOtherThreads) {
    MLock lock;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                lock.Lock();
                ++counter;
                lock.Unlock();
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(counter, 20000);
}

TEST(MLock, CopyingMovesBothParts) {
    MLock source;
    MLock target(source);
    target.Lock();
    std::atomic<int> result{-1};
    std::thread([&] { result.store(target.TryLock(0)); }).join();
    EXPECT_EQ(result.load(), 0);
    // The emptied source holds nothing: its try fails.
    EXPECT_EQ(source.TryLock(0), 0);
    target.Unlock();
}

}  // namespace
