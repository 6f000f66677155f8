// KivGPS: the GPS daemon. It owns the receiver through MGPSConnect and runs
// until it is told to stop. Clients steer it through the GPS registry key:
// "COMPORT", "BAUDRATE", "DEMO_FILE" and "FILE_PATH" choose the receiver and
// the sentence log, "ANY_TALKER" (non-zero) accepts the talkers of
// multi-constellation receivers (a change restarts the connection), and a non-empty
// "COMMAND" is sent to the receiver and cleared. One daemon runs per
// KIV_NAMESPACE.
//
// The settings are looked at every 100 ms, but read only when the registry's
// change stamps of their values have moved: an idle daemon, or one whose
// parser writes a fix every few milliseconds, does no registry reads.
#include <kiv/gps/MGPSConnect.h>
#include <kiv/system/MRegistry.h>

#include <signal.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "platform/InstanceLock.h"
#include "platform/Namespace.h"
#include "platform/RegistryStore.h"

namespace {

constexpr const wchar_t* kGpsKey = L"Software\\Tarvo\\KivFramework\\GPS";
constexpr auto kPollInterval = std::chrono::milliseconds(100);

std::atomic<bool> g_stop{false};

void OnStopSignal(int) {
    g_stop = true;
}

struct Settings {
    unsigned int port = 4;
    unsigned int baudRate = 4800;
    std::wstring demoFile;
    std::wstring logFile;
    bool anyTalker = false;

    bool operator==(const Settings&) const = default;
};

std::wstring ReadString(kiv::system::MRegistry& key, const wchar_t* name) {
    wchar_t buffer[1024] = {};
    unsigned int size = sizeof buffer;
    if (key.QueryValue(buffer, name, &size) != 0) {
        return {};
    }
    buffer[1023] = L'\0';
    return buffer;
}

Settings ReadSettings(kiv::system::MRegistry& key) {
    Settings s;
    unsigned int value = 0;
    if (key.QueryValue(value, L"COMPORT") == 0) {
        s.port = value;
    }
    if (key.QueryValue(value, L"BAUDRATE") == 0) {
        s.baudRate = value;
    }
    if (key.QueryValue(value, L"ANY_TALKER") == 0) {
        s.anyTalker = value != 0;
    }
    s.demoFile = ReadString(key, L"DEMO_FILE");
    s.logFile = ReadString(key, L"FILE_PATH");
    return s;
}

// The values the daemon reacts to.
constexpr std::array<const wchar_t*, 6> kWatched = {L"COMPORT",   L"BAUDRATE",  L"ANY_TALKER",
                                                    L"DEMO_FILE", L"FILE_PATH", L"COMMAND"};

// Their change stamps; empty when the store keeps none (then every look reads).
class SettingsWatch {
public:
    SettingsWatch() {
        if (kiv::platform::RegistryStore::OpenKey(HKEY_CURRENT_USER, kGpsKey, &m_key) != 0) {
            m_key = nullptr;
        }
    }
    ~SettingsWatch() {
        if (m_key != nullptr) {
            kiv::platform::RegistryStore::CloseKey(m_key);
        }
    }
    SettingsWatch(const SettingsWatch&) = delete;
    SettingsWatch& operator=(const SettingsWatch&) = delete;

    /// True when a watched value may have changed since the last call (and
    /// on the first call). Taken before the values are read, so a write
    /// that lands during the read is seen at the next look.
    bool Moved() {
        std::array<std::uint32_t, kWatched.size()> now{};
        for (std::size_t i = 0; i < kWatched.size(); ++i) {
            if (m_key == nullptr ||
                !kiv::platform::RegistryStore::ChangeStamp(m_key, kWatched[i], now[i])) {
                return true;
            }
        }
        const bool moved = !m_valid || now != m_last;
        m_last = now;
        m_valid = true;
        return moved;
    }

private:
    HKEY m_key = nullptr;
    std::array<std::uint32_t, kWatched.size()> m_last{};
    bool m_valid = false;
};

std::unique_ptr<kiv::gps::MGPSConnect> Start(const Settings& s) {
    auto connect = std::make_unique<kiv::gps::MGPSConnect>();
    connect->SetComPort(s.port, s.baudRate);
    connect->SetDemoFile(s.demoFile.c_str());
    connect->SetLogFile(s.logFile.c_str());
    connect->SetAnyTalker(s.anyTalker);
    if (!connect->BeginProc()) {
        std::fprintf(stderr, "KivGPS: the receiver could not be opened (port %u, %u baud%s%ls)\n",
                     s.port, s.baudRate, s.demoFile.empty() ? "" : ", demo file ",
                     s.demoFile.c_str());
    }
    return connect;
}

void Usage() {
    std::printf(
        "usage: KivGPS [--help] [--version]\n"
        "The GPS daemon: reads the receiver (or a demo file) and publishes position, time\n"
        "and satellites under HKEY_CURRENT_USER\\%ls for the GPS clients.\n"
        "Settings are read from that key: COMPORT, BAUDRATE, DEMO_FILE, FILE_PATH,\n"
        "ANY_TALKER;\n"
        "a change restarts the connection, and a COMMAND value is sent to the receiver.\n"
        "SIGTERM or SIGINT ends it. One daemon runs per KIV_NAMESPACE.\n",
        kGpsKey);
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            Usage();
            return 0;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("KivGPS %s\n", KIV_VERSION);
            return 0;
        }
        std::fprintf(stderr, "KivGPS: unknown argument '%s' (see --help)\n", argv[i]);
        return 2;
    }

    const auto instance = kiv::platform::InstanceLock::TryAcquire(L"KivGPS");
    if (!instance) {
        std::fprintf(stderr, "KivGPS: a GPS daemon already runs in namespace '%s'\n",
                     kiv::platform::NamespaceToken().c_str());
        return 3;
    }

    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);

    kiv::system::MRegistry key;
    if (key.Open(HKEY_CURRENT_USER, kGpsKey, KEY_ALL_ACCESS) != 0 &&
        key.Create(HKEY_CURRENT_USER, kGpsKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr) != 0) {
        std::fprintf(stderr, "KivGPS: the GPS registry key cannot be opened\n");
        return 1;
    }

    SettingsWatch watch;
    watch.Moved();
    Settings settings = ReadSettings(key);
    auto connect = Start(settings);
    while (!g_stop) {
        std::this_thread::sleep_for(kPollInterval);
        if (!watch.Moved()) {
            continue;
        }
        const std::wstring command = ReadString(key, L"COMMAND");
        if (!command.empty()) {
            connect->WriteCommand(command.c_str());
            key.SetValue(L"", L"COMMAND");
        }
        const Settings now = ReadSettings(key);
        if (now != settings) {
            connect->EndProc();
            connect.reset();
            settings = now;
            connect = Start(settings);
        }
    }
    connect->EndProc();
    return 0;
}
