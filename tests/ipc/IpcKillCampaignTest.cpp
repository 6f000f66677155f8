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
#include "support/IpcTesting.h"

namespace {

using namespace kiv::ipc;
using namespace kiv::test;

// Under the address sanitizer every process starts and runs several times
// slower: fewer rounds keep the sanitizer run of the suite within minutes.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kDefaultKills = 150;
constexpr int kListingKills = 60;
#else
constexpr int kDefaultKills = 500;
constexpr int kListingKills = 300;
#endif

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// True once `file` grows beyond `size`, within 2 s.
bool Grows(const std::string& file, std::size_t size) {
    return Eventually([&] { return ReadFileBytes(file).size() > size; }, 2000);
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
    HelperProcess live(IpcChild(), {"server", "live", stored});
    ASSERT_TRUE(live.AwaitReady());
    // Survivors: a caller and a registry writer that run all along.
    const std::string calls = TempPath("calls.txt");
    const std::string written = TempPath("written.txt");
    HelperProcess caller(IpcChild(), {"calls", "live", "survivor", calls});
    HelperProcess writer(IpcChild(), {"registry", "survivor", written});
    HelperProcess listener(IpcChild(), {"listen", "live", "news"});
    ASSERT_TRUE(caller.AwaitReady());
    ASSERT_TRUE(writer.AwaitReady());
    ASSERT_TRUE(listener.AwaitReady());

    std::mt19937 random(16);
    for (int kill = 0; kill < kKills; ++kill) {
        const std::string tag = "v" + std::to_string(kill);
        const std::vector<std::vector<std::string>> kinds = {
            {"churn", tag, "live"},
            {"hold-lock"},
            {"hold-window-lock"},
            {"registry", tag, written},
            {"server", tag, TempPath("victim.bin")},
            {"calls", "live", tag, calls},
            {"listen", "live", "news"},
            {"hold-slot"}};
        const std::vector<std::string>& args = kinds[kill % kinds.size()];
        {
            HelperProcess victim(IpcChild(), args);
            ASSERT_TRUE(victim.AwaitReady()) << args[0] << " in round " << kill;
            usleep(static_cast<useconds_t>(random() % 8000));
            KillAndReap(victim);
        }
        // A fresh process lists, calls and writes the registry; the
        // survivors each complete another operation.
        const std::size_t calledBefore = ReadFileBytes(calls).size();
        const std::size_t writtenBefore = ReadFileBytes(written).size();
        HelperProcess fresh(IpcChild(), {"fresh", "live", "probe-" + tag});
        ASSERT_EQ(fresh.Wait(2000), 0) << "a fresh process after round " << kill;
        ASSERT_TRUE(Grows(calls, calledBefore)) << "the surviving caller after round " << kill;
        ASSERT_TRUE(Grows(written, writtenBefore)) << "the surviving writer after round " << kill;
    }
    for (HelperProcess* survivor : {&caller, &writer, &listener}) {
        KillAndReap(*survivor);
    }

    EXPECT_EQ(IntegrityCheck(std::getenv("KIV_REGISTRY")), "ok");
    kiv::system::MRegistry key;
    ASSERT_EQ(key.Open(HKEY_CURRENT_USER, L"Campaign", 0), 0u);
    const std::vector<std::string> committed = Lines(ReadFileBytes(written));
    for (const std::string& name : committed) {
        unsigned value = 0xFFFFFFFF;
        const std::wstring wide(name.begin(), name.end());
        ASSERT_EQ(key.QueryValue(value, wide.c_str()), 0u) << name;
        EXPECT_EQ(std::to_string(value), name.substr(name.rfind('-') + 1)) << name;
    }
    EXPECT_GT(static_cast<int>(committed.size()), kKills);

    // Every command reported delivered reached the handler, once.
    const std::vector<std::string> texts = StoredTexts(stored);
    const std::multiset<std::string> got(texts.begin(), texts.end());
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
    EXPECT_TRUE(EverySlotFree());
    kiv::platform::NamedObjectCensus objects;
    ASSERT_TRUE(kiv::platform::TakeNamedObjectCensus(&objects));
    EXPECT_TRUE(objects.consistent);
    kiv::platform::WindowCensus windows;
    ASSERT_TRUE(kiv::platform::TakeWindowCensus(&windows));
    EXPECT_TRUE(windows.consistent);
    EXPECT_EQ(list[0].SendCommand(L"quit", nullptr, 0, 0), 0u);
    EXPECT_EQ(live.Wait(10000), 0);
}

// Listings killed part way through a sweep of a full directory: 29 records
// of a killed server and the live server "live", then `kivipc list` killed
// 1 to 9 ms after it started, round after round. After each, a fresh
// listing must end within 3 s (a bound that tells a wedged directory lock
// from a slow machine) and show only "live".
TEST(IpcKillCampaign, ListingsKilledWhileSweepingAFullDirectoryWedgeNothing) {
    using namespace kiv::ipc::detail;
    HelperProcess live(IpcChild(), {"server", "live", TempPath("live.bin")});
    ASSERT_TRUE(live.AwaitReady());
    IpcDirectory* directory = IpcDirectory::Current();
    ASSERT_NE(directory, nullptr);
    // The record a killed server leaves behind, as the template of the dead.
    Record dead{};
    {
        HelperProcess ghost(IpcChild(), {"server", "ghost", TempPath("ghost.bin")});
        ASSERT_TRUE(ghost.AwaitReady());
        KillAndReap(ghost);
        ASSERT_GE(directory->LookUp(u"ghost", dead), 0);
    }
    std::mt19937 random(18);
    const std::string kivipc = HelperPath("kivipc");
    const std::string listing = TempPath("listing.txt");
    for (int round = 0; round < kListingKills; ++round) {
        // Nobody else uses the directory between rounds: fill it in place.
        Bytes s = directory->Section();
        for (std::int32_t count = s.Count(kServerCountAt, kMaxServers); count < kMaxServers;
             ++count) {
            Bytes(dead).Clear(static_cast<std::int64_t>(kNameAt), kNameChars * 2);
            const std::string name = "d" + std::to_string(count);
            Bytes(dead).SetText(kNameAt, std::u16string(name.begin(), name.end()), 31);
            s.Copy(RecordAt(static_cast<std::size_t>(count)), dead.data(), kRecordSize);
        }
        s.SetI32(kServerCountAt, kMaxServers);

        HelperProcess killed(kivipc, {"list"}, TempPath("killed.txt"));
        usleep(static_cast<useconds_t>(1000 + random() % 8000));
        killed.Kill();
        killed.Wait();
        HelperProcess fresh(kivipc, {"list"}, listing);
        ASSERT_EQ(fresh.Wait(3000), 0) << "round " << round;
        const std::string out = ReadFileBytes(listing);
        ASSERT_EQ(out.find("(process "), out.rfind("(process ")) << "one server only: " << out;
        ASSERT_NE(out.find("live (process "), std::string::npos) << out;
    }
}

}  // namespace
