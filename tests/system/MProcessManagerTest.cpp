#include <kiv/ipc/MessageWindow.h>
#include <kiv/system/MProcessManager.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "foundation/Text.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

using kiv::system::process::MProcessManager;

namespace {

constexpr unsigned int kFailed = 0xFFFFFFFF;
constexpr unsigned int kCannotOpen = 0xFFFFFFFE;

// Starts the child helper under a name of its own (so that parallel tests
// never find or end each other's children) and waits until its threads run.
class ChildUnderTest {
public:
    ChildUnderTest(const std::string& name, int threads, const char* mode)
        : m_name(name),
          m_path(kiv::test::CopyExecutable(kiv::test::HelperPath("kiv_proc_child"), name)),
          m_ready(kiv::test::TempPath(name + ".ready")),
          m_child(m_path, {std::to_string(threads), mode, "60", m_ready}) {}

    bool WaitReady() { return kiv::test::WaitForFile(m_ready, 20000); }
    unsigned int Pid() const { return static_cast<unsigned int>(m_child.Pid()); }
    std::wstring WideName() const { return kiv::text::FromUtf8(m_name); }
    kiv::test::ChildProcess& Process() { return m_child; }

private:
    std::string m_name;
    std::string m_path;
    std::string m_ready;
    kiv::test::ChildProcess m_child;
};

std::string UniqueName(const char* stem) {
    return stem + kiv::test::TestNamespace();
}

}  // namespace

TEST(MProcessManager, FindsAStartedProcessByNameIgnoringCaseAndByIndex) {
    ChildUnderTest child(UniqueName("kivFind"), 1, "idle");
    ASSERT_TRUE(child.WaitReady());
    MProcessManager manager;
    std::wstring upper = child.WideName();
    for (auto& c : upper) {
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    }
    unsigned int id = 0;
    ASSERT_EQ(manager.GetProcessIDByExeFileName(id, upper.c_str(), 0), 0u);
    EXPECT_EQ(id, child.Pid());

    unsigned int count = 0;
    ASSERT_EQ(manager.GetProcessCount(count, 0), 0u);
    bool atSomeIndex = false;
    for (int i = 0; i < static_cast<int>(count); ++i) {
        unsigned int at = 0;
        ASSERT_EQ(manager.GetProcessIDByIndex(at, i, 0), 0u);
        atSomeIndex = atSomeIndex || at == child.Pid();
    }
    EXPECT_TRUE(atSomeIndex);
    unsigned int untouched = 1234;
    EXPECT_EQ(manager.GetProcessIDByIndex(untouched, -1, 0), kFailed);
    EXPECT_EQ(manager.GetProcessIDByIndex(untouched, static_cast<int>(count), 0), kFailed);
    EXPECT_EQ(untouched, 1234u);
    EXPECT_EQ(manager.GetProcessIDByExeFileName(untouched, L"no-such-program-kiv", 0), kFailed);
}

TEST(MProcessManager, SnapshotChangesOnlyWhenRefreshed) {
    MProcessManager manager;
    ChildUnderTest child(UniqueName("kivLate"), 1, "idle");
    ASSERT_TRUE(child.WaitReady());
    unsigned int id = 0;
    EXPECT_EQ(manager.GetProcessIDByExeFileName(id, child.WideName().c_str(), 0), kFailed)
        << "the process started after the snapshot";
    EXPECT_EQ(manager.GetProcessIDByExeFileName(id, child.WideName().c_str(), 1), 0u);
    EXPECT_EQ(id, child.Pid());
}

TEST(MProcessManager, ExeFileNameNeedsRoomForTheTerminator) {
    ChildUnderTest child(UniqueName("kivName"), 1, "idle");
    ASSERT_TRUE(child.WaitReady());
    MProcessManager manager;
    const std::wstring name = child.WideName();
    wchar_t buffer[128];
    const auto exact = static_cast<unsigned int>(name.size());
    EXPECT_EQ(manager.GetProcessExeFileName(child.Pid(), buffer, exact, 1), kCannotOpen);
    ASSERT_EQ(manager.GetProcessExeFileName(child.Pid(), buffer, exact + 1, 0), 0u);
    EXPECT_EQ(std::wstring(buffer), name);
    EXPECT_EQ(manager.GetProcessExeFileName(0x7FFFFFF0u, buffer, 128, 0), kFailed);
}

TEST(MProcessManager, CpuTimeRisesForABusyChildAndNotForAnIdleOne) {
    ChildUnderTest busy(UniqueName("kivBusy"), 2, "busy");
    ChildUnderTest idle(UniqueName("kivIdle"), 2, "idle");
    ASSERT_TRUE(busy.WaitReady());
    ASSERT_TRUE(idle.WaitReady());
    MProcessManager manager;
    unsigned int cpu = 0;
    unsigned int elapsed = 0;
    ASSERT_EQ(manager.GetProcessCPUTime(busy.Pid(), cpu, elapsed, 1), 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    ASSERT_EQ(manager.GetProcessCPUTime(busy.Pid(), cpu, elapsed, 1), 0u);
    EXPECT_GE(elapsed, 500u);
    EXPECT_GT(cpu, 0u) << "a spinning thread accumulates user time";
    EXPECT_LE(cpu, 2 * elapsed + 100) << "two threads cannot use more than two CPUs' time";
    unsigned int idleCpu = 0;
    ASSERT_EQ(manager.GetProcessCPUTime(idle.Pid(), idleCpu, elapsed, 0), 0u);
    EXPECT_LT(idleCpu, cpu);
    ASSERT_EQ(manager.GetProcessCPUTime(0x7FFFFFF0u, idleCpu, elapsed, 0), 0u);
    EXPECT_EQ(idleCpu, 0u) << "a process without threads in the samples used nothing";
}

TEST(MProcessManager, ThreadCountAndMemoryOfAProcess) {
    ChildUnderTest child(UniqueName("kivMem"), 3, "idle");
    ASSERT_TRUE(child.WaitReady());
    MProcessManager manager;
    unsigned int bytes = 0;
    ASSERT_EQ(manager.GetProcessMemory(child.Pid(), bytes), 0u);
    EXPECT_GT(bytes, 3u * 4096) << "code, stacks and heap are mapped";
    unsigned int own = 0;
    ASSERT_EQ(manager.GetProcessMemory(0, own), 0u);
    EXPECT_GT(own, 0u) << "id 0 is the calling process";
    unsigned int unknown = 77;
    ASSERT_EQ(manager.GetProcessMemory(0x7FFFFFF0u, unknown), 0u);
    EXPECT_EQ(unknown, 0u);
}

TEST(MProcessManager, ClosingByIdEndsTheProcessAndStillAnswersMinusOne) {
    ChildUnderTest child(UniqueName("kivKill"), 1, "idle");
    ASSERT_TRUE(child.WaitReady());
    MProcessManager manager;
    EXPECT_EQ(manager.CloseProcessByID(child.Pid(), 3), kFailed);
    EXPECT_EQ(child.Process().Wait(20000), 128 + 9) << "ended by SIGKILL";
    EXPECT_EQ(manager.CloseProcessByID(0x7FFFFFF0u, 0), kFailed) << "not in the snapshot";
}

TEST(MProcessManager, ClosingByNameEndsEveryProcessOfThatName) {
    const std::string name = UniqueName("kivTwins");
    ChildUnderTest first(name, 1, "idle");
    ASSERT_TRUE(first.WaitReady());
    // A second process of the same executable name.
    kiv::test::ChildProcess second(kiv::test::TempPath(name), {"1", "idle", "60"});
    ASSERT_TRUE(second.Started());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    MProcessManager manager;
    EXPECT_EQ(manager.CloseProcessByExeFileName(first.WideName().c_str(), 0), kFailed);
    EXPECT_EQ(first.Process().Wait(20000), 128 + 9);
    EXPECT_EQ(second.Wait(20000), 128 + 9);
}

TEST(MProcessManager, AProcessThatCannotBeSignalledGivesMinusTwo) {
    // A process of the snapshot that has ended since cannot be opened.
    ChildUnderTest child(UniqueName("kivGone"), 1, "idle");
    ASSERT_TRUE(child.WaitReady());
    MProcessManager manager;
    child.Process().Signal(9);
    ASSERT_EQ(child.Process().Wait(20000), 128 + 9);
    EXPECT_EQ(manager.CloseProcessByID(child.Pid(), 0), kCannotOpen);
}

TEST(MProcessManager, WindowsAreClosedByEndingTheirOwnerProcess) {
    MProcessManager manager;
    EXPECT_EQ(manager.CloseWindowByTitle(L"no window has this title"), kFailed);
    EXPECT_EQ(manager.CloseWindowByClassName(L"no-such-class"), kFailed);
    unsigned int pid = 42;
    EXPECT_EQ(manager.GetWindowProcessID(nullptr, &pid), 0u);
    EXPECT_EQ(pid, 42u);

    // The helper's windows are titled "child" and named by the class given.
    const std::string helper = kiv::test::HelperPath("kiv_window_child");
    kiv::test::HelperProcess byClass(helper, {"hang", "kiv-close-me"});
    kiv::test::HelperProcess byTitle(helper, {"hang", "kiv-other"});
    ASSERT_TRUE(byClass.AwaitReady());
    const HWND window = kiv::ipc::FindMessageWindow(L"kiv-close-me", nullptr);
    ASSERT_NE(window, nullptr);
    EXPECT_NE(manager.GetWindowProcessID(window, &pid), 0u);
    EXPECT_EQ(pid, static_cast<unsigned int>(byClass.Pid()));
    EXPECT_EQ(manager.CloseWindowByClassName(L"kiv-close-me"), 0u);
    EXPECT_EQ(byClass.Wait(), 128 + 9);
    EXPECT_EQ(manager.CloseWindowByClassName(L"kiv-close-me"), kFailed);  // gone with it

    ASSERT_TRUE(byTitle.AwaitReady());
    EXPECT_EQ(manager.CloseWindowByTitle(L"child"), 0u);
    EXPECT_EQ(byTitle.Wait(), 128 + 9);
}

TEST(MProcessManager, CopiesShareOneSnapshot) {
    MProcessManager original;
    ChildUnderTest child(UniqueName("kivCopy"), 1, "idle");
    ASSERT_TRUE(child.WaitReady());
    MProcessManager copy(original);
    unsigned int id = 0;
    ASSERT_EQ(copy.GetProcessIDByExeFileName(id, child.WideName().c_str(), 1), 0u);
    EXPECT_EQ(original.GetProcessIDByExeFileName(id, child.WideName().c_str(), 0), 0u)
        << "the refresh through the copy is seen by the original";
    MProcessManager assigned;
    assigned = copy;
    unsigned int count = 0;
    EXPECT_EQ(assigned.GetProcessCount(count, 0), 0u);
    EXPECT_GT(count, 1u);
}
