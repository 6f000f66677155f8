// Servers and clients in different processes: commands with payloads,
// events, and a client killed while it held the directory lock.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "support/IpcTesting.h"

namespace {

using namespace kiv::ipc;
using namespace kiv::test;

std::vector<std::string> g_news;

int OnNews(void* payload) {
    g_news.emplace_back(payload == nullptr ? "null" : static_cast<const char*>(payload));
    return 0;
}

// The server process of a test, quit when the test ends.
class ServerProcess {
public:
    explicit ServerProcess(const std::string& name)
        : m_name(name.begin(), name.end()),
          m_file(TempPath(name + ".bin")),
          m_process(IpcChild(), {"server", name, m_file}) {}
    ~ServerProcess() {
        MIpc ipc;
        MIpcService service;
        if (ipc.GetService(m_name.c_str(), service) == 0) {
            service.SendCommand(L"quit", nullptr, 0, 0);
            // Let it unregister and end by itself before it is killed.
            m_process.Wait(10000);  // killed by its destructor if it does not end
        }
    }
    bool Ready() { return m_process.AwaitReady(); }
    HelperProcess& Process() { return m_process; }
    // What the "store" handler wrote since the last call.
    std::string TakeStored() {
        std::string bytes = ReadFileBytes(m_file);
        WriteFileBytes(m_file, "");
        return bytes;
    }

private:
    std::wstring m_name;
    std::string m_file;
    HelperProcess m_process;
};

TEST(IpcAcrossProcesses, ACommandsPayloadReachesTheHandlerIntactUpTo1023Bytes) {
    ServerProcess server("srv");
    ASSERT_TRUE(server.Ready());
    MIpc ipc;
    std::vector<MIpcService> list;
    ASSERT_EQ(ipc.GetServiceList(list), 1u);
    EXPECT_EQ(std::wstring(list[0].GetServiceName()), L"srv");
    std::vector<_tagIpcObject> commands;
    list[0].GetCommandList(commands);
    ASSERT_EQ(commands.size(), 3u);  // "late" came after registering
    EXPECT_EQ(std::wstring(commands[0].name), L"store");
    EXPECT_EQ(std::wstring(commands[0].description), L"stores the payload");
    MIpcServer notMine;
    EXPECT_EQ(ipc.GetServer(L"srv", notMine), 0xFFFFFFFFu);

    MIpcService& service = list[0];
    for (unsigned size : {0u, 1u, 1023u, 1024u, 3000u}) {
        std::string data(size, '\0');
        for (unsigned i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i % 251 + 1);
        }
        ASSERT_EQ(service.SendCommand(L"store", data.data(), size, 0), 0u);
        const std::string stored = server.TakeStored();
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
    EXPECT_EQ(server.TakeStored(), "");  // nothing was sent

    MIpcService missing;
    EXPECT_EQ(ipc.GetService(L"nobody", missing), 0xFFFFFFFFu);
    EXPECT_EQ(missing.SendCommand(L"store", "x", 1, 0), 0xFFFFFFFFu);
}

TEST(IpcAcrossProcesses, EventsReachSubscribersUntilTheyUnsubscribe) {
    ServerProcess server("srv");
    ASSERT_TRUE(server.Ready());
    MIpc ipc;
    MIpcService service;
    ASSERT_EQ(ipc.GetService(L"srv", service), 0u);
    g_news.clear();
    const int id = service.SubscribeEvent(L"news", OnNews);
    ASSERT_GT(id, 0);
    // The handler raises the event while this thread waits for it, so the
    // callback runs here during the send.
    ASSERT_EQ(service.SendCommand(L"raise", "extra", 6, 0), 0u);
    ASSERT_EQ(service.SendCommand(L"raise", nullptr, 0, 0), 0u);
    EXPECT_EQ(g_news, (std::vector<std::string>{"extra", "null"}));
    EXPECT_EQ(service.UnsubscribeEvent(id), 0u);
    ASSERT_EQ(service.SendCommand(L"raise", "late", 5, 0), 0u);
    EXPECT_FALSE(PumpWindowMessages(0));
    EXPECT_EQ(g_news.size(), 2u);
}

TEST(IpcAcrossProcesses, ServersEndWithTheirProcessesUnregistrationAndSendsToThemReturn) {
    {
        ServerProcess server("srv");
        ASSERT_TRUE(server.Ready());
        MIpcService service;
        MIpc ipc;
        ASSERT_EQ(ipc.GetService(L"srv", service), 0u);
        ASSERT_EQ(service.SendCommand(L"quit", nullptr, 0, 0), 0u);
        EXPECT_EQ(server.Process().Wait(), 0);  // it unregistered on the way out
        EXPECT_EQ(service.SendCommand(L"store", "x", 1, 0), 0xFFFFFFFFu);
    }
    ServerProcess killed("srv");
    ASSERT_TRUE(killed.Ready());
    MIpc ipc;
    MIpcService service;
    ASSERT_EQ(ipc.GetService(L"srv", service), 0u);
    KillAndReap(killed.Process());
    // The send returns, and says that nothing was delivered; the dead
    // server's record is then gone.
    EXPECT_EQ(service.SendCommand(L"store", "x", 1, 0), IPC_NOT_DELIVERED);
    EXPECT_EQ(ipc.GetService(L"srv", service), 0xFFFFFFFFu);
}

TEST(IpcAcrossProcesses, ProcessesStartingTogetherShareOneSectionAndOneIdCounter) {
    // This process stays away from the section until all of them run, so
    // that they race to create and initialise it.
    std::vector<std::unique_ptr<ServerProcess>> servers;
    for (int i = 0; i < 8; ++i) {
        servers.push_back(std::make_unique<ServerProcess>("race" + std::to_string(i)));
    }
    for (auto& server : servers) {
        ASSERT_TRUE(server->Ready());
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
    HelperProcess lister(IpcChild(), {"list"});
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
