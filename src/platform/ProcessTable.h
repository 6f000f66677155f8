// The process and thread tables of the system, as the process manager reads
// them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kiv::platform {

struct ProcessRecord {
    std::uint32_t pid = 0;
    std::uint32_t threads = 0;
    std::wstring exeName;  ///< base name of the executable
};

struct ThreadTimeRecord {
    std::uint32_t pid = 0;
    std::uint32_t tid = 0;
    std::uint64_t userTime = 0;  ///< user-mode CPU time in 100 ns units
};

/// Every process of the system; nothing if the table cannot be read.
std::optional<std::vector<ProcessRecord>> SnapshotProcesses();

/// The user time of every thread of every process that can be read.
std::vector<ThreadTimeRecord> SnapshotThreadTimes();

/// Bytes of the accessible (not PROT_NONE) mappings of a process; nothing if
/// its map cannot be read.
std::optional<std::uint64_t> AccessibleMappingBytes(std::uint32_t pid);

/// Bytes of shared memory in the whole system.
std::uint64_t SharedMemoryBytes();

/// The id of the calling process.
std::uint32_t CurrentProcessId();

/// Ends a process at once. False if it cannot be signalled (gone, or
/// belonging to someone else).
bool KillProcess(std::uint32_t pid);

}  // namespace kiv::platform
