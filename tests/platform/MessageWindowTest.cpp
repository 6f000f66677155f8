// Message windows between threads of one process: posting, sending, the
// pump, bounded queues, destruction and look-up.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "platform/MessageWindow.h"
#include "platform/support/WindowMessages.h"
#include "support/ThreadState.h"

namespace {

using namespace kiv::platform;
using namespace kiv::test::windows;

TEST(MessageWindow, PostsRunInOrderAndSendsRunOnTheOwnerThreadOrDirectlyOnTheSendersOwn) {
    ResetLog(0);
    std::promise<HWND> created;
    int exitCode = -1;
    std::thread owner([&] {
        g_log.owner = kiv::test::CurrentThreadId();
        created.set_value(CreateMessageWindow(L"ordered", L"pump", Procedure));
        PumpWindowMessages(kInfinite, &exitCode);
    });
    const HWND pump = created.get_future().get();
    if (pump == nullptr) {
        owner.detach();
        FAIL() << "no window";
    }
    for (int i = 0; i < 1000; ++i) {
        // The queue is bounded: a refused post is retried, never lost.
        while (!PostWindowMessage(pump, kSequence, static_cast<std::uintptr_t>(i), 0)) {
            std::this_thread::yield();
        }
    }
    EXPECT_EQ(SendWindowMessage(pump, kAdd, 40, 2), 42);
    EXPECT_EQ(SendWindowMessage(pump, kAdd, 7, -10), -3);
    // A window of the calling thread is called directly, without a pump.
    const int self = kiv::test::CurrentThreadId();
    const HWND mine = CreateMessageWindow(L"mine", L"", Procedure);
    EXPECT_EQ(SendWindowMessage(mine, kAdd, 1, 2), 3);
    // A send whose procedure sends back to the waiting thread completes, the
    // inner send running here while this thread waits.
    g_log.lastAddThread = 0;
    EXPECT_EQ(SendWindowMessage(pump, kNested, 10, WindowValue(mine)), 12);
    EXPECT_EQ(g_log.lastAddThread.load(), self);
    EXPECT_TRUE(DestroyMessageWindow(mine));
    while (!PostWindowMessage(pump, kFinish, 0, 0)) {
        std::this_thread::yield();  // the queue is full for a moment
    }
    owner.join();
    EXPECT_EQ(exitCode, 1000) << "the quit comes after every earlier post";
    // Only the two runs for this thread's own window ran on another thread.
    EXPECT_EQ(g_log.wrongThread.load(), 2);
}

TEST(MessageWindow, AFullQueueRefusesThePostKeepingEveryEarlierOneAndDestroyingEndsAWaitingSend) {
    ResetLog(kiv::test::CurrentThreadId());
    const HWND window = CreateMessageWindow(L"full", L"", Procedure);
    int accepted = 0;
    while (PostWindowMessage(window, kSequence, static_cast<std::uintptr_t>(accepted), 0)) {
        ++accepted;
        ASSERT_LE(accepted, kPostedQueueLength);
    }
    EXPECT_EQ(accepted, kPostedQueueLength);
    EXPECT_FALSE(PumpWindowMessages(0));  // runs what is queued, then times out
    EXPECT_EQ(g_log.inOrder.load(), kPostedQueueLength);
    EXPECT_TRUE(PostWindowMessage(window, kSequence, 0, 0));
    WindowMessage m;
    EXPECT_EQ(GetWindowMessage(&m, 0), 1);
    EXPECT_EQ(GetWindowMessage(&m, 0), -1);

    // Destroying the window ends a send that waits for it and drops what was
    // posted to it.
    kiv::test::BlockedThreads sender(
        [&] { return static_cast<int>(SendWindowMessage(window, kAdd, 1, 1)); });
    ASSERT_TRUE(sender.AllAsleep());
    ASSERT_TRUE(PostWindowMessage(window, kSequence, kPostedQueueLength, 0));
    EXPECT_TRUE(DestroyMessageWindow(window));
    EXPECT_EQ(sender.AwaitDone(1), 1);
    EXPECT_EQ(sender.Sum(), 0);
    EXPECT_FALSE(PostWindowMessage(window, kSequence, 0, 0));
    EXPECT_EQ(SendWindowMessage(window, kAdd, 1, 1), 0);
    EXPECT_FALSE(DestroyMessageWindow(window));
    EXPECT_EQ(GetWindowMessage(&m, 0), -1);
    EXPECT_EQ(g_log.inOrder.load(), kPostedQueueLength);
}

TEST(MessageWindow, MoreSendersThanAQueueHoldsAllWaitForRoomAndRun) {
    // More senders than one queue holds, at a window whose owner does not
    // look at its queue until they have all started: the late ones wait.
    constexpr int kSenders = 150;
    ResetLog(0);
    std::promise<HWND> created;
    std::promise<void> go;
    std::shared_future<void> started = go.get_future().share();
    std::thread owner([&] {
        const HWND window = CreateMessageWindow(L"busy", L"", Procedure);
        created.set_value(window);
        started.wait();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        // Bounded, so that lost sends end the test instead of hanging it.
        for (int round = 0; round < 1500 && g_log.adds.load() < kSenders; ++round) {
            WindowMessage m;
            GetWindowMessage(&m, 20);
        }
        DestroyMessageWindow(window);
    });
    const HWND window = created.get_future().get();
    ASSERT_NE(window, nullptr);
    std::vector<std::thread> senders;
    std::atomic<int> wrong{0};
    for (int i = 0; i < kSenders; ++i) {
        senders.emplace_back([&, i] {
            std::intptr_t result = 0;
            if (SendWindowMessageChecked(window, kAdd, static_cast<std::uintptr_t>(i), 1,
                                         &result) != SendOutcome::Ran ||
                result != i + 1) {
                wrong.fetch_add(1);
            }
        });
    }
    go.set_value();
    for (std::thread& t : senders) {
        t.join();
    }
    owner.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(g_log.adds.load(), kSenders);
}

TEST(MessageWindow, WindowsAreFoundByClassAndTitleAndEndWithTheirThread) {
    ResetLog(kiv::test::CurrentThreadId());
    const HWND a = CreateMessageWindow(L"class one", L"title one", Procedure);
    const HWND b = CreateMessageWindow(L"class one", L"title two", Procedure);
    const HWND c = CreateMessageWindow(L"class two", L"title one", Procedure);
    ASSERT_TRUE(a != nullptr && b != nullptr && c != nullptr);
    EXPECT_EQ(FindMessageWindow(L"class one", std::nullopt), a);
    EXPECT_EQ(FindMessageWindow(std::nullopt, L"title two"), b);
    EXPECT_EQ(FindMessageWindow(L"class two", L"title one"), c);
    EXPECT_EQ(FindMessageWindow(L"class two", L"title two"), nullptr);
    EXPECT_EQ(FindMessageWindow(L"Class One", std::nullopt), nullptr);  // exact match

    std::uint32_t pid = 0;
    EXPECT_EQ(GetWindowOwner(b, &pid), static_cast<std::uint32_t>(kiv::test::CurrentThreadId()));
    EXPECT_EQ(pid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(GetWindowOwner(nullptr, &pid), 0u);
    EXPECT_EQ(GetWindowOwner(WindowFromValue(0xDEADBEEF), &pid), 0u);

    HWND other = nullptr;
    std::thread([&] { other = CreateMessageWindow(L"short-lived", L"", Procedure); }).join();
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(FindMessageWindow(L"short-lived", std::nullopt), nullptr);
    EXPECT_EQ(SendWindowMessage(other, kAdd, 1, 1), 0);
    EXPECT_FALSE(DestroyMessageWindow(other));
    for (HWND w : {a, b, c}) {
        EXPECT_TRUE(DestroyMessageWindow(w));
    }
}

}  // namespace
