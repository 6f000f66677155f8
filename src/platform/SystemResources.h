// Free memory and free storage, as the monitor watches them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kiv::platform {

/// The memory available to new work without swapping, in bytes: MemAvailable
/// of `<root>/meminfo`, where the root is KIV_PROC_ROOT (default /proc), read
/// from the environment each call. Nothing when it cannot be read.
std::optional<std::uint64_t> AvailableMemoryBytes();

/// The bytes an unprivileged caller may still write on the file system that
/// holds `directory` (its available blocks times the fragment size). Nothing
/// when the directory cannot be measured.
std::optional<std::uint64_t> FreeStorageBytes(const std::wstring& directory);

}  // namespace kiv::platform
