// Processes killed with SIGKILL at chosen points of their IPC use: after
// registering a server, while their payload waits in a data slot for the
// receiver, while subscribed, and in the middle of a listing. The library
// takes back what the dead held, and no live process is hurt.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>

#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"
#include "support/ListingKills.h"

namespace {

using namespace kiv::ipc;
using namespace kiv::ipc::detail;
using kiv::test::HelperProcess;

std::string Child() {
    return kiv::test::HelperPath("kiv_ipc_child");
}

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
            Child(), std::vector<std::string>{"server", "live", m_file});
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

    static void Kill(HelperProcess& victim) {
        victim.Kill();
        ASSERT_EQ(victim.Wait(), 128 + SIGKILL);
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
    // True when this process can fill all ten data slots.
    bool EverySlotFree() {
        std::vector<std::uint32_t> slots;
        for (int i = 0; i < kSlotCount; ++i) {
            slots.push_back(m_directory->PutData("free?", 6));
        }
        bool all = true;
        for (std::uint32_t slot : slots) {
            all = all && slot != 0;
            m_directory->ReleaseData(slot);
        }
        return all;
    }
    // The texts the live server's "store" handler got, in order.
    std::vector<std::string> Stored() {
        const std::string bytes = kiv::test::ReadFileBytes(m_file);
        std::vector<std::string> texts;
        for (std::size_t at = 0; at < bytes.size();) {
            if (bytes[at] == 0) {
                texts.emplace_back("(none)");
                at += 1;
            } else {
                texts.emplace_back(bytes.c_str() + at + 1);
                at += 1025;
            }
        }
        return texts;
    }

    std::string m_file = kiv::test::TempPath("live.bin");
    std::unique_ptr<HelperProcess> m_live;
    MIpc m_ipc;
    MIpcService m_service;
    IpcDirectory* m_directory = nullptr;
};

TEST_F(IpcDeadProcess, AServerKilledAfterRegisteringIsNeitherFoundNorListedNorInTheWayOfItsName) {
    HelperProcess ghost(Child(), {"server", "ghost", kiv::test::TempPath("ghost.bin")});
    ASSERT_TRUE(ghost.AwaitReady());
    Kill(ghost);
    ASSERT_EQ(m_directory->Section().I32(kServerCountAt), 2);  // nothing swept yet
    MIpcService service;
    EXPECT_EQ(m_ipc.GetService(L"ghost", service), 0xFFFFFFFFu);
    EXPECT_EQ(m_directory->Section().I32(kServerCountAt), 1);
    EXPECT_EQ(Listed(), std::vector<std::wstring>{L"live"});

    HelperProcess again(Child(), {"server", "ghost", kiv::test::TempPath("ghost.bin")});
    ASSERT_TRUE(again.AwaitReady());
    Kill(again);
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
            Child(), std::vector<std::string>{"call", "live", "store", text}));
        ASSERT_TRUE(callers.back()->AwaitReady());
    }
    // Each caller is killed once its payload is in a slot (the slot records
    // its holder), so while it waits for the server.
    const auto* trailer =
        reinterpret_cast<const SectionTrailer*>(m_directory->Section().Data() + kTrailerAt);
    std::set<int> holders;
    for (int tries = 0; tries < 3000 && holders.size() < callers.size(); ++tries) {
        holders.clear();
        for (const auto& holder : trailer->slotHolder) {
            holders.insert(static_cast<int>(static_cast<std::uint32_t>(holder.load())));
        }
        for (const auto& caller : callers) {
            if (holders.count(caller->Pid()) == 0) {
                holders.clear();
                usleep(2000);
                break;
            }
        }
    }
    ASSERT_EQ(holders.size(), callers.size()) << "the callers did not all fill a slot";
    for (auto& caller : callers) {
        Kill(*caller);
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
    const std::vector<std::string> stored = Stored();
    EXPECT_EQ(std::count(stored.begin(), stored.end(), "mine"), 1);
    std::multiset<std::string> theirs(stored.begin(), stored.end());
    theirs.erase("mine");
    for (const std::string& text : theirs) {
        EXPECT_EQ(sent.count(text), 1u) << text;
        EXPECT_EQ(theirs.count(text), 1u) << text;
    }
    EXPECT_TRUE(EverySlotFree());
    EXPECT_EQ(m_service.SendCommand(L"store", "after", 6, 0), 0u);
    EXPECT_EQ(Stored().back(), "after");
}

TEST_F(IpcDeadProcess, AListenerKilledWhileSubscribedIsNoLongerSentTheEvent) {
    HelperProcess listener(Child(), {"listen", "live", "news"});
    ASSERT_TRUE(listener.AwaitReady());
    g_news.clear();
    const int mine = m_service.SubscribeEvent(L"news", OnNews);
    ASSERT_GT(mine, 0);
    Record record{};
    ASSERT_GE(m_directory->LookUp(u"live", record), 0);
    const std::size_t news = EventAt(0);
    ASSERT_EQ(Bytes(record).I32(news + kSubscriberCountAt), 2);
    Kill(listener);
    // The server's handler raises the event; this thread runs the callback
    // while it waits.
    EXPECT_EQ(m_service.SendCommand(L"raise", "hello", 6, 0), 0u);
    EXPECT_EQ(g_news, std::vector<std::string>{"hello"});
    ASSERT_GE(m_directory->LookUp(u"live", record), 0);
    EXPECT_EQ(Bytes(record).I32(news + kSubscriberCountAt), 1);
    EXPECT_EQ(Bytes(record).I32(news + kSubscribersAt + kSubscriberIdAt), mine);
    EXPECT_TRUE(EverySlotFree());
}

TEST_F(IpcDeadProcess, ListingsKilledInTheMiddleOfSweepingAFullDirectoryWedgeNothing) {
    kiv::test::KillListingsOfAFullDirectory(30, 18);
}

}  // namespace
