#include <kiv/ipc/MessageWindow.h>
#include <kiv/system/MMonitor.h>

#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/Text.h"
#include "platform/MessageWindow.h"
#include "platform/Waitable.h"
#include "support/KivTestEnvironment.h"
#include "support/ThreadState.h"
#include "system/MMonitorImpl.h"

using kiv::system::MMonitor;
using kiv::system::MMonitorImpl;
using kiv::system::MONITOROPTION;

namespace {

constexpr unsigned int kFailed = 0xFFFFFFFFu;
constexpr unsigned int kClockMessage = 0x5FF;
// Fake available memory: 1,000 KiB.
constexpr unsigned int kMemoryBytes = 1024000;

std::intptr_t IgnoreMessage(HWND, unsigned int, std::uintptr_t, std::intptr_t) {
    return 0;
}

HWND NewWindow(const wchar_t* title) {
    return kiv::ipc::CreateMessageWindow(L"KivMonitorTest", title, &IgnoreMessage);
}

HWND FakeWindow(std::uint32_t value) {
    return kiv::platform::WindowFromValue(value);
}

struct Posted {
    HWND window;
    unsigned int message;
    std::uintptr_t wParam;
    std::uint32_t value;
    bool operator==(const Posted&) const = default;
};

// Takes the posted messages of this thread until the clock message has come
// `cycles` times, after dropping everything up to the first one (so that
// only whole cycles are seen). Each cycle posts in registration order, so
// the clock, registered last, closes its cycle.
std::vector<Posted> CollectCycles(int cycles) {
    std::vector<Posted> seen;
    bool started = false;
    int clocks = 0;
    kiv::ipc::WindowMessage m{};
    while ((!started || clocks < cycles) && kiv::ipc::GetWindowMessage(m, 30000) == 1) {
        if (started) {
            seen.push_back({m.window, m.message, m.wParam, static_cast<std::uint32_t>(m.lParam)});
        }
        if (m.message == kClockMessage) {
            clocks += started ? 1 : 0;
            started = true;
        }
    }
    return seen;
}

void WriteFile(const std::string& relative, const std::string& text) {
    const std::filesystem::path path = kiv::test::TempPath(relative);
    std::filesystem::create_directories(path.parent_path());
    ASSERT_TRUE(kiv::test::WriteFileBytes(path.string(), text));
}

void SetAvailableMemoryKiB(unsigned long long kib) {
    WriteFile("proc/meminfo",
              "MemTotal:       16000000 kB\nMemFree:          500000 kB\n"
              "MemAvailable:   " +
                  std::to_string(kib) + " kB\nBuffers:  1 kB\n");
}

class MMonitorTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KIV_PROC_ROOT", kiv::test::TempPath("proc").c_str(), 1);
        setenv("KIV_SYSFS_ROOT", kiv::test::TempPath("sys").c_str(), 1);
        SetAvailableMemoryKiB(kMemoryBytes / 1024);
        WriteFile("sys/class/power_supply/BAT0/type", "Battery\n");
        WriteFile("sys/class/power_supply/BAT0/capacity", "40\n");
    }
    void TearDown() override {
        unsetenv("KIV_PROC_ROOT");
        unsetenv("KIV_SYSFS_ROOT");
    }
};

}  // namespace

TEST_F(MMonitorTest, AvailableMemoryIsMemAvailableAndSaturatesAtFourGiB) {
    EXPECT_EQ(MMonitorImpl::AvailableMemory(), kMemoryBytes);
    SetAvailableMemoryKiB(4194303);  // 4 GiB - 1 KiB
    EXPECT_EQ(MMonitorImpl::AvailableMemory(), 4294966272u);
    SetAvailableMemoryKiB(4194304);  // 4 GiB
    EXPECT_EQ(MMonitorImpl::AvailableMemory(), 0xFFFFFFFFu);
    SetAvailableMemoryKiB(5ull * 1024 * 1024 + 1000);
    EXPECT_EQ(MMonitorImpl::AvailableMemory(), 0xFFFFFFFFu);
    WriteFile("proc/meminfo", "MemTotal: 1000 kB\n");
    EXPECT_EQ(MMonitorImpl::AvailableMemory(), std::nullopt);
}

TEST_F(MMonitorTest, RegistrationAnswersEntryReuseAndTheLastEntryShortening) {
    MMonitor monitor;
    MONITOROPTION memory{0, 1};
    MONITOROPTION invalid{3, 1};
    EXPECT_EQ(monitor.RegisterNotification(nullptr, memory, 1), kFailed);
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(1), invalid, 1), kFailed);
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(1), memory), kFailed);  // no entries

    // New entries take effect and answer -1; a freed one is reused with 0.
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(1), memory, 1), kFailed);  // entry 0
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(2), memory, 1), kFailed);  // entry 1
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(3), memory, 1), kFailed);  // entry 2
    MONITOROPTION battery{1, 1};
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(2), battery), kFailed);  // type differs
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(9), memory), kFailed);
    EXPECT_EQ(monitor.UnRegisterNotification(nullptr, memory), kFailed);
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(2), memory), 0u);        // hole at 1
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(3), memory), 0u);        // last: count 2
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(4), memory, 1), 0u);       // reuses 1
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(5), memory, 1), kFailed);  // entry 2

    // Up to 100 entries; a full table refuses, a hole is reused.
    for (std::uint32_t w = 6; w < 103; ++w) {
        EXPECT_EQ(monitor.RegisterNotification(FakeWindow(w), memory, 1), kFailed);
    }
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(200), memory, 1), kFailed);
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(200), memory), kFailed);  // not taken
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(50), memory), 0u);
    EXPECT_EQ(monitor.RegisterNotification(FakeWindow(201), memory, 1), 0u);

    const std::wstring longest(259, L'd');
    const std::wstring tooLong(260, L'd');
    EXPECT_EQ(monitor.SetStorageDirectory(longest.c_str()), 0u);
    EXPECT_EQ(monitor.SetStorageDirectory(tooLong.c_str()), kFailed);
    EXPECT_EQ(monitor.SetStorageDirectory(nullptr), kFailed);
}

TEST_F(MMonitorTest, MemoryAndBatteryMessagesCarryTheValueWhileStrictlyBelowTheThreshold) {
    const HWND first = NewWindow(L"first");
    const HWND second = NewWindow(L"second");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    MMonitor monitor;
    MONITOROPTION memoryAbove{0, kMemoryBytes + 1};
    MONITOROPTION memoryEqual{0, kMemoryBytes};
    MONITOROPTION batteryAbove{1, 41};
    MONITOROPTION batteryEqual{1, 40};
    MONITOROPTION storage{2, 0xFFFFFFFF};  // no directory: never posts
    MONITOROPTION clock{0, 0xFFFFFFFF};
    monitor.RegisterNotification(first, memoryAbove, 0x500);    // entry 0, dropped below
    monitor.RegisterNotification(first, memoryEqual, 0x501);    // entry 1
    monitor.RegisterNotification(second, batteryAbove, 0x502);  // entry 2
    monitor.RegisterNotification(second, batteryEqual, 0x503);  // entry 3
    monitor.RegisterNotification(second, storage, 0x504);       // entry 4
    ASSERT_EQ(monitor.UnRegisterNotification(first, memoryAbove), 0u);
    ASSERT_EQ(monitor.RegisterNotification(first, memoryAbove, 0x505), 0u);  // entry 0 again
    monitor.RegisterNotification(second, clock, kClockMessage);              // entry 5

    const std::vector<Posted> cycle = {{first, 0x505, 0, kMemoryBytes},
                                       {second, 0x502, 0, 40},
                                       {second, kClockMessage, 0, kMemoryBytes}};
    std::vector<Posted> twoCycles = cycle;
    twoCycles.insert(twoCycles.end(), cycle.begin(), cycle.end());
    EXPECT_EQ(CollectCycles(2), twoCycles);
}

TEST_F(MMonitorTest, StorageMessagesCarryTheLowBitsOfTheFreeBytes) {
    const HWND window = NewWindow(L"storage");
    ASSERT_NE(window, nullptr);
    MMonitorImpl monitor(MMonitorImpl::DeferStart{});
    const std::wstring directory = kiv::text::FromUtf8(kiv::test::TestRoot());
    ASSERT_EQ(monitor.SetStorageDirectory(directory.c_str()), 0u);
    MONITOROPTION below{2, 0xFFFFFFFF};  // free bytes are whole blocks: never all ones
    MONITOROPTION never{2, 0};
    MONITOROPTION clock{0, 0xFFFFFFFF};
    monitor.RegisterNotification(window, below, 0x600);
    monitor.RegisterNotification(window, never, 0x601);
    monitor.RegisterNotification(window, clock, kClockMessage);
    monitor.StartForTesting();

    const std::vector<Posted> seen = CollectCycles(1);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].message, 0x600u);
    EXPECT_EQ(seen[1].message, kClockMessage);
    // Other programs write to the same file system meanwhile: the value
    // must be within 256 MiB of what is free now, compared modulo 2^32.
    struct statvfs info {};
    ASSERT_EQ(statvfs(kiv::test::TestRoot().c_str(), &info), 0);
    const auto now =
        static_cast<std::uint32_t>(static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize);
    const std::uint32_t apart = seen[0].value - now;
    EXPECT_TRUE(apart < (256u << 20) || apart > 0u - (256u << 20))
        << "posted " << seen[0].value << ", free now (low bits) " << now;
}

TEST_F(MMonitorTest, ADirectorySetAfterTheThreadBeganIsNeverWatched) {
    const HWND window = NewWindow(L"late");
    ASSERT_NE(window, nullptr);
    MMonitor monitor;
    MONITOROPTION clock{0, 0xFFFFFFFF};
    MONITOROPTION storage{2, 0xFFFFFFFF};
    monitor.RegisterNotification(window, clock, kClockMessage);
    ASSERT_EQ(CollectCycles(0).size(), 0u);  // waits for the first cycle
    const std::wstring directory = kiv::text::FromUtf8(kiv::test::TestRoot());
    ASSERT_EQ(monitor.SetStorageDirectory(directory.c_str()), 0u);
    monitor.RegisterNotification(window, storage, 0x600);
    monitor.UnRegisterNotification(window, clock);
    monitor.RegisterNotification(window, clock, kClockMessage);  // after the storage entry
    for (const Posted& p : CollectCycles(2)) {
        EXPECT_EQ(p.message, kClockMessage);
    }
}

TEST_F(MMonitorTest, TheNamedExitEventEndsTheThreadAndDestructionSetsIt) {
    const int base = kiv::test::BaselineThreadCount();
    auto exit = kiv::platform::Event::Create(L"KIV_MONITOR_EXIT_EVENT",
                                             kiv::platform::EventReset::Automatic, false);
    ASSERT_TRUE(exit.IsValid());
    MMonitor monitor;
    ASSERT_EQ(kiv::test::ThreadCount(), base + 1);
    ASSERT_TRUE(exit.Set());
    EXPECT_TRUE(kiv::test::WaitForThreadCount(base));

    // A monitor whose thread never ran still sets the event as it goes.
    { MMonitorImpl quiet(MMonitorImpl::DeferStart{}); }
    EXPECT_EQ(kiv::platform::WaitFor(exit, 0), 0);
}

TEST_F(MMonitorTest, AThousandMonitorsCreatedAndDestroyedLeaveNoThread) {
    const int rounds = kiv::test::kUnderSanitizer ? 200 : 1000;
    const int base = kiv::test::BaselineThreadCount();
    MONITOROPTION option{0, 0xFFFFFFFF};
    for (int i = 0; i < rounds; ++i) {
        MMonitor monitor;
        monitor.RegisterNotification(FakeWindow(7), option, 1);
    }
    EXPECT_EQ(kiv::test::ThreadCount(), base);
}

TEST_F(MMonitorTest, OneMonitorUsedFromSeveralThreadsAtOnce) {
    MMonitor monitor;
    std::vector<std::thread> users;
    for (std::uint32_t t = 0; t < 4; ++t) {
        users.emplace_back([copy = monitor, t]() mutable {
            MONITOROPTION option{t % 3, 0xFFFFFFFF};
            for (std::uint32_t i = 0; i < 500; ++i) {
                copy.RegisterNotification(FakeWindow(t * 1000 + i % 120 + 1), option, 1);
                copy.UnRegisterNotification(FakeWindow(t * 1000 + (i * 7) % 120 + 1), option);
                copy.SetStorageDirectory(i % 2 == 0 ? L"/tmp" : L"/");
            }
        });
    }
    for (auto& u : users) {
        u.join();
    }
    MONITOROPTION option{0, 1};
    EXPECT_EQ(monitor.UnRegisterNotification(FakeWindow(999999), option), kFailed);
}
