// The other process of the IPC tests. "Until killed": reports readiness,
// then sleeps or loops until the test kills it. Commands:
//   server <name> <file>   registers <name> with the event "news" and the
//                          commands "store" (appends a flag byte, 1 for a
//                          payload and 0 for none, and the 1,024 payload bytes
//                          to <file>), "raise" (raises "news" with its payload)
//                          and "quit"; adds "late" after registering; pumps
//                          until "quit", unregisters, exits 0
//   hold-lock | hold-window-lock | hold-slot | take-event
//                          holds the directory lock, the window table's lock,
//                          a data slot, or the directory lock's named event
//                          (taken by a wait) until killed
//   churn <name> <target>  registers, lists, holds a slot, sets a named event,
//                          sends "store" to <target>, unregisters; until killed
//   listen <server> <event> subscribes and pumps until killed
//   call <server> <command> <text>
//                          ready once the server was found; sends <text> and
//                          its terminator; exits 0 if it ran, 3 if it was not
//                          delivered, else 1
//   calls | registry ...   every 2 ms sends "store" with "<tag>-<n>" to
//                          <server> (calls <server> <tag> <file>), or writes
//                          the DWORD "<tag>-<n>" = n under HKCU\Campaign
//                          (registry <tag> <file>), and appends "<tag>-<n>" to
//                          <file> once that succeeded; until killed
//   fresh <server> <text>  what a process started after a kill does: lists
//                          (5 if a listed server's process is gone), sends
//                          "store" with <text> (6 unless it ran), writes and
//                          reads back a registry value (7 unless both did); 0
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>
#include <kiv/system/MRegistry.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ipc/IpcDirectory.h"
#include "platform/MessageWindow.h"
#include "platform/Waitable.h"
#include "support/HelperProcess.h"

namespace {

using namespace kiv::ipc;
using kiv::ipc::detail::IpcDirectory;

std::string g_file;
MIpcServer* g_server = nullptr;

std::wstring Wide(const char* s) {
    return std::wstring(s, s + std::strlen(s));
}

unsigned Size(const char* text) {
    return static_cast<unsigned>(std::strlen(text) + 1);
}

int Store(void* payload) {
    std::FILE* f = std::fopen(g_file.c_str(), "ab");
    if (f == nullptr) {
        return 1;
    }
    const unsigned char flag = payload != nullptr ? 1 : 0;
    std::fwrite(&flag, 1, 1, f);
    if (payload != nullptr) {
        std::fwrite(payload, 1, 1024, f);
    }
    std::fclose(f);
    return 0;
}

int Raise(void* payload) {
    const char* text = static_cast<const char*>(payload);
    g_server->SetEvent(L"news", text, text == nullptr ? 0 : Size(text) - 1);
    return 0;
}

int Late(void*) {
    return 0;
}

int Quit(void*) {
    PostQuitWindowMessage(0);
    return 0;
}

// Reports readiness and sleeps until killed if `held`, else exits 4.
int HoldUntilKilled(bool held) {
    if (!held) {
        return 4;
    }
    kiv::test::ReportReady();
    for (;;) {
        pause();
    }
}

int Serve(const char* name, const char* file) {
    g_file = file;
    MIpcServer server;
    g_server = &server;
    server.SetServerName(Wide(name).c_str());
    server.AddCommand(L"store", Store, L"stores the payload");
    server.AddCommand(L"raise", Raise, L"raises news with the payload");
    server.AddCommand(L"quit", Quit, nullptr);
    server.AddEvent(L"news", L"what raise was given");
    MIpc ipc;
    if (ipc.RegisterMyService(server) != 0) {
        return 3;
    }
    server.AddCommand(L"late", Late, nullptr);  // not seen by clients
    kiv::test::ReportReady();
    PumpWindowMessages(-1);
    ipc.UnregisterMyService(Wide(name).c_str());
    return 0;
}

[[noreturn]] void Churn(const char* name, const char* target) {
    using namespace kiv::platform;
    MIpc ipc;
    for (bool first = true;; first = false) {
        MIpcServer server;
        server.SetServerName(Wide(name).c_str());
        server.AddCommand(L"late", Late, nullptr);
        server.AddEvent(L"news", nullptr);
        ipc.RegisterMyService(server);
        std::vector<MIpcService> list;
        ipc.GetServiceList(list);
        IpcDirectory::Current()->ReleaseData(IpcDirectory::Current()->PutData("churn", 6));
        Event event = Event::Create(L"campaign", EventReset::Automatic, false);
        event.Set();
        WaitFor(event, 0);
        MIpcService service;
        if (ipc.GetService(Wide(target).c_str(), service) == 0) {
            service.SendCommand(L"store", "c", 2, 0);
        }
        ipc.UnregisterMyService(Wide(name).c_str());
        if (first) {
            kiv::test::ReportReady();
        }
    }
}

int Listen(const char* server, const char* event) {
    MIpcService service;
    if (MIpc().GetService(Wide(server).c_str(), service) != 0 ||
        service.SubscribeEvent(Wide(event).c_str(), Late) < 1) {
        return 4;
    }
    kiv::test::ReportReady();
    for (;;) {
        PumpWindowMessages(-1);
    }
}

int Call(const char* server, const char* command, const char* text) {
    MIpcService service;
    if (MIpc().GetService(Wide(server).c_str(), service) != 0) {
        return 4;
    }
    kiv::test::ReportReady();
    const unsigned rc = service.SendCommand(Wide(command).c_str(), text, Size(text), 0);
    return rc == 0 ? 0 : rc == IPC_NOT_DELIVERED ? 3 : 1;
}

kiv::system::MRegistry CampaignKey() {
    kiv::system::MRegistry key;
    key.Create(HKEY_CURRENT_USER, L"Campaign", nullptr, 0, 0, nullptr, nullptr);
    return key;
}

// Every 2 ms (leaving the machine to the others) does `step` for
// "<tag>-<n>", n = 0, 1, ..., and appends each line whose step succeeded to
// `file` with a single write, so that a kill leaves whole lines only. Ready
// after the first step.
[[noreturn]] void EveryTwoMs(const char* tag, const char* file,
                             const std::function<bool(unsigned, const std::string&)>& step) {
    const int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    for (unsigned n = 0;; ++n) {
        const std::string text = std::string(tag) + "-" + std::to_string(n);
        const std::string line = text + "\n";
        if (step(n, text)) {
            (void)!write(fd, line.data(), line.size());
        }
        if (n == 0) {
            kiv::test::ReportReady();
        }
        usleep(2000);
    }
}

int Calls(const char* server, const char* tag, const char* file) {
    MIpcService service;
    if (MIpc().GetService(Wide(server).c_str(), service) != 0) {
        return 4;
    }
    EveryTwoMs(tag, file, [&](unsigned, const std::string& text) {
        return service.SendCommand(L"store", text.c_str(), Size(text.c_str()), 0) == 0;
    });
}

int Registry(const char* tag, const char* file) {
    kiv::system::MRegistry key = CampaignKey();
    EveryTwoMs(tag, file, [&](unsigned n, const std::string& text) {
        return key.SetValue(n, Wide(text.c_str()).c_str()) == 0;
    });
}

int Fresh(const char* server, const char* text) {
    using namespace kiv::ipc::detail;
    std::vector<MIpcService> list;
    MIpc ipc;
    ipc.GetServiceList(list);
    for (MIpcService& service : list) {
        Record copy{};
        const std::wstring name = service.GetServiceName();
        if (IpcDirectory::Current()->LookUp(std::u16string(name.begin(), name.end()), copy) >= 0 &&
            kill(static_cast<pid_t>(Bytes(copy).U32(kProcessIdAt)), 0) != 0) {
            return 5;
        }
    }
    MIpcService service;
    if (ipc.GetService(Wide(server).c_str(), service) != 0 ||
        service.SendCommand(L"store", text, Size(text), 0) != 0) {
        return 6;
    }
    kiv::system::MRegistry key = CampaignKey();
    unsigned value = 0;
    const unsigned pid = static_cast<unsigned>(getpid());
    return key.SetValue(pid, L"probe") == 0 && key.QueryValue(value, L"probe") == 0 && value == pid
               ? 0
               : 7;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace kiv::platform;
    const std::string command = argc >= 2 ? argv[1] : "";
    IpcDirectory* directory = IpcDirectory::Current();
    if (directory == nullptr) {
        return 4;
    }
    if (command == "hold-lock") {
        directory->LockDirectoryForever();
        return HoldUntilKilled(true);
    }
    if (command == "hold-window-lock") {
        const auto ignore = [](HWND, unsigned, std::uintptr_t, std::intptr_t) -> std::intptr_t {
            return 0;
        };
        return HoldUntilKilled(CreateMessageWindow(L"victim", L"", ignore) != nullptr &&
                               HoldWindowTableLockForever());
    }
    if (command == "take-event") {
        Event event = Event::Create(L"KIV_IPC_MUTEX_EVENT", EventReset::Automatic, true);
        return HoldUntilKilled(event.IsValid() && WaitFor(event, kInfinite) == 0);
    }
    if (command == "hold-slot") {
        return HoldUntilKilled(directory->PutData("mine", 5) != 0);
    }
    if (argc < 4) {
        return 2;
    }
    if (command == "server") {
        return Serve(argv[2], argv[3]);
    }
    if (command == "churn") {
        Churn(argv[2], argv[3]);
    }
    if (command == "listen") {
        return Listen(argv[2], argv[3]);
    }
    if (command == "registry") {
        return Registry(argv[2], argv[3]);
    }
    if (command == "fresh") {
        return Fresh(argv[2], argv[3]);
    }
    if (argc >= 5 && command == "call") {
        return Call(argv[2], argv[3], argv[4]);
    }
    if (argc >= 5 && command == "calls") {
        return Calls(argv[2], argv[3], argv[4]);
    }
    return 2;
}
