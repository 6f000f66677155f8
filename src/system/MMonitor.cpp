#include <kiv/system/MMonitor.h>
#include <kiv/system/MShell.h>

#include <algorithm>
#include <cwchar>
#include <new>
#include <span>
#include <system_error>

#include "foundation/Text.h"
#include "platform/MessageWindow.h"
#include "platform/SystemResources.h"
#include "system/MMonitorImpl.h"

namespace kiv::system {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;
constexpr unsigned int kFailed = static_cast<unsigned int>(-1);
constexpr unsigned int kTypeMemory = 0;
constexpr unsigned int kTypeBattery = 1;
constexpr unsigned int kTypeStorage = 2;
constexpr int kCycleMs = 1000;
constexpr auto kRelaxed = std::memory_order_relaxed;

}  // namespace

// --- implementation ---------------------------------------------------------

MMonitorImpl::MMonitorImpl() : MMonitorImpl(DeferStart{}) {
    StartThread();
}

MMonitorImpl::MMonitorImpl(DeferStart)
    : m_exitEvent(platform::Event::Create(L"KIV_MONITOR_EXIT_EVENT",
                                          platform::EventReset::Automatic, false)),
      m_stop(platform::Event::Create(platform::EventReset::Manual, false)) {}

void MMonitorImpl::StartThread() {
    try {
        m_monitorThread = std::thread([this] { MonitorThread(); });
    } catch (const std::system_error&) {
        // Without its thread the monitor keeps registrations and posts nothing.
    }
}

MMonitorImpl::~MMonitorImpl() {
    // The named event is set as on the device, so another monitor of the
    // namespace may take it and end; this monitor's own thread is then
    // ended by its private event and waited for, since it reads this object.
    m_exitEvent.Set();
    m_stop.Set();
    if (m_monitorThread.joinable()) {
        m_monitorThread.join();
    }
}

unsigned int MMonitorImpl::SetStorageDirectory(const wchar_t* path) {
    if (path == nullptr || text::BoundedLength(path, kDirectoryCapacity) >= kDirectoryCapacity) {
        return kFailed;
    }
    std::lock_guard guard(m_directoryLock);
    const std::size_t length = std::wcslen(path);
    std::copy(path, path + length + 1, m_storageDirectory);
    return 0;
}

unsigned int MMonitorImpl::RegisterNotification(HWND window, MONITOROPTION& option,
                                                unsigned int message) {
    const std::uint32_t handle = platform::WindowValue(window);
    if (handle == 0 || option.type > kTypeStorage) {
        return kFailed;
    }
    const int count = std::clamp(m_registrationCount.load(), 0, kMaxRegistrations);
    auto fill = [&](Registration& r) {
        r.type.store(option.type, kRelaxed);
        r.threshold.store(option.threshold, kRelaxed);
        r.message.store(message, kRelaxed);
        r.window.store(handle, std::memory_order_release);  // last: makes it live
    };
    for (int i = 0; i < count; ++i) {
        if (m_registrations[i].window.load(kRelaxed) == 0) {
            fill(m_registrations[i]);
            return 0;
        }
    }
    if (count >= kMaxRegistrations) {
        return kFailed;
    }
    fill(m_registrations[count]);
    m_registrationCount.store(count + 1);
    // The new entry is in use although the call reports failure: intended.
    return kFailed;
}

unsigned int MMonitorImpl::UnRegisterNotification(HWND window, MONITOROPTION& option) {
    const std::uint32_t handle = platform::WindowValue(window);
    const int count = std::clamp(m_registrationCount.load(), 0, kMaxRegistrations);
    if (handle == 0 || option.type > kTypeStorage || count == 0) {
        return kFailed;
    }
    for (int i = 0; i < count; ++i) {
        Registration& r = m_registrations[i];
        if (r.window.load(kRelaxed) == handle && r.type.load(kRelaxed) == option.type) {
            r.window.store(0, kRelaxed);
            // Only the last entry shortens the table; holes below it stay.
            if (i == count - 1) {
                m_registrationCount.store(count - 1);
            }
            return 0;
        }
    }
    return kFailed;
}

std::optional<std::uint32_t> MMonitorImpl::AvailableMemory() {
    const auto bytes = platform::AvailableMemoryBytes();
    if (!bytes) {
        return std::nullopt;
    }
    // The device's figure is 32 bits; more than 4 GiB reads as 4 GiB - 1, so
    // a large machine never looks short of memory.
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(*bytes, 0xFFFFFFFFu));
}

std::wstring MMonitorImpl::StorageDirectory() {
    std::lock_guard guard(m_directoryLock);
    return m_storageDirectory;
}

// Waits one cycle; false when the thread is to end (the named exit event,
// this monitor's destructor, or no event to wait on).
bool MMonitorImpl::WaitCycle() {
    // The named event comes first: when the destructor has set both, this
    // thread takes the named one, as the device's thread would.
    const platform::Waitable* both[2] = {&m_exitEvent, &m_stop};
    std::span<const platform::Waitable* const> objects(both);
    if (!m_exitEvent.IsValid()) {
        objects = objects.subspan(1);
    }
    return platform::WaitForAny(objects, kCycleMs) == platform::kWaitTimeout;
}

void MMonitorImpl::MonitorThread() {
    // The directory's length is taken once: a directory set later is only
    // watched if one was already set now. Intended.
    const bool watchStorage = !StorageDirectory().empty();
    if (!WaitCycle()) {
        return;
    }
    do {
        const std::optional<std::uint32_t> memory = AvailableMemory();
        unsigned int battery = 0;
        {
            MShell shell;
            shell.GetBatteryLifePercent(battery);
        }
        std::optional<std::uint32_t> storage;
        if (watchStorage) {
            // Only the low 32 bits of the free bytes are the device's figure.
            if (const auto bytes = platform::FreeStorageBytes(StorageDirectory())) {
                storage = static_cast<std::uint32_t>(*bytes);
            }
        }
        const int count = std::clamp(m_registrationCount.load(), 0, kMaxRegistrations);
        for (int i = 0; i < count; ++i) {
            const Registration& r = m_registrations[i];
            const std::uint32_t window = r.window.load(std::memory_order_acquire);
            if (window == 0) {
                continue;
            }
            const std::uint32_t threshold = r.threshold.load(kRelaxed);
            std::optional<std::uint32_t> value;
            switch (r.type.load(kRelaxed)) {
                case kTypeMemory:
                    value = memory;
                    break;
                case kTypeBattery:
                    value = battery;
                    break;
                case kTypeStorage:
                    value = storage;
                    break;
                default:
                    break;
            }
            if (value && *value < threshold) {
                platform::PostWindowMessage(platform::WindowFromValue(window),
                                            r.message.load(kRelaxed), 0,
                                            static_cast<std::intptr_t>(*value));
            }
        }
    } while (WaitCycle());
}

// --- facade -------------------------------------------------------------------

MMonitor::MMonitor() : m_impl(new (std::nothrow) MMonitorImpl) {}

MMonitor::MMonitor(const MMonitor& other) : m_impl(ShareImplementation(other.m_impl)) {}

MMonitor& MMonitor::operator=(const MMonitor& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MMonitor::~MMonitor() {
    DropImplementation(m_impl);
}

unsigned int MMonitor::SetStorageDirectory(const wchar_t* path) {
    return m_impl != nullptr ? m_impl->SetStorageDirectory(path) : kNoImplementation;
}

unsigned int MMonitor::RegisterNotification(HWND window, MONITOROPTION& option,
                                            unsigned int message) {
    return m_impl != nullptr ? m_impl->RegisterNotification(window, option, message)
                             : kNoImplementation;
}

unsigned int MMonitor::UnRegisterNotification(HWND window, MONITOROPTION& option) {
    return m_impl != nullptr ? m_impl->UnRegisterNotification(window, option) : kNoImplementation;
}

}  // namespace kiv::system
