// Watches free memory, battery charge and free storage once a second and
// posts a message to every registered window whose threshold is undercut,
// every second for as long as it is.
//
// Results are 0 on success and -1 (0xFFFFFFFF) on failure, 0xFF when the
// object has no implementation. Copies share one monitor. Intended results
// that look wrong but are kept, because applications rely on them:
// - a registration that needs a new entry takes effect and answers -1; only
//   one that reuses a freed entry answers 0;
// - the storage directory is looked at only if one was set before the
//   monitor's thread began, right after construction.
// The monitor's thread ends when the event "KIV_MONITOR_EXIT_EVENT" of the
// namespace is set, by any process; destroying a monitor sets it (so it may
// end another monitor of the namespace) and also ends its own thread.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

namespace kiv::system {

/// What to watch and when to tell.
struct MONITOROPTION {
    /// 0 available memory (bytes), 1 battery charge (percent), 2 free bytes
    /// of the storage directory's file system (their low 32 bits).
    unsigned int type;
    /// A message is posted while the value is strictly below this.
    unsigned int threshold;
};

class MMonitorImpl;

class KIV_API MMonitor {
public:
    /// Starts the monitor's thread, with no registration and no directory.
    MMonitor();
    /// Shares `other`'s monitor.
    MMonitor(const MMonitor& other);
    /// Drops this object's monitor and shares `other`'s.
    MMonitor& operator=(const MMonitor& other);
    /// The last copy ends the monitor's thread.
    ~MMonitor();

    /// The directory whose file system is watched; -1 for a null path or
    /// one of 260 characters or more.
    unsigned int SetStorageDirectory(const wchar_t* path);
    /// Posts `message` to `window` (wParam 0, lParam the value) every second
    /// while the value of `option.type` is below `option.threshold`. -1 for a
    /// null window or a type above 2, or when all 100 entries are in use;
    /// see above for the -1 of a registration that took effect.
    unsigned int RegisterNotification(HWND window, MONITOROPTION& option, unsigned int message);
    /// Ends the first registration of `window` for `option.type`; -1 when
    /// there is none or the arguments are invalid.
    unsigned int UnRegisterNotification(HWND window, MONITOROPTION& option);

private:
    MMonitorImpl* m_impl;
};

}  // namespace kiv::system
