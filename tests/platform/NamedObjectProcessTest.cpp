// Named events and semaphores between real processes, and the table's
// recovery from processes killed at any moment.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/Waitable.h"
#include "platform/WaitableDiagnostics.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"
#include "support/ThreadState.h"

namespace {

using kiv::platform::Event;
using kiv::platform::EventReset;
using kiv::platform::kWaitTimeout;
using kiv::platform::Semaphore;
using kiv::platform::WaitFor;
using kiv::platform::WaitForAny;
using kiv::test::HelperProcess;

std::string Child() {
    return kiv::test::HelperPath("kiv_waitable_child");
}

// The table's census: objects, processes, records, and whether they agree.
std::tuple<int, int, int, bool> Census() {
    kiv::platform::NamedObjectCensus c;
    EXPECT_TRUE(kiv::platform::TakeNamedObjectCensus(&c));
    return {c.objects, c.processes, c.records, c.consistent};
}

TEST(NamedObjectsAcrossProcesses, AnEventSetInOneProcessWakesAWaitForAnyInTheOther) {
    Event a = Event::Create(L"a", EventReset::Automatic, false);
    Event b = Event::Create(L"b", EventReset::Automatic, false);
    Event c = Event::Create(L"c", EventReset::Automatic, false);
    HelperProcess child(Child(), {"wait-any", "60000", "a", "b", "c"});
    ASSERT_TRUE(child.AwaitReady());
    ASSERT_TRUE(kiv::test::WaitUntilThreadOfInFutexWait(child.Pid(), child.Pid()));
    c.Set();
    EXPECT_EQ(child.Wait(), 2);
    EXPECT_EQ(WaitFor(c, 0), kWaitTimeout);  // the child consumed it

    kiv::test::BlockedThreads waiter([&] { return WaitForAny({&a, &b}, 60000); });
    ASSERT_TRUE(waiter.AllAsleep());
    EXPECT_EQ(kiv::test::RunProcess(Child(), {"set", "b"}), 0);
    waiter.Join();
    EXPECT_EQ(waiter.Sum(), 1);
}

TEST(NamedObjectsAcrossProcesses, ASemaphoreHandsOutExactlyItsUnitsAcrossProcesses) {
    constexpr int kUnits = 240;  // an exit status holds the count of one child
    Semaphore units = Semaphore::Create(L"units", 0, kUnits);
    Semaphore taken = Semaphore::Create(L"taken", 0, kUnits);
    Event stop = Event::Create(L"stop", EventReset::Manual, false);
    std::vector<std::unique_ptr<HelperProcess>> children;
    for (int i = 0; i < 3; ++i) {
        children.push_back(std::make_unique<HelperProcess>(
            Child(), std::vector<std::string>{"take", "units", "taken", "stop"}));
        ASSERT_TRUE(children.back()->AwaitReady());
    }
    for (int i = 0; i < kUnits; i += 3) {
        ASSERT_TRUE(units.Release(3));
    }
    for (int i = 0; i < kUnits; ++i) {
        ASSERT_EQ(WaitFor(taken, 60000), 0);
    }
    stop.Set();
    int total = 0;
    for (auto& child : children) {
        total += child->Wait();
    }
    EXPECT_EQ(total, kUnits);
    EXPECT_EQ(WaitFor(units, 0), kWaitTimeout);
    EXPECT_EQ(WaitFor(taken, 0), kWaitTimeout);
}

TEST(NamedObjectsAcrossProcesses, AnObjectLivesUntilTheLastHandleOfTheLastProcessCloses) {
    Event quit = Event::Create(L"quit", EventReset::Manual, false);
    HelperProcess child(Child(), {"hold", "quit", "held"});
    ASSERT_TRUE(child.AwaitReady());
    bool existed = false;
    Event mine = Event::Create(L"held", EventReset::Manual, false, &existed);
    EXPECT_TRUE(existed);
    EXPECT_EQ(WaitFor(mine, 0), 0);  // the child created it signalled
    mine.Close();
    EXPECT_TRUE(Event::Open(L"held").IsValid());  // the child still holds it
    quit.Set();
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_FALSE(Event::Open(L"held").IsValid());
    EXPECT_EQ(Census(), std::make_tuple(1, 1, 1, true)) << "only \"quit\" is left";
}

TEST(NamedObjectsAcrossProcesses, TheObjectsOfAKilledProcessGoWhenOneIsOpenedEvenIfItHeldTheLock) {
    for (const std::string mode : {"hang", "hang-locked"}) {
        SCOPED_TRACE(mode);
        HelperProcess child(Child(), {mode, "first", "second"});
        ASSERT_TRUE(child.AwaitReady());
        if (mode == "hang") {
            EXPECT_EQ(std::get<0>(Census()), 2);
        }
        child.Kill();
        ASSERT_TRUE(child.AwaitEndUnreaped());  // a zombie holds nothing
        bool existed = true;
        Event first = Event::Create(L"first", EventReset::Automatic, false, &existed);
        ASSERT_TRUE(first.IsValid());
        EXPECT_FALSE(existed);
        EXPECT_EQ(WaitFor(first, 0), kWaitTimeout);  // not the signal the dead process left
        EXPECT_FALSE(Event::Open(L"second").IsValid());
        EXPECT_EQ(Census(), std::make_tuple(1, 1, 1, true));
    }
}

TEST(NamedObjectsAcrossProcesses, ProcessesKilledAtRandomMomentsNeverCorruptTheTable) {
    std::mt19937 random(12345);
    for (int round = 0; round < 12; ++round) {
        std::vector<std::unique_ptr<HelperProcess>> children;
        for (int i = 0; i < 2; ++i) {
            children.push_back(std::make_unique<HelperProcess>(
                Child(), std::vector<std::string>{"churn", std::to_string(random())}));
        }
        for (auto& child : children) {
            ASSERT_TRUE(child->AwaitReady());
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        for (auto& child : children) {
            child->Kill();
            child->Wait();
        }
    }
    // Opening each name notices the dead holders and reclaims them.
    for (int i = 0; i < 8; ++i) {
        const std::wstring name = L"churn-" + std::to_wstring(i);
        EXPECT_FALSE(Event::Open(name).IsValid());
        EXPECT_FALSE(Semaphore::Open(name).IsValid());
    }
    EXPECT_EQ(Census(), std::make_tuple(0, 0, 0, true));
}

}  // namespace
