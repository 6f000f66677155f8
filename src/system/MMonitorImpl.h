// The implementation behind MMonitor: the registrations, the storage
// directory and the monitor's thread.
#pragma once

#include <kiv/platform/Win32Types.h>
#include <kiv/system/MMonitor.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "foundation/SharedImplementation.h"
#include "platform/Waitable.h"

namespace kiv::system {

class MMonitorImpl : public SharedImplementation<MMonitorImpl> {
public:
    static constexpr int kMaxRegistrations = 100;
    static constexpr std::size_t kDirectoryCapacity = 260;

    /// Starts the monitor's thread at once, as the facade does.
    MMonitorImpl();
    /// For tests: a monitor whose thread begins only at StartForTesting, so
    /// that a storage directory can be set before it.
    struct DeferStart {};
    explicit MMonitorImpl(DeferStart);
    virtual ~MMonitorImpl();

    void StartForTesting() { StartThread(); }

    unsigned int SetStorageDirectory(const wchar_t* path);
    unsigned int RegisterNotification(HWND window, MONITOROPTION& option, unsigned int message);
    unsigned int UnRegisterNotification(HWND window, MONITOROPTION& option);

    /// Available memory as the monitor reports it: the bytes, saturated at
    /// 0xFFFFFFFF; nothing when they cannot be read.
    static std::optional<std::uint32_t> AvailableMemory();

private:
    // One registration; each field is a word read by the monitor's thread
    // and written by callers without a lock. A window of 0 marks it free.
    struct Registration {
        std::atomic<std::uint32_t> window{0};
        std::atomic<std::uint32_t> type{0};
        std::atomic<std::uint32_t> threshold{0};
        std::atomic<std::uint32_t> message{0};
    };

    void StartThread();
    void MonitorThread();
    bool WaitCycle();
    std::wstring StorageDirectory();

    Registration m_registrations[kMaxRegistrations];
    std::atomic<int> m_registrationCount{0};
    platform::Event m_exitEvent;  // named, shared by the namespace
    platform::Event m_stop;       // this monitor's own
    std::mutex m_directoryLock;   // the directory is text, not a word
    wchar_t m_storageDirectory[kDirectoryCapacity] = {};
    std::thread m_monitorThread;
};

}  // namespace kiv::system
