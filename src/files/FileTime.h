// File times (100 ns since 1601-01-01 UTC, in two 32-bit halves) and their
// conversion from the library's date-and-time record.
#pragma once

#include <kiv/platform/Win32Types.h>
#include <kiv/system/MShell.h>

#include <cstdint>

namespace kiv::files {

inline std::uint64_t ToTicks(const FILETIME& t) {
    return (static_cast<std::uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

inline FILETIME FromTicks(std::uint64_t ticks) {
    return FILETIME{static_cast<unsigned int>(ticks), static_cast<unsigned int>(ticks >> 32)};
}

/// Negative when `a` is earlier than `b`, 0 when equal, positive when later.
int CompareFileTime(const FILETIME& a, const FILETIME& b);

/// The file time of `time`, read as UTC (no time-zone change). False for a
/// record that is no calendar time of the years 1601..30827 (the day of the
/// week is ignored).
bool SystemTimeToFileTime(const system::_MSYSTEMTIME& time, FILETIME& fileTime);

}  // namespace kiv::files
