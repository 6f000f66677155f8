// Processes killed with SIGKILL at random moments while they hold the IPC
// locks, the window table lock, data slots and named events, write the
// registry, serve, call and listen. After every kill the survivors and a
// fresh process get on within 2 s (bounds that tell a wedged lock from a
// slow machine; nothing is timed), and at the end nothing the dead held is
// left: no ghost server, no leaked slot, no command reported delivered that
// its handler never got, no committed registry write missing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/system/MRegistry.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "platform/MessageWindow.h"
#include "platform/WaitableDiagnostics.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"
#include "support/ListingKills.h"

namespace {

using namespace kiv::ipc;
using kiv::test::HelperProcess;
using kiv::test::ReadFileBytes;
using kiv::test::TempPath;

// Under the address sanitizer every process starts and runs several times
// slower: fewer rounds keep the sanitizer run of the suite within minutes.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kDefaultKills = 150;
constexpr int kListingKills = 60;
#else
constexpr int kDefaultKills = 500;
constexpr int kListingKills = 300;
#endif

std::string Child() {
    return kiv::test::HelperPath("kiv_ipc_child");
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The texts a "server" helper's "store" handler appended to its file.
std::multiset<std::string> StoredTexts(const std::string& file) {
    const std::string bytes = ReadFileBytes(file);
    std::multiset<std::string> texts;
    for (std::size_t at = 0; at < bytes.size(); at += bytes[at] == 0 ? 1 : 1025) {
        if (bytes[at] != 0) {
            texts.insert(bytes.c_str() + at + 1);
        }
    }
    return texts;
}

// Waits up to 2 s for `file` to grow beyond `size`.
bool Grows(const std::string& file, std::size_t size) {
    for (int waited = 0; waited <= 2000; waited += 5) {
        if (ReadFileBytes(file).size() > size) {
            return true;
        }
        usleep(5000);
    }
    return false;
}

std::string IntegrityCheck(const std::string& path) {
    sqlite3* db = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) ==
                SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW) {
            result = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return result;
}

TEST(IpcKillCampaign, KillsOfLockHoldersWritersServersCallersAndListenersLeaveNothingBehind) {
    // KIV_CAMPAIGN_KILLS shortens the campaign while working on it.
    const char* kills = std::getenv("KIV_CAMPAIGN_KILLS");
    const int kKills = kills != nullptr ? std::atoi(kills) : kDefaultKills;
    const std::string stored = TempPath("live.bin");
    HelperProcess live(Child(), {"server", "live", stored});
    ASSERT_TRUE(live.AwaitReady());
    // Survivors: a caller and a registry writer that run all along.
    const std::string calls = TempPath("calls.txt");
    const std::string written = TempPath("written.txt");
    HelperProcess caller(Child(), {"calls", "live", "survivor", calls});
    HelperProcess writer(Child(), {"registry", "survivor", written});
    HelperProcess listener(Child(), {"listen", "live", "news"});
    ASSERT_TRUE(caller.AwaitReady());
    ASSERT_TRUE(writer.AwaitReady());
    ASSERT_TRUE(listener.AwaitReady());

    std::mt19937 random(16);
    for (int kill = 0; kill < kKills; ++kill) {
        const std::string tag = "v" + std::to_string(kill);
        std::vector<std::string> args;
        switch (kill % 8) {
            case 0:
                args = {"churn", tag, "live"};
                break;
            case 1:
                args = {"hold-lock"};
                break;
            case 2:
                args = {"hold-window-lock"};
                break;
            case 3:
                args = {"registry", tag, written};
                break;
            case 4:
                args = {"server", tag, TempPath("victim.bin")};
                break;
            case 5:
                args = {"calls", "live", tag, calls};
                break;
            case 6:
                args = {"listen", "live", "news"};
                break;
            default:
                args = {"hold-slot"};
                break;
        }
        {
            HelperProcess victim(Child(), args);
            ASSERT_TRUE(victim.AwaitReady()) << args[0] << " in round " << kill;
            usleep(static_cast<useconds_t>(random() % 8000));
            victim.Kill();
            ASSERT_EQ(victim.Wait(), 128 + SIGKILL);
        }
        // A fresh process lists, calls and writes the registry; the
        // survivors each complete another operation.
        const std::size_t calledBefore = ReadFileBytes(calls).size();
        const std::size_t writtenBefore = ReadFileBytes(written).size();
        HelperProcess fresh(Child(), {"fresh", "live", "probe-" + tag});
        ASSERT_EQ(fresh.Wait(2000), 0) << "a fresh process after round " << kill;
        ASSERT_TRUE(Grows(calls, calledBefore)) << "the surviving caller after round " << kill;
        ASSERT_TRUE(Grows(written, writtenBefore)) << "the surviving writer after round " << kill;
    }
    caller.Kill();
    writer.Kill();
    listener.Kill();
    caller.Wait();
    writer.Wait();
    listener.Wait();

    EXPECT_EQ(IntegrityCheck(std::getenv("KIV_REGISTRY")), "ok");
    kiv::system::MRegistry key;
    ASSERT_EQ(key.Open(HKEY_CURRENT_USER, L"Campaign", 0), 0u);
    int committed = 0;
    for (const std::string& name : Lines(ReadFileBytes(written))) {
        unsigned value = 0xFFFFFFFF;
        const std::wstring wide(name.begin(), name.end());
        ASSERT_EQ(key.QueryValue(value, wide.c_str()), 0u) << name;
        EXPECT_EQ(std::to_string(value), name.substr(name.rfind('-') + 1)) << name;
        ++committed;
    }
    EXPECT_GT(committed, kKills);

    // Every command reported delivered reached the handler, once.
    const std::multiset<std::string> got = StoredTexts(stored);
    for (const std::string& text : Lines(ReadFileBytes(calls))) {
        EXPECT_EQ(got.count(text), 1u) << text;
    }
    for (int kill = 0; kill < kKills; ++kill) {
        EXPECT_EQ(got.count("probe-v" + std::to_string(kill)), 1u) << kill;
    }

    MIpc ipc;
    std::vector<MIpcService> list;
    ASSERT_EQ(ipc.GetServiceList(list), 1u);  // only the live server
    EXPECT_EQ(std::wstring(list[0].GetServiceName()), L"live");
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
    kiv::platform::NamedObjectCensus objects;
    ASSERT_TRUE(kiv::platform::TakeNamedObjectCensus(&objects));
    EXPECT_TRUE(objects.consistent);
    kiv::platform::WindowCensus windows;
    ASSERT_TRUE(kiv::platform::TakeWindowCensus(&windows));
    EXPECT_TRUE(windows.consistent);
    EXPECT_EQ(list[0].SendCommand(L"quit", nullptr, 0, 0), 0u);
    EXPECT_EQ(live.Wait(10000), 0);
}

TEST(IpcKillCampaign, ListingsKilledWhileSweepingAFullDirectoryWedgeNothing) {
    HelperProcess live(Child(), {"server", "live", TempPath("live.bin")});
    ASSERT_TRUE(live.AwaitReady());
    kiv::test::KillListingsOfAFullDirectory(kListingKills, 18);
}

}  // namespace
