// Servers and clients in different processes: commands with payloads,
// events, servers starting together, and processes killed at chosen points
// of their IPC use: holding the directory lock or its event, after
// registering a server, while their payload waits in a data slot, and while
// subscribed. The library takes back what the dead held, and no live process
// is hurt.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "support/IpcTesting.h"

namespace {

using namespace kiv::ipc;
using namespace kiv::ipc::detail;
using namespace kiv::test;

std::vector<std::string> g_news;

int OnNews(void* payload) {
    g_news.emplace_back(payload == nullptr ? "null" : static_cast<const char*>(payload));
    return 0;
}

// A live server "live" (the helper's "server"), found by this process.
class IpcLiveServer : public ::testing::Test {
protected:
    void SetUp() override {
        m_live = std::make_unique<HelperProcess>(
            IpcChild(), std::vector<std::string>{"server", "live", m_file});
        ASSERT_TRUE(m_live->AwaitReady());
        ASSERT_EQ(m_ipc.GetService(L"live", m_service), 0u);
        m_directory = IpcDirectory::Current();
        ASSERT_NE(m_directory, nullptr);
    }
    void TearDown() override {
        if (m_live != nullptr) {
            m_service.SendCommand(L"quit", nullptr, 0, 0);
            m_live->Wait(10000);
        }
    }
    std::vector<std::wstring> Listed() {
        std::vector<MIpcService> list;
        m_ipc.GetServiceList(list);
        std::vector<std::wstring> names;
        for (MIpcService& service : list) {
            names.emplace_back(service.GetServiceName());
        }
        return names;
    }

    std::string m_file = TempPath("live.bin");
    std::unique_ptr<HelperProcess> m_live;
    MIpc m_ipc;
    MIpcService m_service;
    IpcDirectory* m_directory = nullptr;
};

TEST_F(IpcLiveServer, ACommandsPayloadReachesTheHandlerIntactUpTo1023BytesUntilTheServerQuits) {
    std::vector<MIpcService> list;
    ASSERT_EQ(m_ipc.GetServiceList(list), 1u);
    EXPECT_EQ(std::wstring(list[0].GetServiceName()), L"live");
    std::vector<_tagIpcObject> commands;
    list[0].GetCommandList(commands);
    ASSERT_EQ(commands.size(), 3u);  // "late" came after registering
    EXPECT_EQ(std::wstring(commands[0].name), L"store");
    EXPECT_EQ(std::wstring(commands[0].description), L"stores the payload");
    MIpcServer notMine;
    EXPECT_EQ(m_ipc.GetServer(L"live", notMine), 0xFFFFFFFFu);

    MIpcService& service = list[0];
    for (unsigned size : {0u, 1u, 1023u, 1024u, 3000u}) {
        std::string data(size, '\0');
        for (unsigned i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i % 251 + 1);
        }
        ASSERT_EQ(service.SendCommand(L"store", data.data(), size, 0), 0u);
        const std::string stored = ReadFileBytes(m_file);
        WriteFileBytes(m_file, "");
        if (size == 0) {
            EXPECT_EQ(stored, std::string(1, '\0'));  // the handler got null
            continue;
        }
        ASSERT_EQ(stored.size(), 1025u) << size;
        EXPECT_EQ(stored[0], 1);
        const std::size_t kept = size < 1024 ? size : 1023;
        EXPECT_EQ(stored.substr(1, kept), data.substr(0, kept)) << size;
        EXPECT_EQ(stored.substr(1 + kept), std::string(1024 - kept, '\0')) << size;
    }
    EXPECT_EQ(service.SendCommand(L"late", "x", 1, 0), 0xFFFFFFFFu);
    EXPECT_EQ(service.SendCommand(L"unknown", "x", 1, 0), 0xFFFFFFFFu);
    EXPECT_EQ(ReadFileBytes(m_file), "");  // nothing was sent

    MIpcService missing;
    EXPECT_EQ(m_ipc.GetService(L"nobody", missing), 0xFFFFFFFFu);
    EXPECT_EQ(missing.SendCommand(L"store", "x", 1, 0), 0xFFFFFFFFu);
    ASSERT_EQ(service.SendCommand(L"quit", nullptr, 0, 0), 0u);
    EXPECT_EQ(m_live->Wait(), 0);  // it unregistered on the way out
    EXPECT_EQ(service.SendCommand(L"store", "x", 1, 0), 0xFFFFFFFFu);
}

TEST_F(IpcLiveServer, EventsReachSubscribersUntilTheyUnsubscribeOrAreKilled) {
    HelperProcess listener(IpcChild(), {"listen", "live", "news"});
    ASSERT_TRUE(listener.AwaitReady());
    g_news.clear();
    const int mine = m_service.SubscribeEvent(L"news", OnNews);
    ASSERT_GT(mine, 0);
    Record record{};
    ASSERT_GE(m_directory->LookUp(u"live", record), 0);
    const std::size_t news = EventAt(0);
    ASSERT_EQ(Bytes(record).I32(news + kSubscriberCountAt), 2);
    KillAndReap(listener);
    // The server's handler raises the event; this thread runs the callback
    // while it waits.
    EXPECT_EQ(m_service.SendCommand(L"raise", "hello", 6, 0), 0u);
    EXPECT_EQ(m_service.SendCommand(L"raise", nullptr, 0, 0), 0u);
    EXPECT_EQ(g_news, (std::vector<std::string>{"hello", "null"}));
    ASSERT_GE(m_directory->LookUp(u"live", record), 0);
    EXPECT_EQ(Bytes(record).I32(news + kSubscriberCountAt), 1);
    EXPECT_EQ(Bytes(record).I32(news + kSubscribersAt + kSubscriberIdAt), mine);
    EXPECT_TRUE(EverySlotFree());
    EXPECT_EQ(m_service.UnsubscribeEvent(mine), 0u);
    ASSERT_EQ(m_service.SendCommand(L"raise", "late", 5, 0), 0u);
    EXPECT_FALSE(PumpWindowMessages(0));
    EXPECT_EQ(g_news.size(), 2u);
}

TEST_F(IpcLiveServer, AServerKilledIsNotSentToNeitherFoundNorListedNorInTheWayOfItsName) {
    HelperProcess ghost(IpcChild(), {"server", "ghost", TempPath("ghost.bin")});
    ASSERT_TRUE(ghost.AwaitReady());
    KillAndReap(ghost);
    ASSERT_EQ(m_directory->Section().I32(kServerCountAt), 2);  // nothing swept yet
    MIpcService service;
    EXPECT_EQ(m_ipc.GetService(L"ghost", service), 0xFFFFFFFFu);
    EXPECT_EQ(m_directory->Section().I32(kServerCountAt), 1);
    EXPECT_EQ(Listed(), std::vector<std::wstring>{L"live"});

    HelperProcess again(IpcChild(), {"server", "ghost", TempPath("ghost.bin")});
    ASSERT_TRUE(again.AwaitReady());
    ASSERT_EQ(m_ipc.GetService(L"ghost", service), 0u);
    KillAndReap(again);
    // A send to it returns, and says that nothing was delivered.
    EXPECT_EQ(service.SendCommand(L"store", "x", 1, 0), IPC_NOT_DELIVERED);
    MIpcServer server;
    server.SetServerName(L"ghost");
    EXPECT_EQ(m_ipc.RegisterMyService(server), 0u);  // the name was the dead one's
    EXPECT_EQ(m_ipc.GetServer(L"ghost", server), 0u);
    EXPECT_EQ(Listed(), (std::vector<std::wstring>{L"live", L"ghost"}));
}

TEST_F(IpcLiveServer, PayloadsOfSendersKilledBeforeTheReceiverCopiedThemFreeTheirSlots) {
    // The server stops; ten callers each put a payload into a slot and wait
    // for it; each is killed there. Every slot is then held by the dead.
    ASSERT_EQ(kill(m_live->Pid(), SIGSTOP), 0);
    std::vector<std::unique_ptr<HelperProcess>> callers;
    std::set<std::string> sent;
    for (int i = 0; i < kSlotCount; ++i) {
        const std::string text = "caller" + std::to_string(i);
        sent.insert(text);
        callers.push_back(std::make_unique<HelperProcess>(
            IpcChild(), std::vector<std::string>{"call", "live", "store", text}));
        ASSERT_TRUE(callers.back()->AwaitReady());
    }
    // Each caller is killed once its payload is in a slot (the slot records
    // its holder), so while it waits for the server.
    const auto* trailer =
        reinterpret_cast<const SectionTrailer*>(m_directory->Section().Data() + kTrailerAt);
    ASSERT_TRUE(Eventually(
        [&] {
            std::set<int> holders;
            for (const auto& holder : trailer->slotHolder) {
                holders.insert(static_cast<int>(static_cast<std::uint32_t>(holder.load())));
            }
            return std::all_of(callers.begin(), callers.end(),
                               [&](const auto& caller) { return holders.count(caller->Pid()); });
        },
        6000))
        << "the callers did not all fill a slot";
    for (auto& caller : callers) {
        KillAndReap(*caller);
    }
    // A live caller takes back a dead one's slot while the server still
    // sleeps with the dead callers' sends queued before this one.
    unsigned result = 1;
    std::thread caller([&] { result = m_service.SendCommand(L"store", "mine", 5, 0); });
    usleep(50000);
    ASSERT_EQ(kill(m_live->Pid(), SIGCONT), 0);
    caller.join();
    EXPECT_EQ(result, 0u);
    // No handler was given another sender's payload: "mine" arrived once,
    // and whatever of the dead callers arrived is theirs, once each.
    const std::vector<std::string> stored = StoredTexts(m_file);
    EXPECT_EQ(std::count(stored.begin(), stored.end(), "mine"), 1);
    std::multiset<std::string> theirs(stored.begin(), stored.end());
    theirs.erase("mine");
    for (const std::string& text : theirs) {
        EXPECT_EQ(sent.count(text), 1u) << text;
        EXPECT_EQ(theirs.count(text), 1u) << text;
    }
    EXPECT_TRUE(EverySlotFree());
    EXPECT_EQ(m_service.SendCommand(L"store", "after", 6, 0), 0u);
    EXPECT_EQ(StoredTexts(m_file).back(), "after");
}

TEST(IpcAcrossProcesses, ProcessesStartingTogetherShareOneSectionAndOneIdCounter) {
    // This process stays away from the section until all of them run, so
    // that they race to create and initialise it.
    std::vector<std::unique_ptr<HelperProcess>> servers;
    for (int i = 0; i < 8; ++i) {
        const std::string name = "race" + std::to_string(i);
        servers.push_back(std::make_unique<HelperProcess>(
            IpcChild(), std::vector<std::string>{"server", name, TempPath(name + ".bin")}));
    }
    for (auto& server : servers) {
        ASSERT_TRUE(server->AwaitReady());
    }
    auto* directory = kiv::ipc::detail::IpcDirectory::Current();
    ASSERT_NE(directory, nullptr);
    std::set<std::uint32_t> ids;
    for (auto& record : directory->Records()) {
        const kiv::ipc::detail::Bytes r(record);
        for (int c = 0; c < r.Count(kiv::ipc::detail::kCommandCountAt, 5); ++c) {
            ids.insert(r.U32(kiv::ipc::detail::CommandAt(static_cast<std::size_t>(c))));
        }
    }
    EXPECT_EQ(directory->Records().size(), 8u);
    ASSERT_EQ(ids.size(), 24u);  // three commands each, registered; "late" is private
    EXPECT_EQ(*ids.begin(), 1u);
    EXPECT_LE(*ids.rbegin(), 32u);
    // 32 ids handed out, the private "late" commands taking the other eight:
    // no process started the counter again.
    EXPECT_EQ(directory->Section().U32(kiv::ipc::detail::kNextObjectIdAt), 33u);
    std::vector<MIpcService> list;
    MIpc().GetServiceList(list);
    for (MIpcService& server : list) {
        server.SendCommand(L"quit", nullptr, 0, 0);  // they end before they are killed
    }
    for (auto& server : servers) {
        server->Wait(10000);
    }
}

TEST(IpcAcrossProcesses, NeitherALockHolderNorATakerOfTheLockEventKilledBlocksTheNext) {
    using namespace kiv::platform;
    MIpc ipc;
    MIpcService service;
    // This process holds the lock's event too, so the event outlives the
    // holder and keeps the signal the holder took.
    EXPECT_EQ(ipc.GetService(L"after", service), 0xFFFFFFFFu);
    Event event = Event::Create(L"KIV_IPC_MUTEX_EVENT", EventReset::Automatic, true);
    ASSERT_TRUE(event.IsValid());
    {
        HelperProcess holder(IpcChild(), {"hold-lock"});
        ASSERT_TRUE(holder.AwaitReady());
        EXPECT_EQ(WaitFor(event, 0), kWaitTimeout);  // held: unsignalled
        KillAndReap(holder);
    }
    MIpcServer server;
    server.SetServerName(L"after");
    EXPECT_EQ(ipc.RegisterMyService(server), 0u);
    EXPECT_EQ(ipc.GetService(L"after", service), 0u);
    ASSERT_EQ(WaitFor(event, 0), 0);  // given back by the next holder
    event.Set();
    // A process that takes the event itself and dies with it (as one killed
    // between taking a lock and recording itself would) keeps nobody out.
    HelperProcess taker(IpcChild(), {"take-event"});
    ASSERT_TRUE(taker.AwaitReady());
    KillAndReap(taker);
    HelperProcess lister(HelperPath("kivipc"), {"list"}, TempPath("listing.txt"));
    EXPECT_EQ(lister.Wait(10000), 0);
}

TEST(IpcAcrossProcesses, ADataSlotOfAProcessKilledHoldingItIsFreeAgain) {
    using kiv::ipc::detail::IpcDirectory;
    HelperProcess holder(IpcChild(), {"hold-slot"});
    ASSERT_TRUE(holder.AwaitReady());
    IpcDirectory* directory = IpcDirectory::Current();
    ASSERT_NE(directory, nullptr);
    std::vector<std::uint32_t> mine;
    for (int i = 1; i < kiv::ipc::detail::kSlotCount; ++i) {
        mine.push_back(directory->PutData("p", 2));
        ASSERT_NE(mine.back(), 0u);
    }
    EXPECT_EQ(directory->PutData("p", 2), 0u);  // the holder lives: all ten taken
    KillAndReap(holder);
    const std::uint32_t reclaimed = directory->PutData("p", 2);
    EXPECT_NE(reclaimed, 0u);
    EXPECT_EQ(std::count(mine.begin(), mine.end(), reclaimed), 0);
    EXPECT_EQ(directory->PutData("p", 2), 0u);
    directory->ReleaseData(reclaimed);
    for (std::uint32_t slot : mine) {
        directory->ReleaseData(slot);
    }
}

}  // namespace
