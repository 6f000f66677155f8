// Files the debug log writes: opened by path, appended to, measured and
// closed through a handle.
//
// A handle is a number that is never given out twice in a process, so a
// handle kept after it was closed (two copies of a log share one, and the
// first destroyed closes it) fails harmlessly instead of writing into
// whatever file the system opened next.
#pragma once

#include <cstddef>
#include <string>

namespace kiv::platform {

constexpr int kInvalidLogFile = -1;

/// Opens `path` for reading and appending, creating it if needed; with
/// `truncate` its content is dropped. kInvalidLogFile on failure.
int OpenLogFile(const std::wstring& path, bool truncate);

/// Closes the file; a stale or invalid handle is ignored.
void CloseLogFile(int handle);

/// The file's size in bytes; false for a stale handle.
bool LogFileSize(int handle, unsigned long long& size);

/// Writes `size` bytes at the end of the file in one call and hands them to
/// the system; false if not all were written.
bool AppendToLogFile(int handle, const void* data, std::size_t size);

/// The full path of the running executable.
std::wstring ExecutablePath();

}  // namespace kiv::platform
