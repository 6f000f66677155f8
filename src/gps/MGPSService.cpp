#include <kiv/gps/MGPSService.h>
#include <kiv/system/MProcessManager.h>

#include <chrono>
#include <cwchar>
#include <cwctype>
#include <new>
#include <thread>

#include "foundation/Text.h"
#include "gps/MGPSServiceImplPosix.h"
#include "gps/MNmeaParserImpl.h"
#include "gps/NmeaParserCore.h"
#include "platform/InstanceLock.h"
#include "platform/Process.h"
#include "platform/RegistryStore.h"

namespace kiv::gps {
namespace {

constexpr unsigned int kRegistryError = 0x07000001;
constexpr unsigned int kLaunchError = 0x07000002;
constexpr unsigned int kStartError = 0x07000003;

// The daemon's and the library's file names on this platform.
constexpr const wchar_t* kDaemonName = L"KivGPS";
constexpr const wchar_t* kLibraryName = L"libKivFramework.so";

// Held by a client while it starts the daemon or counts itself in or out,
// so that clients starting and stopping at once see one another's counts
// and never launch a second daemon or stop one another's.
constexpr const wchar_t* kClientLock = L"KivGPS.clients";

// How long the last client waits for the killed daemon to be gone.
constexpr auto kDaemonEndWait = std::chrono::seconds(10);

std::wstring Upper(std::wstring text) {
    for (auto& c : text) {
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    }
    return text;
}

// The number in `text`, as _wtoi reads it.
int WideToInt(std::wstring_view text) {
    return static_cast<int>(FieldToInteger(text::ToUtf8(text)));
}

float WideToFloat(const wchar_t* text) {
    return static_cast<float>(FieldToDouble(text::ToUtf8(text)));
}

// Characters `first`..`first + count - 1` (1-based), as far as they exist.
std::wstring_view Chars(std::wstring_view text, std::size_t first, std::size_t count) {
    return first - 1 < text.size() ? text.substr(first - 1, count) : std::wstring_view();
}

}  // namespace

int SplitStrByToken(const wchar_t* source, wchar_t token, wchar_t* destination, int width,
                    int slots) {
    if (source == nullptr || destination == nullptr || width < 1) {
        return 0;
    }
    int taken = 0;
    const wchar_t* piece = source;
    for (const wchar_t* p = source; *p != L'\0' && taken < slots; ++p) {
        if (*p != token) {
            continue;
        }
        const auto length = std::min<std::ptrdiff_t>(p - piece, width - 1);
        wchar_t* slot = destination + static_cast<std::ptrdiff_t>(taken) * width;
        std::wmemcpy(slot, piece, static_cast<std::size_t>(length));
        slot[length] = L'\0';
        ++taken;
        piece = p + 1;
    }
    return taken;
}

MGPSServiceImpl* MGPSServiceImpl::Create() {
    return new (std::nothrow) MGPSServiceImplPosix;
}

MGPSServiceImplPosix::MGPSServiceImplPosix()
    : m_stop(platform::Event::Create(platform::EventReset::Manual, false)) {
    // The defaults go through the public setters before the key is opened,
    // so they fail and are ignored: a new client never resets the settings
    // that other clients gave the daemon.
    SetDemoFile(L"");
    WriteGPSDataToLog(L"");
    SetComPort(4, 4800);
    if (!ChkRegAndCreate()) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::ResetCounter invoke ChkRegAndCreate fail:");
    }
    if (m_registry.Open(HKEY_CURRENT_USER, kGpsKey, KEY_ALL_ACCESS) != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::ResetGPSStatus open key fail");
    }
}

MGPSServiceImplPosix::~MGPSServiceImplPosix() {
    DecrementCounter();
    if (m_thread) {
        // A thread cannot be killed safely here: the loop is told to end.
        m_stop.Set();
        m_thread->WaitForStop();
    }
}

bool MGPSServiceImplPosix::ChkRegAndCreate() {
    system::MRegistry key;
    if (key.Open(HKEY_CURRENT_USER, kGpsKey, KEY_ALL_ACCESS) == 0) {
        return true;
    }
    m_log.WarningPrintf(L"MGPSServiceImplWin::ChkRegAndCreate Open Key fail");
    const unsigned int rc =
        key.Create(HKEY_CURRENT_USER, kGpsKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    if (rc != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::ChkRegAndCreate create key fail:%u", rc);
        return false;
    }
    return true;
}

unsigned int MGPSServiceImplPosix::SetRegMsg(const wchar_t* name, const wchar_t* value) {
    return m_registry.SetValue(value != nullptr ? value : L"", name);
}

bool MGPSServiceImplPosix::ReadString(const wchar_t* name, wchar_t* buffer,
                                      unsigned int characters) {
    unsigned int size = characters * static_cast<unsigned int>(sizeof(wchar_t));
    if (m_registry.QueryValue(buffer, name, &size) != 0) {
        return false;
    }
    buffer[characters - 1] = L'\0';
    return true;
}

std::wstring MGPSServiceImplPosix::GetKivGPSFilePath() {
    const std::wstring library = platform::LibraryPath();
    const std::size_t at = Upper(library).find(Upper(kLibraryName));
    if (at == std::wstring::npos) {
        m_log.ErrorPrintf(
            L"MGPSServiceImplWin::GetKivGPSFilePath could not find substring from:%ls",
            library.c_str());
        return {};
    }
    return library.substr(0, at) + kDaemonName;
}

void MGPSServiceImplPosix::IncrementCounter() {
    unsigned int count = 0;
    m_registry.QueryValue(count, L"AP_CNT");
    m_registry.SetValue(count + 1, L"AP_CNT");
    // The daemon signals the fix event again, for the new client.
    m_registry.SetValue(1u, L"KIV_GPS_EVENT_RESETFIX");
    m_counted = true;
}

void MGPSServiceImplPosix::DecrementCounter() {
    if (!m_counted) {
        return;
    }
    const auto clients = platform::InstanceLock::Acquire(kClientLock);
    unsigned int count = 0;
    m_registry.QueryValue(count, L"AP_CNT");
    if (count == 1) {
        // The last client stops the daemon of its namespace and waits until
        // it is gone, so that a client starting next launches a new one.
        const long daemon = platform::InstanceLock::Holder(kDaemonName);
        if (daemon > 0) {
            system::process::MProcessManager manager;
            manager.CloseProcessByID(static_cast<unsigned int>(daemon), 0);
            const auto until = std::chrono::steady_clock::now() + kDaemonEndWait;
            while (platform::InstanceLock::Holder(kDaemonName) == daemon &&
                   std::chrono::steady_clock::now() < until) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
    }
    m_registry.SetValue(count - 1, L"AP_CNT");
    m_counted = false;
}

void MGPSServiceImplPosix::ResetCounter() {
    m_registry.SetValue(0u, L"AP_CNT");
}

void MGPSServiceImplPosix::ResetGPSStatus() {
    m_registry.SetValue(0u, L"IS_ACTIVE");
}

unsigned int MGPSServiceImplPosix::StartService() {
    const unsigned int rc = StartDaemon();
    if (rc != 0) {
        return rc;
    }
    if (m_fixCallback.load() == nullptr && m_movingCallback.load() == nullptr) {
        return 0;
    }
    if (!m_fixEvent.IsValid()) {
        // Opened here, before StartService returns, not when the callback
        // thread first runs: a named event nobody holds open vanishes with
        // the daemon's signal, and a slow thread would miss the first fix.
        // Signals from before the status reset above are not wanted.
        m_fixEvent =
            platform::Event::Create(L"KIV_GPS_EVENT_FIX", platform::EventReset::Automatic, false);
        m_movingEvent = platform::Event::Create(L"KIV_GPS_EVENT_MOVING",
                                                platform::EventReset::Automatic, false);
    }
    if (!m_thread) {
        m_thread = std::make_unique<system::MThread>(this);
    }
    m_thread->Start();
    m_log.InformationPrintf(L"KivGPS exe file launch success 11");
    return 0;
}

unsigned int MGPSServiceImplPosix::StartDaemon() {
    // One client at a time: the check for a running daemon, the launch and
    // the wait for its answer are one step for the other clients. Without
    // the lock (it cannot be made) the client goes on alone.
    const auto clients = platform::InstanceLock::Acquire(kClientLock);
    // The daemon of this namespace is found by the lock it holds while it
    // runs: other namespaces may run daemons of the same name.
    if (platform::InstanceLock::Holder(kDaemonName) != 0) {
        m_log.InformationPrintf(L"KivGPS exe file launch success 1");
        IncrementCounter();
    } else {
        m_log.InformationPrintf(L"KivGPS process is not exist\n");
        ResetCounter();
        const std::wstring path = GetKivGPSFilePath();
        m_log.InformationPrintf(L"KivGPS exe file path=%ls", path.c_str());
        SetRegMsg(L"INIT_FLAG", L"0");
        const auto daemon = platform::DetachedProcess::Start(path);
        if (!daemon) {
            m_log.ErrorPrintf(L"KivGPS exe file launch fail!!\n");
            SetRegMsg(L"ERR_MSG", L"KivGPS exe file launch fail!!\n");
            return kLaunchError;
        }
        m_log.InformationPrintf(L"KivGPS exe file launch success %ls", path.c_str());
        IncrementCounter();
        m_log.InformationPrintf(L"KivGPS exe file launch success 2");
        // No time-out: the daemon takes as long as its start attempt takes.
        // Only a daemon that has ended without answering stops the wait.
        for (;;) {
            wchar_t flag[8] = {};
            if (ReadString(L"INIT_FLAG", flag, 8) && std::wcscmp(flag, L"1") == 0) {
                break;
            }
            if (daemon->HasEnded()) {
                m_log.ErrorPrintf(L"KivGPS exe file launch success 3: the daemon ended");
                return kStartError;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        m_log.InformationPrintf(L"KivGPS exe file launch success 4");
        wchar_t error[260] = {};
        ReadString(L"ERR_MSG", error, 260);
        if (error[0] != L'\0') {
            m_log.ErrorPrintf(L"KivGPS exe file launch success 5 %ls", error);
            return kStartError;
        }
        ResetGPSStatus();
        m_log.InformationPrintf(L"KivGPS exe file launch success 6");
    }
    return 0;
}

void MGPSServiceImplPosix::Run() {
    // The events are held open by the object, so that a signal while the
    // loop is busy with a callback is not lost.
    const platform::Event& fix = m_fixEvent;
    const platform::Event& moving = m_movingEvent;
    for (;;) {
        const int which = platform::WaitForAny({&m_stop, &fix, &moving}, platform::kInfinite);
        if (which == 1) {
            fix.Reset();
            InvokeFixCallback();
        } else if (which == 2) {
            moving.Reset();
            InvokeMovingCallback();
        } else {
            return;  // stopped, or the events could not be made
        }
    }
}

unsigned int MGPSServiceImplPosix::SetComPort(unsigned int port, unsigned int baudRate) {
    if (m_registry.SetValue(port, L"COMPORT") != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::WriteComPortSetting set KIV_GPS_SET_COMPORT");
        return kRegistryError;
    }
    if (m_registry.SetValue(baudRate, L"BAUDRATE") != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::WriteComPortSetting set KIV_GPS_SET_BAUDRATE");
        return kRegistryError;
    }
    m_log.InformationPrintf(L"MGPSServiceImplWin::WriteComPortSetting return ERROR_SUCCESS");
    return 0;
}

unsigned int MGPSServiceImplPosix::SetDemoFile(const wchar_t* path) {
    if (SetRegMsg(L"DEMO_FILE", path) != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::SetDemoFile set KIV_GPS_INFO_DEMO_FILE fail");
        return kRegistryError;
    }
    return 0;
}

unsigned int MGPSServiceImplPosix::WriteGPSDataToLog(const wchar_t* setting) {
    if (SetRegMsg(L"FILE_PATH", setting) != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::WriteGPSDataToLog set KIV_GPS_INFO_LOG_PATH");
        return kRegistryError;
    }
    return 0;
}

unsigned int MGPSServiceImplPosix::WriteCommand(const wchar_t* text) {
    if (SetRegMsg(L"COMMAND", text) != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplWin::WriteCommand set KIV_GPS_INFO_COMMAND fail");
        return kRegistryError;
    }
    return 0;
}

unsigned int MGPSServiceImplPosix::SetAnyTalker(bool on) {
    if (m_registry.SetValue(on ? 1u : 0u, L"ANY_TALKER") != 0) {
        m_log.ErrorPrintf(L"MGPSServiceImplPosix::SetAnyTalker set ANY_TALKER fail");
        return kRegistryError;
    }
    return 0;
}

unsigned int MGPSServiceImplPosix::GetRegMsg(const wchar_t* name, wchar_t* buffer) {
    if (buffer != nullptr) {
        system::MRegistry key;
        if (key.Open(HKEY_CURRENT_USER, kGpsKey, KEY_ALL_ACCESS) == 0) {
            unsigned int size = 260 * sizeof(wchar_t);
            if (key.QueryValue(buffer, name, &size) == 0) {
                buffer[259] = L'\0';
            }
        }
    }
    return 0;
}

unsigned int MGPSServiceImplPosix::GetGPSPosition(MGPSPosition* position) {
    if (position == nullptr) {
        return 0;
    }
    // One fix: the daemon writes a sentence's values in one batch, and they
    // are read here from one state of the registry.
    platform::RegistrySnapshot snapshot;
    auto dword = [&](const wchar_t* name, auto& field) {
        unsigned int value = 0;
        if (m_registry.QueryValue(value, name) == 0) {
            field = static_cast<std::remove_reference_t<decltype(field)>>(value);
        }
    };
    auto number = [&](const wchar_t* name, float& field) {
        wchar_t text[20] = {};
        if (ReadString(name, text, 20)) {
            field = WideToFloat(text);
            m_log.InformationPrintf(L"lRet=ERROR_SUCCESS");
        } else {
            m_log.InformationPrintf(L"lRet!=ERROR_SUCCESS");
        }
    };
    dword(L"IS_NORTH", position->m_north);
    dword(L"IS_EAST", position->m_east);
    dword(L"IS_ACTIVE", position->m_activeState);
    dword(L"LONG_DEG", position->m_longDegrees);
    dword(L"LONG_MIN", position->m_longMinutes);
    dword(L"LONG_SEC", position->m_longSeconds);
    dword(L"LONG_MSEC", position->m_longMilliseconds);
    dword(L"LAT_DEG", position->m_latDegrees);
    dword(L"LAT_MIN", position->m_latMinutes);
    dword(L"LAT_SEC", position->m_latSeconds);
    dword(L"LAT_MSEC", position->m_latMilliseconds);
    dword(L"FIX_QUALITY", position->m_fixQuality);
    number(L"HDOP", position->m_hdop);
    number(L"VDOP", position->m_vdop);
    number(L"PDOP", position->m_pdop);
    number(L"SPEED", position->m_speed);
    dword(L"DIRECTION", position->m_direction);
    number(L"ALTITUDE", position->m_altitude);
    wchar_t used[260] = {};
    if (ReadString(L"USED_SATELLITE", used, 260)) {
        m_log.InformationPrintf(L"szTempForFix %ls", used);
        wchar_t slots[32][12];
        const int count = SplitStrByToken(used, L',', &slots[0][0], 12, 32);
        position->m_usedSatellites.clear();
        for (int i = 0; i < count; ++i) {
            // Empty slots are no satellite numbers.
            if (slots[i][0] != L'\0') {
                position->m_usedSatellites.push_back(text::ToUtf8(slots[i]));
            }
        }
    }
    m_log.InformationPrintf(L"MGPSServiceImplWin::GetGPSPosition return ERROR_SUCCESS");
    return 0;
}

unsigned int MGPSServiceImplPosix::GetGPSDateTime(MGPSDateTime* dateTime) {
    if (dateTime == nullptr) {
        return 0;
    }
    platform::RegistrySnapshot snapshot;
    wchar_t date[20] = {};
    wchar_t time[20] = {};
    if (!ReadString(L"UTCDate", date, 20)) {
        m_log.WarningPrintf(L"MGPSServiceImplWin::GetGPSDateTime query KIV_GPS_INFO_UTC_DATE fail");
        return kRegistryError;
    }
    if (!ReadString(L"UTCTime", time, 20)) {
        m_log.WarningPrintf(L"MGPSServiceImplWin::GetGPSDateTime query KIV_GPS_INFO_UTC_TIME fail");
        return kRegistryError;
    }
    const std::wstring_view d = date;
    const std::wstring_view t = time;
    dateTime->m_year = static_cast<unsigned short>(2000 + WideToInt(Chars(d, 5, 2)));
    dateTime->m_month = static_cast<unsigned short>(WideToInt(Chars(d, 3, 2)));
    dateTime->m_day = static_cast<unsigned short>(WideToInt(Chars(d, 1, 2)));
    dateTime->m_hour = static_cast<unsigned short>(WideToInt(Chars(t, 1, 2)));
    dateTime->m_minute = static_cast<unsigned short>(WideToInt(Chars(t, 3, 2)));
    dateTime->m_second = static_cast<unsigned short>(WideToInt(Chars(t, 5, 2)));
    // Only hhmmss.sss carries milliseconds; other forms leave them as they were.
    if (t.size() == 10) {
        dateTime->m_millisecond = static_cast<unsigned short>(WideToInt(Chars(t, 8, 3)));
    }
    m_log.InformationPrintf(L"MGPSDateTime return data %d/%d/%d %d:%d:%d.%d", dateTime->m_year,
                            dateTime->m_month, dateTime->m_day, dateTime->m_hour,
                            dateTime->m_minute, dateTime->m_second, dateTime->m_millisecond);
    m_log.InformationPrintf(L"MGPSServiceImplWin::GetGPSDateTime return ERROR_SUCCESS");
    return 0;
}

unsigned int MGPSServiceImplPosix::GetSatellitesInView(std::vector<MSatellite*>& satellites) {
    // With every constellation accepted the text holds more than twelve
    // satellites, and all of it (1,023 characters) is read. The setting and
    // the text are read from one state of the registry.
    platform::RegistrySnapshot snapshot;
    unsigned int anyTalker = 0;
    m_registry.QueryValue(anyTalker, L"ANY_TALKER");
    const int slots = anyTalker != 0 ? 64 : 12;
    const unsigned int characters = anyTalker != 0 ? 1024 : 400;
    wchar_t info[1024] = {};
    if (ReadString(L"SIV_INFO", info, characters) && info[0] != L'\0') {
        wchar_t groups[64][40];
        const int count = SplitStrByToken(info, L';', &groups[0][0], 40, slots);
        for (int g = 0; g < count; ++g) {
            if (groups[g][0] == L'\0') {
                continue;
            }
            wchar_t fields[4][10] = {};
            SplitStrByToken(groups[g], L',', &fields[0][0], 10, 4);
            auto* satellite = new (std::nothrow) MSatellite;
            if (satellite == nullptr) {
                break;
            }
            std::swprintf(satellite->m_number, 12, L"%ls", fields[0]);
            satellite->m_elevation = static_cast<unsigned int>(WideToInt(fields[1]));
            satellite->m_azimuth = static_cast<unsigned int>(WideToInt(fields[2]));
            satellite->m_signalToNoise = static_cast<unsigned int>(WideToInt(fields[3]));
            satellites.push_back(satellite);
        }
    }
    m_log.InformationPrintf(L"MGPSServiceImplWin::GetSatellitesInView return ERROR_SUCCESS");
    return 0;
}

unsigned int MGPSServiceImplPosix::SetFixCallback(MGPSCallback callback) {
    m_fixCallback = callback;
    return 0;
}

unsigned int MGPSServiceImplPosix::SetMovingCallback(MGPSCallback callback) {
    m_movingCallback = callback;
    return 0;
}

unsigned int MGPSServiceImplPosix::InvokeFixCallback() {
    if (const MGPSCallback callback = m_fixCallback.load(); callback != nullptr) {
        callback(nullptr);
    }
    return 0;
}

unsigned int MGPSServiceImplPosix::InvokeMovingCallback() {
    if (const MGPSCallback callback = m_movingCallback.load(); callback != nullptr) {
        callback(nullptr);
    }
    return 0;
}

// --- facade -------------------------------------------------------------------

MGPSService::MGPSService() : m_impl(MGPSServiceImpl::Create()) {}

MGPSService::~MGPSService() {
    delete m_impl;
}

#define KIV_FORWARD(call) (m_impl != nullptr ? m_impl->call : 0xFFu)

unsigned int MGPSService::StartService() {
    return KIV_FORWARD(StartService());
}
unsigned int MGPSService::SetComPort(unsigned int port, unsigned int baudRate) {
    return KIV_FORWARD(SetComPort(port, baudRate));
}
unsigned int MGPSService::SetDemoFile(const wchar_t* path) {
    return KIV_FORWARD(SetDemoFile(path));
}
unsigned int MGPSService::WriteGPSDataToLog(const wchar_t* setting) {
    return KIV_FORWARD(WriteGPSDataToLog(setting));
}
unsigned int MGPSService::WriteCommand(const wchar_t* text) {
    return KIV_FORWARD(WriteCommand(text));
}
unsigned int MGPSService::SetAnyTalker(bool on) {
    return KIV_FORWARD(SetAnyTalker(on));
}
unsigned int MGPSService::GetRegMsg(const wchar_t* name, wchar_t* buffer) {
    return KIV_FORWARD(GetRegMsg(name, buffer));
}
unsigned int MGPSService::GetGPSPosition(MGPSPosition* position) {
    return KIV_FORWARD(GetGPSPosition(position));
}
unsigned int MGPSService::GetGPSDateTime(MGPSDateTime* dateTime) {
    return KIV_FORWARD(GetGPSDateTime(dateTime));
}
unsigned int MGPSService::GetSatellitesInView(std::vector<MSatellite*>& satellites) {
    return KIV_FORWARD(GetSatellitesInView(satellites));
}
unsigned int MGPSService::SetFixCallback(MGPSCallback callback) {
    return KIV_FORWARD(SetFixCallback(callback));
}
unsigned int MGPSService::SetMovingCallback(MGPSCallback callback) {
    return KIV_FORWARD(SetMovingCallback(callback));
}
unsigned int MGPSService::InvokeFixCallback() {
    return KIV_FORWARD(InvokeFixCallback());
}
unsigned int MGPSService::InvokeMovingCallback() {
    return KIV_FORWARD(InvokeMovingCallback());
}

#undef KIV_FORWARD

}  // namespace kiv::gps
