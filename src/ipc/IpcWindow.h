// The hidden IPC window of a process: the window that commands and events
// for this process's servers and subscriptions are sent to.
#pragma once

#include <cstdint>

namespace kiv::ipc::detail {

/// Event delivery: wParam the subscriber id, lParam the payload offset or 0.
inline constexpr unsigned int kEventMessage = 0x401;
/// Command delivery: wParam the command id, lParam the payload offset or 0.
inline constexpr unsigned int kCommandMessage = 0x402;

/// The process's IPC window in the current namespace, created by the calling
/// thread on the first call (its class name is the process id as "%08x", its
/// title empty). 0 if it cannot be created; a later call tries again.
std::uint32_t EnsureIpcWindow();

}  // namespace kiv::ipc::detail
