// Processes killed with SIGKILL at chosen points of their IPC use: after
// registering a server, while their payload waits in a data slot for the
// receiver, and while subscribed. The library takes back what the dead held,
// and no live process is hurt.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>

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
class IpcDeadProcess : public ::testing::Test {
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

TEST_F(IpcDeadProcess, AServerKilledAfterRegisteringIsNeitherFoundNorListedNorInTheWayOfItsName) {
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
    KillAndReap(again);
    MIpcServer server;
    server.SetServerName(L"ghost");
    EXPECT_EQ(m_ipc.RegisterMyService(server), 0u);  // the name was the dead one's
    EXPECT_EQ(m_ipc.GetServer(L"ghost", server), 0u);
    EXPECT_EQ(Listed(), (std::vector<std::wstring>{L"live", L"ghost"}));
}

TEST_F(IpcDeadProcess, PayloadsOfSendersKilledBeforeTheReceiverCopiedThemFreeTheirSlots) {
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

TEST_F(IpcDeadProcess, AListenerKilledWhileSubscribedIsNoLongerSentTheEvent) {
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
    EXPECT_EQ(g_news, std::vector<std::string>{"hello"});
    ASSERT_GE(m_directory->LookUp(u"live", record), 0);
    EXPECT_EQ(Bytes(record).I32(news + kSubscriberCountAt), 1);
    EXPECT_EQ(Bytes(record).I32(news + kSubscribersAt + kSubscriberIdAt), mine);
    EXPECT_TRUE(EverySlotFree());
}

}  // namespace
