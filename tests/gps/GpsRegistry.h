// Reading the GPS registry key, and telling whether the daemon runs, in tests.
#pragma once

#include <kiv/system/MRegistry.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "support/KivTestEnvironment.h"

namespace kiv::test {

inline constexpr const wchar_t* kGpsKeyPath = L"Software\\Tarvo\\KivFramework\\GPS";

/// A string value of the GPS key; `fallback` if it cannot be read.
inline std::wstring GpsString(const wchar_t* name, const std::wstring& fallback = L"<none>") {
    kiv::system::MRegistry key;
    if (key.Open(HKEY_CURRENT_USER, kGpsKeyPath, KEY_ALL_ACCESS) != 0) {
        return fallback;
    }
    wchar_t buffer[512] = {};
    unsigned int size = sizeof buffer;
    return key.QueryValue(buffer, name, &size) == 0 ? std::wstring(buffer) : fallback;
}

/// A DWORD value of the GPS key; `fallback` if it cannot be read.
inline unsigned int GpsDword(const wchar_t* name, unsigned int fallback = 0xDEADBEEF) {
    kiv::system::MRegistry key;
    unsigned int value = 0;
    if (key.Open(HKEY_CURRENT_USER, kGpsKeyPath, KEY_ALL_ACCESS) != 0 ||
        key.QueryValue(value, name) != 0) {
        return fallback;
    }
    return value;
}

/// Writes values into the GPS key (creating it), as a client does.
inline void SetGps(const wchar_t* name, const wchar_t* value) {
    kiv::system::MRegistry key;
    key.Create(HKEY_CURRENT_USER, kGpsKeyPath, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    key.SetValue(value, name);
}
inline void SetGps(const wchar_t* name, unsigned int value) {
    kiv::system::MRegistry key;
    key.Create(HKEY_CURRENT_USER, kGpsKeyPath, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    key.SetValue(value, name);
}

/// The daemon of the running test's namespace runs while it holds its lock,
/// a shared-memory object named "/kiv.<namespace>.lock.KivGPS".
inline bool GpsDaemonRuns() {
    const std::string name = "/kiv." + TestNamespace() + ".lock.KivGPS";
    const int fd = shm_open(name.c_str(), O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    const bool held = flock(fd, LOCK_SH | LOCK_NB) != 0;
    close(fd);
    return held;
}

}  // namespace kiv::test
