#include <kiv/concurrent/MThread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include "support/ThreadState.h"

namespace {

using kiv::system::IRunnable;
using kiv::system::MThread;

class CountingRunnable : public IRunnable {
public:
    void Run() override {
        tid.store(kiv::test::CurrentThreadId());
        runs.fetch_add(1);
        while (hold.load()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        finished.store(true);  // the last touch of this object
    }
    std::atomic<int> runs{0};
    std::atomic<bool> finished{false};
    std::atomic<int> tid{0};
    std::atomic<bool> hold{false};
};

TEST(MThread, StartRunsTheRunnableOnceAndIdAndPriorityFollowTheThread) {
    // The work is the runnable, not an override of Run.
    class Derived : public MThread {
    public:
        explicit Derived(IRunnable* r) : MThread(r) {}
        void Run() override { overrideRan.store(true); }
        std::atomic<bool> overrideRan{false};
    };
    CountingRunnable work;
    Derived thread(&work);
    EXPECT_EQ(thread.GetId(), 0u);
    thread.SetPriority(3);                        // on no thread: changes nothing, makes no thread
    EXPECT_EQ(thread.GetPriority(), 0x7FFFFFFF);  // the failed query on no thread
    EXPECT_EQ(thread.GetId(), 0u);
    thread.Start();
    thread.Start();
    EXPECT_NE(thread.GetId(), 0u);
    thread.SetPriority(1000);  // refused by the system, ignored
    EXPECT_EQ(thread.GetPriority(), -1);
    thread.WaitForStop();
    EXPECT_EQ(thread.GetId(), static_cast<unsigned int>(work.tid.load()));
    EXPECT_EQ(thread.GetPriority(), -1);
    thread.Start();
    thread.WaitForStop();
    EXPECT_EQ(work.runs.load(), 1);
    EXPECT_FALSE(thread.overrideRan.load());
}

TEST(MThread, WaitForStopWaitsForRunToReturnAndReturnsAtOnceWithoutAThread) {
    MThread idle;
    idle.WaitForStop();
    idle.Start();  // no runnable: nothing happens
    EXPECT_EQ(idle.GetId(), 0u);
    idle.WaitForStop();

    CountingRunnable work;
    work.hold.store(true);
    MThread thread(&work);
    thread.Start();
    std::atomic<bool> stopped{false};
    std::thread waiter([&] {
        thread.WaitForStop();
        stopped.store(true);
    });
    while (work.runs.load() == 0) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(stopped.load());
    work.hold.store(false);
    waiter.join();
    EXPECT_TRUE(stopped.load());
}

TEST(MThread, DestroyingTheObjectLeavesTheThreadRunning) {
    CountingRunnable work;
    work.hold.store(true);
    int tid = 0;
    {
        MThread thread(&work);
        thread.Start();
        tid = static_cast<int>(thread.GetId());
    }
    ASSERT_NE(tid, 0);
    // Still there after its object, and still in Run.
    const std::string task = "/proc/self/task/" + std::to_string(tid);
    EXPECT_TRUE(std::filesystem::exists(task));
    EXPECT_FALSE(work.finished.load());
    work.hold.store(false);
    // The thread was detached: it ends on its own, without a join, and the
    // kernel then forgets it.
    EXPECT_TRUE(kiv::test::Eventually([&] { return !std::filesystem::exists(task); }));
    EXPECT_TRUE(work.finished.load());
    EXPECT_EQ(work.runs.load(), 1);
}

TEST(MThread, CopyingMovesTheThread) {
    CountingRunnable work;
    work.hold.store(true);
    MThread source(&work);
    source.Start();
    const unsigned int id = source.GetId();
    MThread target(source);
    EXPECT_EQ(source.GetId(), 0u);
    EXPECT_EQ(target.GetId(), id);
    work.hold.store(false);
    target.WaitForStop();
    EXPECT_EQ(work.runs.load(), 1);
}

}  // namespace
