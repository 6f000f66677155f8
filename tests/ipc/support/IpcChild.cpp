// The other process of the IPC tests. Commands:
//   server <name> <file>   registers server <name> with the commands "store"
//                          (appends a flag byte, 1 for a payload and 0 for none,
//                          and the 1,024 payload bytes to <file>), "raise" (raises
//                          the event "news" with the payload it got) and "quit",
//                          and the event "news"; adds the command "late" after
//                          registering; pumps until "quit", unregisters, exits 0
//   hold-lock              takes the directory lock and sleeps until killed
//   hold-window-lock       owns a window, takes the window table's lock and
//                          sleeps until killed
//   take-event             takes the directory lock's named event by a wait
//                          of its own and sleeps until killed
//   list                   lists the directory once and exits 0
//   churn <name> <target>  over and over: registers server <name> with a
//                          command and an event, lists, holds a data slot,
//                          opens and sets a named event, sends "store" to
//                          server <target>, unregisters; ready after the
//                          first round; runs until killed
//   hold-slot              puts a payload into a data slot and sleeps until
//                          killed
//   listen <server> <event>
//                          subscribes to the event and pumps until killed
//   call <server> <command> <text>
//                          ready once the server was found, then sends the
//                          command with <text> and its terminator; exits 0
//                          when it ran, 3 when it was not delivered, else 1
//   calls <server> <tag> <file>
//                          sends "store" with "<tag>-<n>" for n = 0, 1, ...
//                          and appends each text whose send returned 0 to
//                          <file>, one a line, every 2 ms; ready after the
//                          first; runs until killed
//   registry <tag> <file>  writes the DWORD value "<tag>-<n>" = n under
//                          HKCU\Campaign for n = 0, 1, ... and appends
//                          "<tag>-<n>" to <file> after each committed write,
//                          every 2 ms; ready after the first; runs until
//                          killed
//   fresh <server> <text>  what a process started after a kill does: lists
//                          the directory (exits 5 if a listed server's
//                          process is gone), sends "store" with <text> to
//                          <server> (6 unless it ran), writes and reads back
//                          a registry value (7 unless both succeeded); 0
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>

#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>
#include <kiv/system/MRegistry.h>

#include "ipc/IpcDirectory.h"
#include "platform/MessageWindow.h"
#include "platform/Waitable.h"
#include "support/HelperProcess.h"

namespace {

using namespace kiv::ipc;

std::string g_file;
MIpcServer* g_server = nullptr;

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
    g_server->SetEvent(L"news", text,
                       text == nullptr ? 0 : static_cast<unsigned>(std::strlen(text)));
    return 0;
}

int Late(void*) {
    return 0;
}

int Quit(void*) {
    PostQuitWindowMessage(0);
    return 0;
}

int Serve(const char* name, const char* file) {
    g_file = file;
    const std::wstring wide(name, name + std::strlen(name));
    MIpcServer server;
    g_server = &server;
    server.SetServerName(wide.c_str());
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
    ipc.UnregisterMyService(wide.c_str());
    return 0;
}

int Churn(const char* name, const char* target) {
    using namespace kiv::platform;
    const std::wstring wide(name, name + std::strlen(name));
    const std::wstring targetName(target, target + std::strlen(target));
    kiv::ipc::detail::IpcDirectory* directory = kiv::ipc::detail::IpcDirectory::Current();
    if (directory == nullptr) {
        return 4;
    }
    MIpc ipc;
    for (bool first = true;; first = false) {
        MIpcServer server;
        server.SetServerName(wide.c_str());
        server.AddCommand(L"late", Late, nullptr);
        server.AddEvent(L"news", nullptr);
        ipc.RegisterMyService(server);
        std::vector<MIpcService> list;
        ipc.GetServiceList(list);
        directory->ReleaseData(directory->PutData("churn", 6));
        Event event = Event::Create(L"campaign", EventReset::Automatic, false);
        event.Set();
        WaitFor(event, 0);
        MIpcService service;
        if (ipc.GetService(targetName.c_str(), service) == 0) {
            service.SendCommand(L"store", "c", 2, 0);
        }
        ipc.UnregisterMyService(wide.c_str());
        if (first) {
            kiv::test::ReportReady();
        }
    }
}

int Listen(const char* server, const char* event) {
    MIpcService service;
    const std::wstring name(server, server + std::strlen(server));
    const std::wstring wideEvent(event, event + std::strlen(event));
    if (MIpc().GetService(name.c_str(), service) != 0 ||
        service.SubscribeEvent(wideEvent.c_str(), Late) < 1) {
        return 4;
    }
    kiv::test::ReportReady();
    for (;;) {
        PumpWindowMessages(-1);
    }
}

int Call(const char* server, const char* command, const char* text) {
    MIpcService service;
    const std::wstring name(server, server + std::strlen(server));
    const std::wstring wideCommand(command, command + std::strlen(command));
    if (MIpc().GetService(name.c_str(), service) != 0) {
        return 4;
    }
    kiv::test::ReportReady();
    const unsigned rc = service.SendCommand(wideCommand.c_str(), text,
                                            static_cast<unsigned>(std::strlen(text) + 1), 0);
    return rc == 0 ? 0 : rc == IPC_NOT_DELIVERED ? 3 : 1;
}

// Appends one line to `file` with a single write: a process killed at any
// moment leaves whole lines only.
void AppendLine(int fd, const std::string& line) {
    const std::string text = line + "\n";
    (void)!write(fd, text.data(), text.size());
}

int Calls(const char* server, const char* tag, const char* file) {
    const int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    MIpcService service;
    const std::wstring name(server, server + std::strlen(server));
    if (fd < 0 || MIpc().GetService(name.c_str(), service) != 0) {
        return 4;
    }
    for (unsigned n = 0;; ++n) {
        const std::string text = std::string(tag) + "-" + std::to_string(n);
        if (service.SendCommand(L"store", text.c_str(), static_cast<unsigned>(text.size() + 1),
                                0) == 0) {
            AppendLine(fd, text);
        }
        if (n == 0) {
            kiv::test::ReportReady();
        }
        usleep(2000);  // leaves the machine to the others
    }
}

kiv::system::MRegistry CampaignKey() {
    kiv::system::MRegistry key;
    key.Create(HKEY_CURRENT_USER, L"Campaign", nullptr, 0, 0, nullptr, nullptr);
    return key;
}

int Registry(const char* tag, const char* file) {
    const int fd = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) {
        return 4;
    }
    kiv::system::MRegistry key = CampaignKey();
    for (unsigned n = 0;; ++n) {
        const std::string name = std::string(tag) + "-" + std::to_string(n);
        const std::wstring wide(name.begin(), name.end());
        if (key.SetValue(n, wide.c_str()) == 0) {
            AppendLine(fd, name);
        }
        if (n == 0) {
            kiv::test::ReportReady();
        }
        usleep(2000);  // leaves the machine to the others
    }
}

int Fresh(const char* server, const char* text) {
    std::vector<MIpcService> list;
    MIpc ipc;
    ipc.GetServiceList(list);
    for (MIpcService& service : list) {
        kiv::ipc::detail::Record copy{};
        kiv::ipc::detail::IpcDirectory* directory = kiv::ipc::detail::IpcDirectory::Current();
        const std::wstring name = service.GetServiceName();
        if (directory != nullptr &&
            directory->LookUp(std::u16string(name.begin(), name.end()), copy) >= 0 &&
            kill(static_cast<pid_t>(
                     kiv::ipc::detail::Bytes(copy).U32(kiv::ipc::detail::kProcessIdAt)),
                 0) != 0) {
            return 5;
        }
    }
    MIpcService service;
    const std::wstring name(server, server + std::strlen(server));
    if (ipc.GetService(name.c_str(), service) != 0 ||
        service.SendCommand(L"store", text, static_cast<unsigned>(std::strlen(text) + 1), 0) != 0) {
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
    if (argc >= 4 && std::strcmp(argv[1], "server") == 0) {
        return Serve(argv[2], argv[3]);
    }
    if (argc >= 2 && std::strcmp(argv[1], "hold-lock") == 0) {
        kiv::ipc::detail::IpcDirectory* directory = kiv::ipc::detail::IpcDirectory::Current();
        if (directory == nullptr) {
            return 4;
        }
        directory->LockDirectoryForever();
        kiv::test::ReportReady();
        for (;;) {
            pause();
        }
    }
    if (argc >= 2 && std::strcmp(argv[1], "hold-window-lock") == 0) {
        // Owns a window first, as a process of the campaign would.
        if (CreateMessageWindow(L"victim", L"",
                                [](HWND, unsigned, std::uintptr_t, std::intptr_t) -> std::intptr_t {
                                    return 0;
                                }) == nullptr ||
            !kiv::platform::HoldWindowTableLockForever()) {
            return 4;
        }
        kiv::test::ReportReady();
        for (;;) {
            pause();
        }
    }
    if (argc >= 2 && std::strcmp(argv[1], "take-event") == 0) {
        using namespace kiv::platform;
        Event event = Event::Create(L"KIV_IPC_MUTEX_EVENT", EventReset::Automatic, true);
        if (!event.IsValid() || WaitFor(event, kInfinite) != 0) {
            return 4;
        }
        kiv::test::ReportReady();
        for (;;) {
            pause();
        }
    }
    if (argc >= 2 && std::strcmp(argv[1], "hold-slot") == 0) {
        kiv::ipc::detail::IpcDirectory* directory = kiv::ipc::detail::IpcDirectory::Current();
        if (directory == nullptr || directory->PutData("mine", 5) == 0) {
            return 4;
        }
        kiv::test::ReportReady();
        for (;;) {
            pause();
        }
    }
    if (argc >= 4 && std::strcmp(argv[1], "churn") == 0) {
        return Churn(argv[2], argv[3]);
    }
    if (argc >= 4 && std::strcmp(argv[1], "listen") == 0) {
        return Listen(argv[2], argv[3]);
    }
    if (argc >= 5 && std::strcmp(argv[1], "call") == 0) {
        return Call(argv[2], argv[3], argv[4]);
    }
    if (argc >= 5 && std::strcmp(argv[1], "calls") == 0) {
        return Calls(argv[2], argv[3], argv[4]);
    }
    if (argc >= 4 && std::strcmp(argv[1], "registry") == 0) {
        return Registry(argv[2], argv[3]);
    }
    if (argc >= 4 && std::strcmp(argv[1], "fresh") == 0) {
        return Fresh(argv[2], argv[3]);
    }
    if (argc >= 2 && std::strcmp(argv[1], "list") == 0) {
        std::vector<MIpcService> list;
        MIpc().GetServiceList(list);
        return 0;
    }
    return 2;
}
