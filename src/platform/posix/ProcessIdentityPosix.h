// Who a process is, beyond its pid: the pid and the start time the kernel
// gives it (clock ticks since boot, field 22 of /proc/<pid>/stat), so that a
// pid the system handed out again is not taken for the process recorded.
// Shared-memory tables record their users this way and reclaim what a dead
// user left.
#pragma once

#include <cstdint>

namespace kiv::platform::posix {

struct ProcessIdentity {
    std::int32_t pid;
    std::uint64_t startTime;
};

/// The calling process (recomputed after a fork).
ProcessIdentity CurrentProcessIdentity();

/// False once the process has ended (a zombie counts as ended) or its pid
/// belongs to another process. Without /proc only existence can be told.
/// A process found alive is watched through a pidfd from then on, so that
/// checking it again reads no file.
bool ProcessIsAlive(std::int32_t pid, std::uint64_t startTime);

/// The same for a start time kept in 32 bits (its low half), where a record
/// has only one word for it.
bool ProcessIsAliveLow32(std::int32_t pid, std::uint32_t startTimeLow);

/// The kernel id of the calling thread.
std::int32_t CurrentThreadId();

}  // namespace kiv::platform::posix
