// The shared IPC directory within one process: the section's layout, the
// counting rules and quirks of servers, commands, events and subscribers,
// the data slots, and garbage in the section.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "ipc/IpcWindow.h"
#include "platform/Namespace.h"
#include "support/KivTestEnvironment.h"

namespace {

using namespace kiv::ipc;
using namespace kiv::ipc::detail;

IpcDirectory& Directory() {
    IpcDirectory* directory = IpcDirectory::Current();
    EXPECT_NE(directory, nullptr);
    return *directory;
}

// Captures the debugger texts of the test.
class DebugTexts {
public:
    DebugTexts() : m_path(kiv::test::TempPath("debug.txt")) {
        setenv("KIV_DEBUG_OUTPUT", m_path.c_str(), 1);
    }
    ~DebugTexts() { unsetenv("KIV_DEBUG_OUTPUT"); }
    std::string Take() {
        std::string texts = kiv::test::ReadFileBytes(m_path);
        unlink(m_path.c_str());
        return texts;
    }

private:
    std::string m_path;
};

std::vector<std::string> g_calls;

template <int N>
int Record(void* payload) {
    const auto* text = static_cast<const char*>(payload);
    g_calls.push_back(std::to_string(N) + ":" +
                      (text == nullptr ? "null" : std::string(text, strnlen(text, 1024))));
    return N;
}

std::vector<std::wstring> Names(const std::vector<_tagIpcObject>& list) {
    std::vector<std::wstring> names;
    for (const auto& o : list) {
        names.emplace_back(o.name);
    }
    return names;
}

MIpcServer NamedServer(const wchar_t* name) {
    MIpcServer server;
    server.SetServerName(name);
    return server;
}

// A server of this process registered under `name` with `events` (and with
// the command "c" if `command` is set), and the service that finds it.
struct Registered {
    Registered(const wchar_t* name, std::initializer_list<const wchar_t*> events,
               int (*command)(void*) = nullptr)
        : server(NamedServer(name)) {
        for (const wchar_t* event : events) {
            server.AddEvent(event, nullptr);
        }
        if (command != nullptr) {
            server.AddCommand(L"c", command, nullptr);
        }
        EXPECT_EQ(ipc.RegisterMyService(server), 0u);
        EXPECT_EQ(ipc.GetService(name, service), 0u);
    }
    MIpc ipc;
    MIpcServer server;
    MIpcService service;
};

TEST(IpcDirectory, TheSectionStartsZeroFilledAndRecordsLieWhereTheLayoutSays) {
    Bytes s = Directory().Section();
    struct stat st {};
    const std::string shm = "/dev/shm" + kiv::platform::SystemObjectName("section", L"IPC_Shar");
    ASSERT_EQ(stat(shm.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 81920);  // the 81,068-byte section and this build's trailer
    EXPECT_EQ(s.U32(kNextObjectIdAt), 1u);
    std::size_t nonZero = 0;
    for (std::size_t i = 0; i < kSectionSize; ++i) {
        nonZero += s.Byte(i) != 0 ? 1 : 0;
    }
    EXPECT_EQ(nonZero, 1u);

    MIpcServer server = NamedServer(L"alpha");
    EXPECT_EQ(server.AddCommand(L"go", Record<1>, L"starts it"), 0u);
    EXPECT_EQ(server.AddEvent(L"tick", L"every second"), 0u);
    MIpc ipc;
    ASSERT_EQ(ipc.RegisterMyService(server), 0u);

    const std::size_t r = kServersAt;
    EXPECT_EQ(s.I32(kServerCountAt), 1);
    EXPECT_EQ(s.U32(kNextObjectIdAt), 2u);
    const std::uint32_t window = s.U32(r + 0);
    EXPECT_NE(window, 0u);
    EXPECT_EQ(s.U32(r + 4), static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(s.Text(r + 8, 32), std::u16string(u"alpha"));
    EXPECT_EQ(s.Byte(r + 8), 'a');  // UTF-16LE
    EXPECT_EQ(s.Byte(r + 9), 0);
    EXPECT_EQ(s.I32(r + 72), 1);
    EXPECT_EQ(s.I32(r + 76), 1);
    EXPECT_EQ(s.U32(r + 80), 1u);  // the first id ever handed out
    EXPECT_EQ(s.Text(r + 84, 32), std::u16string(u"go"));
    EXPECT_EQ(s.Text(r + 148, 64), std::u16string(u"starts it"));
    EXPECT_NE(s.U32(r + 276), 0u);  // a token, not an address
    EXPECT_EQ(s.Text(r + 1080, 32), std::u16string(u"tick"));
    EXPECT_EQ(s.Text(r + 1144, 64), std::u16string(u"every second"));

    // The process's IPC window: class name the process id in hexadecimal.
    wchar_t className[16];
    std::swprintf(className, 16, L"%08x", static_cast<unsigned>(getpid()));
    EXPECT_EQ(FindMessageWindow(className, L""),
              reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window)));
}

TEST(IpcDirectory, CommandsAndEventsCountReAddsAndRemovalsWithTheirQuirks) {
    DebugTexts debug;
    MIpcServer server = NamedServer(L"commands");
    EXPECT_EQ(server.AddCommand(L"a", Record<1>, nullptr), 0u);
    EXPECT_EQ(server.AddCommand(L"b", Record<2>, L""), 1u);
    EXPECT_EQ(server.AddCommand(L"a", Record<3>, nullptr), 0u);  // overwrites, still counts
    std::vector<_tagIpcObject> list;
    server.GetCommandList(list);
    EXPECT_EQ(Names(list), (std::vector<std::wstring>{L"a", L"b", L""}));
    const Bytes r(*static_cast<kiv::ipc::detail::Record*>(server.GetServerInfo()));
    EXPECT_EQ(r.U32(CommandAt(0)), 3u);  // ids 1 and 2 went to the first a and b
    EXPECT_EQ(r.U32(CommandAt(1)), 2u);

    EXPECT_EQ(server.AddCommand(L"c", Record<4>, nullptr), 3u);
    EXPECT_EQ(server.AddCommand(L"d", Record<5>, nullptr), 4u);
    EXPECT_EQ(server.AddCommand(L"e", Record<6>, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(debug.Take(), "Over max msg IMC_SERVICE\n");
    EXPECT_EQ(server.AddCommand(L"", Record<6>, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(server.AddCommand(L"f", nullptr, nullptr), 0xFFFFFFFFu);

    server.RemoveCommand(L"d");  // the last: removed
    server.GetCommandList(list);
    EXPECT_EQ(Names(list), (std::vector<std::wstring>{L"a", L"b", L"", L"c"}));
    server.RemoveCommand(L"a");  // not the last: the last one goes instead
    server.GetCommandList(list);
    EXPECT_EQ(Names(list), (std::vector<std::wstring>{L"a", L"b", L""}));

    // Events: five at most, 0 when full, removed only once registered.
    MIpcServer events = NamedServer(L"events");
    for (unsigned i = 0; i < 5; ++i) {
        const std::wstring name = L"e" + std::to_wstring(i);
        EXPECT_EQ(events.AddEvent(name.c_str(), nullptr), i);
    }
    EXPECT_EQ(events.AddEvent(L"e5", nullptr), 0u);  // full: 0, not -1
    EXPECT_EQ(debug.Take(), "Over max event IMC_SERVICE\n");
    events.RemoveEvent(L"e4");  // not registered: judged against no shared record
    events.GetEventList(list);
    EXPECT_EQ(list.size(), 5u);

    MIpcServer other = NamedServer(L"other events");
    other.AddEvent(L"x", nullptr);
    EXPECT_EQ(other.AddEvent(L"x", nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(debug.Take(), "Server has the event service!\n");

    MIpc ipc;
    ASSERT_EQ(ipc.RegisterMyService(events), 0u);
    events.RemoveEvent(L"e4");
    const Bytes e(*static_cast<kiv::ipc::detail::Record*>(events.GetServerInfo()));
    EXPECT_EQ(e.I32(kEventCountAt), 4);  // the private record only
    MIpcService service;
    ASSERT_EQ(ipc.GetService(L"events", service), 0u);
    service.GetEventList(list);
    EXPECT_EQ(list.size(), 5u);
    events.AddCommand(L"late", Record<1>, nullptr);  // after registering: private only
    service.GetCommandList(list);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(service.SendCommand(L"late", nullptr, 0, 0), 0xFFFFFFFFu);
}

TEST(IpcDirectory, ThirtyServersWithUniqueNamesAndEveryListedServiceStaysUsable) {
    MIpc ipc;
    for (int i = 0; i < 30; ++i) {
        MIpcServer server = NamedServer((L"s" + std::to_wstring(i)).c_str());
        ASSERT_EQ(ipc.RegisterMyService(server), 0u) << i;
    }
    MIpcServer extra = NamedServer(L"s30");
    EXPECT_EQ(ipc.RegisterMyService(extra), 0xFFFFFFFFu);
    EXPECT_EQ(ipc.UnregisterMyService(L"s0"), 0u);
    MIpcServer duplicate = NamedServer(L"s7");
    EXPECT_EQ(ipc.RegisterMyService(duplicate), 0xFFFFFFFFu);
    EXPECT_EQ(ipc.UnregisterMyService(L"nobody"), 0u);

    std::vector<MIpcService> list;
    EXPECT_EQ(ipc.GetServiceList(list), 29u);
    std::vector<MIpcService> copy = list;  // copies share, the originals go
    list.clear();
    for (int i = 0; i < 29; ++i) {
        EXPECT_EQ(std::wstring(copy[i].GetServiceName()), L"s" + std::to_wstring(i + 1));
    }
    MIpcServer mine;
    EXPECT_EQ(ipc.GetServer(L"s12", mine), 0u);
    EXPECT_EQ(std::wstring(mine.GetServerName()), L"s12");
    EXPECT_EQ(ipc.GetServer(L"s0", mine), 0xFFFFFFFFu);
}

TEST(IpcDirectory, SubscriptionsAreFivePerEventAndASecondOfOneCallbackGivesTheFirstId) {
    Registered news(L"news", {L"first", L"second"});
    MIpcService& service = news.service;
    const int a = service.SubscribeEvent(L"first", Record<1>);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(service.SubscribeEvent(L"first", Record<1>), a);
    EXPECT_EQ(service.SubscribeEvent(L"first", Record<2>), 2);
    EXPECT_EQ(service.SubscribeEvent(L"first", Record<3>), 3);
    EXPECT_EQ(service.SubscribeEvent(L"first", Record<4>), 4);
    EXPECT_EQ(service.SubscribeEvent(L"first", Record<5>), 5);
    EXPECT_EQ(service.SubscribeEvent(L"first", Record<6>), -1);
    EXPECT_EQ(service.SubscribeEvent(L"none", Record<6>), -1);
    EXPECT_EQ(service.SubscribeEvent(L"first", nullptr), -1);

    // Raised by the thread that owns this process's IPC window: the
    // callbacks run directly, in slot order, with the payload.
    g_calls.clear();
    EXPECT_EQ(news.server.SetEvent(L"first", "hi", 3), 0u);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"1:hi", "2:hi", "3:hi", "4:hi", "5:hi"}));
    g_calls.clear();
    news.server.SetEvent(L"first", nullptr, 5);
    EXPECT_EQ(g_calls.front(), "1:null");
    g_calls.clear();
    news.server.SetEvent(L"unknown", "x", 2);
    EXPECT_TRUE(g_calls.empty());
}

TEST(IpcDirectory, CutsOfNamesAndDescriptionsNeverEndInHalfASurrogatePair) {
    // U+1F600 is two UTF-16 units; placed across each field's last unit.
    const std::wstring description = std::wstring(62, L'd') + L"\U0001F600";
    const std::wstring name = std::wstring(30, L'n') + L"\U0001F600";
    MIpcServer server = NamedServer(L"cuts");
    ASSERT_EQ(server.AddCommand(name.c_str(), Record<1>, description.c_str()), 0u);
    ASSERT_EQ(server.AddEvent(name.c_str(), description.c_str()), 0u);
    auto& record = *static_cast<kiv::ipc::detail::Record*>(server.GetServerInfo());
    const Bytes r(record);
    const std::u16string kept = r.Text(CommandAt(0) + kCommandDescriptionAt, kDescriptionChars);
    EXPECT_EQ(kept, std::u16string(62, u'd'));
    EXPECT_EQ(r.Text(EventAt(0) + kEventDescriptionAt, kDescriptionChars), kept);
    EXPECT_EQ(r.Text(CommandAt(0) + kCommandNameAt, kNameChars), std::u16string(30, u'n'));
    EXPECT_EQ(r.Text(EventAt(0) + kEventNameAt, kNameChars), std::u16string(30, u'n'));
}

TEST(IpcDirectory, ASubscriberCountOfIntMaxInTheSectionWrapsWithoutOverflow) {
    Registered huge(L"huge", {L"e"});
    Bytes s = Directory().Section();
    const std::size_t countAt = RecordAt(0) + EventAt(0) + kSubscriberCountAt;
    s.SetI32(countAt, INT32_MAX);
    EXPECT_GT(huge.service.SubscribeEvent(L"e", Record<1>), 0);
    EXPECT_EQ(s.U32(countAt), 0x80000000u);
}

TEST(IpcDirectory, UnsubscribeMovesAndClearsWithA256ByteStride) {
    Registered stride(L"stride", {L"first", L"second"});
    MIpcService& service = stride.service;
    const int ids[3] = {service.SubscribeEvent(L"first", Record<1>),
                        service.SubscribeEvent(L"first", Record<2>),
                        service.SubscribeEvent(L"first", Record<3>)};
    Bytes s = Directory().Section();
    const std::size_t r = kServersAt;
    const std::uint32_t callback2 = s.U32(r + SubscriberAt(0, 1) + 8);
    EXPECT_EQ(service.UnsubscribeEvent(ids[0]), 0u);
    EXPECT_EQ(s.I32(r + EventAt(0) + kSubscriberCountAt), 2);
    EXPECT_EQ(s.I32(r + SubscriberAt(0, 0)), ids[1]);
    EXPECT_EQ(s.U32(r + SubscriberAt(0, 0) + 8), callback2);
    EXPECT_EQ(s.I32(r + SubscriberAt(0, 1)), ids[2]);
    EXPECT_EQ(s.I32(r + SubscriberAt(0, 2)), 0);
    // The move and the clear ran 256 bytes per entry, over the next event.
    EXPECT_EQ(s.Text(r + EventAt(1), 32), std::u16string(u""));
    EXPECT_EQ(service.SubscribeEvent(L"second", Record<4>), -1);
}

TEST(IpcDirectory, DataSlotsKeepAt1023BytesRunOutAfterTenAndThenCommandsWithPayloadsFail) {
    Registered slots7(L"slots", {}, Record<7>);
    IpcDirectory& d = Directory();
    std::vector<unsigned char> big(2000);
    for (std::size_t i = 0; i < big.size(); ++i) {
        big[i] = static_cast<unsigned char>(i * 7 + 1);
    }
    EXPECT_EQ(d.PutData(big.data(), 0), 0u);
    std::vector<std::uint32_t> slots;
    for (int i = 0; i < kSlotCount; ++i) {
        slots.push_back(d.PutData(big.data(), 2000));
        ASSERT_NE(slots.back(), 0u);
    }
    EXPECT_EQ(d.PutData(big.data(), 1), 0u);
    const auto* payload = static_cast<const unsigned char*>(d.Payload(slots[3]));
    ASSERT_NE(payload, nullptr);
    EXPECT_TRUE(std::equal(payload, payload + 1023, big.begin()));
    EXPECT_EQ(payload[1023], 0);
    EXPECT_EQ(d.Payload(slots[3] + 1), nullptr);
    EXPECT_EQ(d.Payload(1), nullptr);
    // A command whose payload finds no slot fails without running its handler.
    g_calls.clear();
    EXPECT_EQ(slots7.service.SendCommand(L"c", "x", 2, 0), IPC_NOT_DELIVERED);
    EXPECT_TRUE(g_calls.empty());
    EXPECT_EQ(slots7.service.SendCommand(L"c", nullptr, 0, 0), 0u);  // no payload, no slot
    d.ReleaseData(slots[3]);
    EXPECT_EQ(slots7.service.SendCommand(L"c", "x", 2, 0), 0u);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"7:null", "7:x"}));
    EXPECT_EQ(d.PutData(big.data(), 3), slots[3]);
    for (std::uint32_t slot : slots) {
        d.ReleaseData(slot);
    }
}

TEST(IpcDirectory, GarbageInTheSectionMakesNoOperationLeaveIt) {
    IpcDirectory& d = Directory();
    Bytes s = d.Section();
    MIpc ipc;
    // Everything mapped beyond the section is compared with what it held
    // before, the locks and the slots' fill counters excepted (their bytes
    // change with every use).
    const Bytes all(s.Data(), kMappedSize);
    const std::size_t locksAt = kTrailerAt + offsetof(SectionTrailer, directoryLock);
    const std::size_t locksEnd =
        kTrailerAt + offsetof(SectionTrailer, dataLock) + sizeof(kiv::platform::SharedLock);
    const std::size_t serialsAt = kTrailerAt + offsetof(SectionTrailer, slotSerial);
    const std::size_t serialsEnd = serialsAt + sizeof(SectionTrailer::slotSerial);
    std::vector<std::uint8_t> before;
    std::vector<std::uint8_t> after;
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        for (std::size_t i = 0; i < kSectionSize; ++i) {
            s.SetByte(i, static_cast<std::uint8_t>(random()));
        }
        // Counts that look almost right are the dangerous ones.
        if (seed % 2 == 0) {
            s.SetI32(kServerCountAt, static_cast<std::int32_t>(random() % 40) - 5);
            for (int i = 0; i < kMaxServers; ++i) {
                s.SetI32(RecordAt(i) + kCommandCountAt,
                         static_cast<std::int32_t>(random() % 9) - 2);
                s.SetI32(RecordAt(i) + kEventCountAt, static_cast<std::int32_t>(random() % 9) - 2);
                for (int e = 0; e < kMaxEvents; ++e) {
                    s.SetI32(RecordAt(i) + EventAt(e) + kSubscriberCountAt,
                             static_cast<std::int32_t>(random() % 9) - 2);
                }
            }
        }
        const std::u16string firstName = s.Text(RecordAt(0) + kNameAt, kNameChars);
        const std::wstring first(firstName.begin(), firstName.end());
        std::vector<MIpcService> list;
        EXPECT_LE(ipc.GetServiceList(list), 30u);
        MIpcService service;
        ipc.GetService(first.c_str(), service);
        service.SendCommand(L"x", "payload", 8, 0);
        const int id = service.SubscribeEvent(L"y", Record<1>);
        service.UnsubscribeEvent(id);
        service.UnsubscribeEvent(static_cast<int>(random()));
        std::vector<_tagIpcObject> objects;
        service.GetCommandList(objects);
        service.GetEventList(objects);
        MIpcServer server = NamedServer(L"garbage");
        server.AddCommand(L"c", Record<2>, L"d");
        server.AddEvent(L"e", L"f");
        ipc.RegisterMyService(server);
        server.SetEvent(L"e", "z", 2);
        server.RemoveEvent(L"e");
        server.RemoveCommand(L"c");
        d.Resolve(static_cast<std::uint32_t>(random()));
        d.ReleaseData(d.PutData("q", 1));
        ipc.UnregisterMyService(first.c_str());
        ipc.UnregisterMyService(L"garbage");
        // The first round hands out this process's tokens; from then on
        // nothing beyond the section may change.
        std::vector<std::uint8_t>& bytes = seed == 1 ? before : after;
        bytes.clear();
        for (std::size_t i = kSectionSize; i < kMappedSize; ++i) {
            if ((i < locksAt || i >= locksEnd) && (i < serialsAt || i >= serialsEnd)) {
                bytes.push_back(all.Byte(i));
            }
        }
    }
    EXPECT_EQ(after, before);
    for (std::size_t i = kSectionSize; i < kTrailerAt; ++i) {
        EXPECT_EQ(all.Byte(i), 0) << i;
    }
}

}  // namespace
