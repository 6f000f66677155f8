// kivipc: lists, calls, listens to and serves the IPC servers of the
// processes that share this KIV_NAMESPACE. See Usage() or --help.
#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>

#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "foundation/Text.h"
#include "ipc/IpcDirectory.h"

namespace {

using namespace kiv::ipc;

constexpr std::size_t kPayloadSize = 1024;

volatile sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void Usage(std::FILE* out) {
    std::fputs(
        "Usage: kivipc COMMAND [ARGUMENTS]\n"
        "Talks to the IPC servers of the processes that share KIV_NAMESPACE.\n"
        "\n"
        "  list                           servers with their process, commands and events\n"
        "  call SERVER COMMAND [PAYLOAD]  runs a command of a server and waits until its\n"
        "                                 handler ran; PAYLOAD is TEXT (sent with its\n"
        "                                 terminating zero), --hex BYTES (\"48 69\" or \"4869\")\n"
        "                                 or --file FILE; at most 1,023 bytes arrive\n"
        "  listen SERVER EVENT            prints the payload of each event until interrupted\n"
        "  serve NAME                     a demo server: commands \"echo\" (prints the payload\n"
        "                                 and raises the event \"echo\" with it) and \"quit\";\n"
        "                                 events \"tick\" (once a second) and \"echo\"\n"
        "\n"
        "Example, in two terminals:\n"
        "  one$ kivipc serve demo\n"
        "  two$ kivipc listen demo tick\n"
        "and then, in either or a third:\n"
        "  $ kivipc list\n"
        "  $ kivipc call demo echo \"hello\"\n"
        "\n"
        "A payload carries no length: listeners print it as text up to its first zero\n"
        "when it is text, else as hexadecimal bytes up to its last non-zero byte.\n",
        out);
}

std::wstring Wide(const char* s) {
    return kiv::text::FromUtf8(s);
}

std::string Narrow(const wchar_t* s) {
    return kiv::text::ToUtf8(s);
}

// --- payloads -----------------------------------------------------------------

bool ParseHex(const char* text, std::vector<unsigned char>* out) {
    int high = -1;
    for (const char* p = text; *p != '\0'; ++p) {
        const char c = *p;
        if (c == ' ' || c == ':' || c == ',') {
            continue;
        }
        int v;
        if (c >= '0' && c <= '9') {
            v = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            v = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            v = c - 'A' + 10;
        } else {
            return false;
        }
        if (high < 0) {
            high = v;
        } else {
            out->push_back(static_cast<unsigned char>(high << 4 | v));
            high = -1;
        }
    }
    return high < 0;
}

// Text when it is valid UTF-8 without control characters up to its first
// zero, else the bytes up to the last non-zero one in hexadecimal.
std::string Describe(const void* payload) {
    if (payload == nullptr) {
        return "(no payload)";
    }
    const auto* bytes = static_cast<const unsigned char*>(payload);
    const std::size_t textLength = strnlen(reinterpret_cast<const char*>(bytes), kPayloadSize);
    const std::string text(reinterpret_cast<const char*>(bytes), textLength);
    bool printable = textLength > 0;
    for (unsigned char c : text) {
        printable = printable && (c >= 0x20 || c == '\t') && c != 0x7F;
    }
    std::size_t last = kPayloadSize;
    while (last > 0 && bytes[last - 1] == 0) {
        --last;
    }
    if (printable && last == textLength && kiv::text::ToUtf8(kiv::text::FromUtf8(text)) == text) {
        return text;
    }
    if (last == 0) {
        return "(1,024 zero bytes)";
    }
    std::string hex;
    char buffer[4];
    for (std::size_t i = 0; i < last; ++i) {
        std::snprintf(buffer, sizeof buffer, i == 0 ? "%02x" : " %02x", bytes[i]);
        hex += buffer;
    }
    return "hex: " + hex;
}

std::size_t UsedLength(const void* payload) {
    const auto* bytes = static_cast<const unsigned char*>(payload);
    std::size_t last = kPayloadSize;
    while (last > 0 && bytes[last - 1] == 0) {
        --last;
    }
    return last;
}

// --- commands -------------------------------------------------------------------

bool FindService(const char* name, MIpcService* service) {
    MIpc ipc;
    if (ipc.GetService(Wide(name).c_str(), *service) == 0) {
        return true;
    }
    std::fprintf(stderr, "kivipc: no server named \"%s\" (\"kivipc list\" shows the servers)\n",
                 name);
    return false;
}

std::string Joined(const std::vector<_tagIpcObject>& objects) {
    std::string names;
    for (const auto& o : objects) {
        names += (names.empty() ? "" : ", ") + Narrow(o.name);
    }
    return names.empty() ? "none" : names;
}

bool Has(const std::vector<_tagIpcObject>& objects, const char* name) {
    const std::wstring wide = Wide(name);
    for (const auto& o : objects) {
        if (wide == o.name) {
            return true;
        }
    }
    return false;
}

int List() {
    kiv::ipc::detail::IpcDirectory* directory = kiv::ipc::detail::IpcDirectory::Current();
    if (directory == nullptr) {
        std::fputs("kivipc: the IPC section cannot be opened\n", stderr);
        return 1;
    }
    // The records themselves, for the process ids a service does not tell.
    std::vector<kiv::ipc::detail::Record> records = directory->Records();
    if (records.empty()) {
        std::puts("no servers");
        return 0;
    }
    for (kiv::ipc::detail::Record& record : records) {
        MIpcService service;
        service.SetServerInfo(record.data());
        const unsigned pid = kiv::ipc::detail::Bytes(record).U32(kiv::ipc::detail::kProcessIdAt);
        std::printf("%s (process %u)\n", Narrow(service.GetServiceName()).c_str(), pid);
        std::vector<_tagIpcObject> commands;
        std::vector<_tagIpcObject> events;
        service.GetCommandList(commands);
        service.GetEventList(events);
        for (const auto& c : commands) {
            std::printf("  command %-16s %s\n", Narrow(c.name).c_str(),
                        Narrow(c.description).c_str());
        }
        for (const auto& e : events) {
            std::printf("  event   %-16s %s\n", Narrow(e.name).c_str(),
                        Narrow(e.description).c_str());
        }
    }
    return 0;
}

int Call(int argc, char** argv) {
    if (argc < 4) {
        Usage(stderr);
        return 2;
    }
    MIpcService service;
    if (!FindService(argv[2], &service)) {
        return 1;
    }
    std::vector<_tagIpcObject> commands;
    service.GetCommandList(commands);
    if (!Has(commands, argv[3])) {
        std::fprintf(stderr, "kivipc: server \"%s\" has no command \"%s\" (its commands: %s)\n",
                     argv[2], argv[3], Joined(commands).c_str());
        return 1;
    }
    std::vector<unsigned char> payload;
    if (argc >= 6 && std::strcmp(argv[4], "--hex") == 0) {
        if (!ParseHex(argv[5], &payload)) {
            std::fprintf(stderr, "kivipc: \"%s\" is not a list of hexadecimal bytes\n", argv[5]);
            return 2;
        }
    } else if (argc >= 6 && std::strcmp(argv[4], "--file") == 0) {
        std::ifstream in(argv[5], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "kivipc: cannot read %s: %s\n", argv[5], std::strerror(errno));
            return 1;
        }
        payload.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    } else if (argc >= 5) {
        payload.assign(argv[4], argv[4] + std::strlen(argv[4]) + 1);
    }
    if (payload.size() > kPayloadSize - 1) {
        std::fprintf(stderr, "kivipc: %zu bytes given; only the first 1,023 arrive\n",
                     payload.size());
    }
    const unsigned rc = service.SendCommand(Wide(argv[3]).c_str(), payload.data(),
                                            static_cast<unsigned>(payload.size()), 0);
    if (rc == kiv::ipc::IPC_NOT_DELIVERED) {
        std::fprintf(stderr, "kivipc: %s was not delivered to \"%s\" (0x%08X)\n", argv[3], argv[2],
                     rc);
        return 1;
    }
    if (rc != 0) {
        std::fprintf(stderr, "kivipc: \"%s\" is no longer registered\n", argv[2]);
        return 1;
    }
    std::printf("sent %s to %s (%zu bytes)\n", argv[3], argv[2], payload.size());
    return 0;
}

const char* g_event = "";

int PrintEvent(void* payload) {
    std::printf("%s: %s\n", g_event, Describe(payload).c_str());
    std::fflush(stdout);
    return 0;
}

int Listen(int argc, char** argv) {
    if (argc < 4) {
        Usage(stderr);
        return 2;
    }
    MIpcService service;
    if (!FindService(argv[2], &service)) {
        return 1;
    }
    std::vector<_tagIpcObject> events;
    service.GetEventList(events);
    if (!Has(events, argv[3])) {
        std::fprintf(stderr, "kivipc: server \"%s\" has no event \"%s\" (its events: %s)\n",
                     argv[2], argv[3], Joined(events).c_str());
        return 1;
    }
    g_event = argv[3];
    CatchInterrupts();
    const int id = service.SubscribeEvent(Wide(argv[3]).c_str(), PrintEvent);
    if (id < 0) {
        std::fprintf(stderr, "kivipc: cannot subscribe to \"%s\" (five subscribers at most)\n",
                     argv[3]);
        return 1;
    }
    std::printf("listening to %s of %s; Ctrl-C ends\n", argv[3], argv[2]);
    std::fflush(stdout);
    while (g_stop == 0) {
        PumpWindowMessages(200);
    }
    service.UnsubscribeEvent(id);
    return 0;
}

MIpcServer* g_server = nullptr;

int Echo(void* payload) {
    std::printf("echo: %s\n", Describe(payload).c_str());
    std::fflush(stdout);
    const std::size_t length = payload == nullptr ? 0 : UsedLength(payload);
    g_server->SetEvent(L"echo", payload, static_cast<unsigned>(length));
    return 0;
}

int Quit(void*) {
    g_stop = 1;
    PostQuitWindowMessage(0);
    return 0;
}

int Serve(int argc, char** argv) {
    if (argc < 3) {
        Usage(stderr);
        return 2;
    }
    const std::wstring name = Wide(argv[2]);
    MIpcServer server;
    g_server = &server;
    if (server.SetServerName(name.c_str()) != 0) {
        Usage(stderr);
        return 2;
    }
    server.AddCommand(L"echo", Echo, L"prints the payload and raises \"echo\" with it");
    server.AddCommand(L"quit", Quit, L"stops the server");
    server.AddEvent(L"tick", L"\"tick N\", once a second");
    server.AddEvent(L"echo", L"the payload of each echo command");
    MIpc ipc;
    CatchInterrupts();
    if (ipc.RegisterMyService(server) != 0) {
        std::fprintf(stderr,
                     "kivipc: cannot register \"%s\": the name is taken or 30 servers exist\n",
                     argv[2]);
        return 1;
    }
    std::printf("serving %s; Ctrl-C ends\n", argv[2]);
    std::fflush(stdout);
    using Clock = std::chrono::steady_clock;
    auto next = Clock::now() + std::chrono::seconds(1);
    unsigned tick = 0;
    while (g_stop == 0) {
        const auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now());
        PumpWindowMessages(wait.count() > 0 ? static_cast<int>(wait.count()) : 0);
        if (Clock::now() >= next) {
            const std::string text = "tick " + std::to_string(++tick);
            server.SetEvent(L"tick", text.c_str(), static_cast<unsigned>(text.size() + 1));
            next += std::chrono::seconds(1);
        }
    }
    ipc.UnregisterMyService(name.c_str());
    std::printf("%s unregistered\n", argv[2]);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        Usage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    const std::string command = argv[1];
    if (command == "list") {
        return List();
    }
    if (command == "call") {
        return Call(argc, argv);
    }
    if (command == "listen") {
        return Listen(argc, argv);
    }
    if (command == "serve") {
        return Serve(argc, argv);
    }
    std::fprintf(stderr, "kivipc: unknown command \"%s\"\n", argv[1]);
    Usage(stderr);
    return 2;
}
