#include <kiv/system/MWatchDog.h>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"
#include "support/ThreadState.h"

using kiv::system::MWatchDog;

namespace {

constexpr unsigned int kFailed = 0xFFFFFFFFu;
constexpr unsigned int kRecorded = 0xFFFFFFFEu;
constexpr const wchar_t* kMissingProgram = L"/nonexistent/kiv-watchdog-program";

// A program that writes its process id into "<its own path>.ran".
std::wstring WriteMarkerScript(const std::string& name) {
    const std::string path = kiv::test::TempPath(name);
    EXPECT_TRUE(kiv::test::WriteFileBytes(path,
                                          "#!/bin/sh\necho $$ > \"$0.ran.tmp\"\n"
                                          "mv \"$0.ran.tmp\" \"$0.ran\"\n"));
    chmod(path.c_str(), 0755);
    return kiv::text::FromUtf8(path);
}

std::string MarkerOf(const std::wstring& script) {
    return kiv::text::ToUtf8(script) + ".ran";
}

bool Ran(const std::wstring& script) {
    return std::filesystem::exists(MarkerOf(script));
}

// Waits until process `pid` is gone from the process table (so it was
// reaped, not left a zombie).
bool WaitUntilReaped(int pid, int limitMs = 20000) {
    const std::string entry = "/proc/" + std::to_string(pid);
    for (int waited = 0; waited < limitMs; waited += 5) {
        if (!std::filesystem::exists(entry)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

void Sleep(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

}  // namespace

TEST(MWatchDog, ResultsBeforeStartWhileRunningAndAfterStop) {
    MWatchDog watchDog;
    EXPECT_EQ(watchDog.ResetWatchDog(), kFailed);
    EXPECT_EQ(watchDog.StopWatchDog(), kFailed);

    EXPECT_EQ(watchDog.StartWatchDog(nullptr, 1000), kFailed);
    const std::wstring tooLong(2048, L'a');
    EXPECT_EQ(watchDog.StartWatchDog(tooLong.c_str(), 60000), kFailed);
    EXPECT_EQ(watchDog.ResetWatchDog(), kFailed);

    const std::wstring longest = L"/" + std::wstring(2046, L'a');
    EXPECT_EQ(watchDog.StartWatchDog(longest.c_str(), 60000), 0u);
    EXPECT_EQ(watchDog.StartWatchDog(kMissingProgram, 60000), kRecorded);
    MWatchDog copy(watchDog);  // shares the running watchdog
    EXPECT_EQ(copy.ResetWatchDog(), 0u);
    EXPECT_EQ(copy.StopWatchDog(), 0u);

    EXPECT_EQ(watchDog.StopWatchDog(), kFailed);
    EXPECT_EQ(watchDog.ResetWatchDog(), kFailed);
    EXPECT_EQ(watchDog.StartWatchDog(kMissingProgram, 60000), 0u);
}

TEST(MWatchDog, AZeroTimeoutStartsTheProgramWhichIsReapedAndTheThreadStaysRecorded) {
    const std::wstring script = WriteMarkerScript("zero.sh");
    MWatchDog watchDog;
    ASSERT_EQ(watchDog.StartWatchDog(script.c_str(), 0), 0u);
    ASSERT_TRUE(kiv::test::WaitForFile(MarkerOf(script), 20000));
    const int pid = std::stoi(kiv::test::ReadFileBytes(MarkerOf(script)));
    EXPECT_TRUE(WaitUntilReaped(pid));

    EXPECT_EQ(watchDog.StartWatchDog(script.c_str(), 0), kRecorded);
    EXPECT_EQ(watchDog.ResetWatchDog(), 0u);
    EXPECT_EQ(watchDog.StopWatchDog(), 0u);
    EXPECT_EQ(watchDog.StopWatchDog(), kFailed);
}

TEST(MWatchDog, ResetsInTimeFromThisAndAnotherProcessHoldTheProgramBack) {
    const std::wstring script = WriteMarkerScript("held.sh");
    MWatchDog watchDog;
    ASSERT_EQ(watchDog.StartWatchDog(script.c_str(), 1500), 0u);
    for (int i = 0; i < 25; ++i) {
        Sleep(100);
        ASSERT_EQ(watchDog.ResetWatchDog(), 0u);
    }
    EXPECT_FALSE(Ran(script));

    kiv::test::ChildProcess resetter(kiv::test::HelperPath("kiv_watchdog_resetter"), {"25", "100"});
    ASSERT_TRUE(resetter.Started());
    EXPECT_EQ(resetter.Wait(60000), 0);
    EXPECT_FALSE(Ran(script));

    // Once nobody resets it, the whole timeout passes and the program runs.
    EXPECT_TRUE(kiv::test::WaitForFile(MarkerOf(script), 20000));
    EXPECT_EQ(watchDog.StartWatchDog(script.c_str(), 0), kRecorded);
}

TEST(MWatchDog, StopAndDestructionBeforeTheTimeoutStartNothing) {
    const std::wstring stopped = WriteMarkerScript("stopped.sh");
    const std::wstring destroyed = WriteMarkerScript("destroyed.sh");
    MWatchDog watchDog;
    ASSERT_EQ(watchDog.StartWatchDog(stopped.c_str(), 1000), 0u);
    EXPECT_EQ(watchDog.StopWatchDog(), 0u);
    {
        MWatchDog other;
        ASSERT_EQ(other.StartWatchDog(destroyed.c_str(), 1000), 0u);
    }
    // Both threads are gone; had either started its program, the program
    // would have written its marker long before this.
    Sleep(2000);
    EXPECT_FALSE(Ran(stopped));
    EXPECT_FALSE(Ran(destroyed));
}

TEST(MWatchDog, AThousandWatchDogsStartedAndDestroyedLeaveNoThread) {
    const int rounds = kiv::test::kUnderSanitizer ? 200 : 1000;
    const int base = kiv::test::BaselineThreadCount();
    for (int i = 0; i < rounds; ++i) {
        MWatchDog watchDog;
        ASSERT_EQ(watchDog.StartWatchDog(kMissingProgram, 60000), 0u);
        if (i % 2 == 0) {
            ASSERT_EQ(watchDog.StopWatchDog(), 0u);
        }
    }
    EXPECT_EQ(kiv::test::ThreadCount(), base);
}

TEST(MWatchDog, OneWatchDogUsedFromSeveralThreadsAtOnce) {
    MWatchDog watchDog;
    std::vector<std::thread> users;
    for (int t = 0; t < 4; ++t) {
        users.emplace_back([copy = watchDog]() mutable {
            for (int i = 0; i < 200; ++i) {
                const unsigned int started = copy.StartWatchDog(kMissingProgram, 60000);
                EXPECT_TRUE(started == 0 || started == kRecorded);
                copy.ResetWatchDog();
                copy.StopWatchDog();
            }
        });
    }
    for (auto& u : users) {
        u.join();
    }
    watchDog.StopWatchDog();
    EXPECT_EQ(watchDog.StopWatchDog(), kFailed);
}
