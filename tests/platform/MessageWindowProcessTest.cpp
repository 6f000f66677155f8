// Message windows between real processes: posts and sends, sends both ways
// at once, owners that die, and a process killed holding the table lock.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/MessageWindow.h"
#include "platform/support/WindowMessages.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

namespace {

using namespace kiv::platform;
using namespace kiv::test::windows;
using kiv::test::HelperProcess;

std::string Child() {
    return kiv::test::HelperPath("kiv_window_child");
}

TEST(MessageWindowAcrossProcesses, PostsArriveInOrderAndSendsReturnTheResult) {
    HelperProcess child(Child(), {"pump", "far"});
    ASSERT_TRUE(child.AwaitReady());
    const HWND far = FindMessageWindow(L"far", L"child");
    ASSERT_NE(far, nullptr);
    std::uint32_t pid = 0;
    EXPECT_NE(GetWindowOwner(far, &pid), 0u);
    EXPECT_EQ(pid, static_cast<std::uint32_t>(child.Pid()));

    EXPECT_EQ(SendWindowMessage(far, kAdd, 40, 2), 42);
    // The window of the calling thread takes the child's send back while
    // this thread waits for the child.
    const HWND near = CreateMessageWindow(L"near", L"", Procedure);
    EXPECT_EQ(SendWindowMessage(far, kNested, 5, WindowValue(near)), 7);
    for (int i = 0; i < 200; ++i) {
        while (!PostWindowMessage(far, kSequence, static_cast<std::uintptr_t>(i), 0)) {
            usleep(1000);  // full: the child has not caught up yet
        }
    }
    ASSERT_TRUE(PostWindowMessage(far, kFinish, 0, 0));
    EXPECT_EQ(child.Wait(), 200);
    EXPECT_TRUE(DestroyMessageWindow(near));
}

TEST(MessageWindowAcrossProcesses, TwoProcessesSendingToEachOtherAtOnceBothComplete) {
    ResetLog(0);
    const HWND mine = CreateMessageWindow(L"parent", L"", Procedure);
    ASSERT_NE(mine, nullptr);
    HelperProcess child(Child(), {"mutual", "peer", "parent", "300"});
    ASSERT_TRUE(child.AwaitReady());
    const HWND peer = FindMessageWindow(L"peer", std::nullopt);
    ASSERT_NE(peer, nullptr);
    int right = 0;
    for (int i = 0; i < 300; ++i) {
        right += SendWindowMessage(peer, kAdd, static_cast<std::uintptr_t>(i), 7) == i + 7 ? 1 : 0;
    }
    EXPECT_EQ(right, 300);
    EXPECT_TRUE(PumpWindowMessages(60000));  // until the child's finish message
    EXPECT_EQ(g_log.finished.load(), 1);
    ASSERT_TRUE(PostWindowMessage(peer, kFinish, 0, 0));
    EXPECT_EQ(child.Wait(), 0);
    DestroyMessageWindow(mine);
}

TEST(MessageWindowAcrossProcesses, ASendToAProcessThatDiesReturnsZeroAndItsWindowsGo) {
    HelperProcess child(Child(), {"hang", "silent"});
    ASSERT_TRUE(child.AwaitReady());
    const HWND silent = FindMessageWindow(L"silent", std::nullopt);
    ASSERT_NE(silent, nullptr);
    kiv::test::BlockedThreads sender(
        [&] { return static_cast<int>(SendWindowMessage(silent, kAdd, 1, 1)); });
    ASSERT_TRUE(sender.AllAsleep());
    child.Kill();
    EXPECT_EQ(sender.AwaitDone(1), 1) << "returns, instead of waiting for ever";
    EXPECT_EQ(sender.Sum(), 0);
    EXPECT_EQ(FindMessageWindow(L"silent", std::nullopt), nullptr);
    EXPECT_FALSE(PostWindowMessage(silent, kAdd, 0, 0));
}

TEST(MessageWindowAcrossProcesses, ProcessesKilledHoldingTheTableLockOrAtRandomLeaveItUsable) {
    HelperProcess locked(Child(), {"hang-locked", "locked"});
    ASSERT_TRUE(locked.AwaitReady());
    locked.Kill();
    EXPECT_EQ(locked.Wait(), 128 + SIGKILL);
    std::mt19937 random(4242);
    std::vector<std::unique_ptr<HelperProcess>> children;
    for (int round = 0; round < 40; ++round) {
        children.push_back(std::make_unique<HelperProcess>(
            Child(), std::vector<std::string>{"churn", std::to_string(round)}));
        ASSERT_TRUE(children.back()->AwaitReady());
        if (children.size() > 3) {
            // Kill one of them at a moment nobody chose, often inside the lock.
            usleep(static_cast<useconds_t>(random() % 20000));
            const std::size_t victim = random() % children.size();
            children[victim]->Kill();
            children[victim]->Wait();
            children.erase(children.begin() + static_cast<std::ptrdiff_t>(victim));
        }
    }
    children.clear();  // kills the rest
    // The dead owners' windows are noticed and removed.
    EXPECT_EQ(FindMessageWindow(L"locked", std::nullopt), nullptr);
    EXPECT_EQ(FindMessageWindow(L"churn", std::nullopt), nullptr);
    const HWND mine = CreateMessageWindow(L"survivor", L"", Procedure);
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(FindMessageWindow(L"survivor", std::nullopt), mine);
    WindowCensus census;
    ASSERT_TRUE(TakeWindowCensus(&census));
    EXPECT_TRUE(census.consistent);
    EXPECT_EQ(census.windows, 1);
    ASSERT_TRUE(PostWindowMessage(mine, kAdd, 1, 1));
    WindowMessage m;
    EXPECT_EQ(GetWindowMessage(&m, 1000), 1);
    EXPECT_EQ(SendWindowMessage(mine, kAdd, 2, 3), 5);
    EXPECT_TRUE(DestroyMessageWindow(mine));
}

}  // namespace
