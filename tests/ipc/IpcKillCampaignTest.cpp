// Processes killed at random moments while they take the IPC locks, hold
// data slots and named events, register servers and send commands: nobody
// is left blocked, and no record of the dead stays behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>

#include <random>
#include <string>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "platform/WaitableDiagnostics.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

namespace {

using namespace kiv::ipc;
using kiv::test::HelperProcess;

std::string Child() {
    return kiv::test::HelperPath("kiv_ipc_child");
}

TEST(IpcKillCampaign, FiveHundredKillsLeaveNoLockTakenNoGhostServerAndNoLeakedSlot) {
    constexpr int kKills = 500;
    HelperProcess live(Child(), {"server", "live", kiv::test::TempPath("live.bin")});
    ASSERT_TRUE(live.AwaitReady());
    std::mt19937 random(16);
    int blocked = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        const std::string name = "victim" + std::to_string(kill % 3);
        HelperProcess victim(Child(), {"churn", name, "live"});
        ASSERT_TRUE(victim.AwaitReady());
        usleep(static_cast<useconds_t>(random() % 8000));
        victim.Kill();
        ASSERT_EQ(victim.Wait(), 128 + SIGKILL);
        // A fresh process gets the directory lock: the bound only tells a
        // wedged lock from a slow machine, it measures nothing.
        HelperProcess lister(Child(), {"list"});
        if (lister.Wait(10000) != 0) {
            ++blocked;
            break;
        }
    }
    EXPECT_EQ(blocked, 0);

    MIpc ipc;
    std::vector<MIpcService> list;
    ASSERT_EQ(ipc.GetServiceList(list), 1u);  // only the live server
    EXPECT_EQ(std::wstring(list[0].GetServiceName()), L"live");
    MIpcService service;
    ASSERT_EQ(ipc.GetService(L"live", service), 0u);
    EXPECT_EQ(service.SendCommand(L"store", "after", 6, 0), 0u);
    kiv::ipc::detail::IpcDirectory* directory = kiv::ipc::detail::IpcDirectory::Current();
    ASSERT_NE(directory, nullptr);
    std::vector<std::uint32_t> slots;
    for (int i = 0; i < kiv::ipc::detail::kSlotCount; ++i) {
        slots.push_back(directory->PutData("x", 2));
        EXPECT_NE(slots.back(), 0u) << i;
    }
    for (std::uint32_t slot : slots) {
        directory->ReleaseData(slot);
    }
    kiv::platform::NamedObjectCensus census;
    ASSERT_TRUE(kiv::platform::TakeNamedObjectCensus(&census));
    EXPECT_TRUE(census.consistent);
    EXPECT_EQ(service.SendCommand(L"quit", nullptr, 0, 0), 0u);
    EXPECT_EQ(live.Wait(10000), 0);
}

}  // namespace
