// Message windows: hidden windows that carry messages between threads and
// processes of one KIV_NAMESPACE.
//
// A window is a 32-bit handle in a table shared by the processes of the
// namespace. It has a class name, a title, an owner thread (the thread that
// created it) and a window procedure, which runs only on the owner thread.
// Each thread that owns windows or sends messages has one message queue:
// posted messages wait in it until the thread takes them (GetWindowMessage)
// and runs them (DispatchWindowMessage); sent messages are run by the owner
// thread whenever it looks at its queue or waits in a send of its own, and
// the sender waits for the procedure's result. Queues are bounded.
//
// A window lives until its owner thread destroys it or ends; the windows of
// a process that died are removed when another process notices the death.
#pragma once

#include <kiv/platform/Win32Types.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Waitable.h"  // kInfinite

namespace kiv::platform {

/// The procedure of a window: runs each message dispatched or sent to it on
/// the owner thread and returns the message's result.
using WindowProcedure = std::intptr_t (*)(HWND window, unsigned int message, std::uintptr_t wParam,
                                          std::intptr_t lParam);

/// One message taken from a queue.
struct WindowMessage {
    HWND window = nullptr;
    unsigned int message = 0;
    std::uintptr_t wParam = 0;
    std::intptr_t lParam = 0;
};

/// The message that ends a pump: its wParam is the exit code.
inline constexpr unsigned int kQuitMessage = 0x0012;
/// Longest class name and title, in UTF-16 code units.
inline constexpr std::size_t kMaxWindowText = 256;
/// Posted messages one queue holds.
inline constexpr int kPostedQueueLength = 128;

/// A new window owned by the calling thread; null when the class name or
/// title is longer than kMaxWindowText, the procedure is null, or the table
/// is full or unusable.
HWND CreateMessageWindow(std::wstring_view className, std::wstring_view title,
                         WindowProcedure procedure);

/// Destroys a window of the calling thread. Messages posted to it are
/// dropped; sends waiting for it return 0. False for a window of another
/// thread or a handle that names no window.
bool DestroyMessageWindow(HWND window);

/// Queues a message for the window's owner and returns at once. False if
/// there is no such window or its queue is full: nothing is ever dropped
/// silently and the caller never blocks.
bool PostWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                       std::intptr_t lParam);

/// Runs the window's procedure on its owner thread and returns its result:
/// directly when the caller is the owner, else through the owner's queue,
/// processing messages sent to the caller's own windows while it waits. 0
/// without a result: no such window, the window destroyed or its owner
/// process ended while the caller waited, or no queue for the caller.
std::intptr_t SendWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                                std::intptr_t lParam);

/// How a send ended.
enum class SendOutcome {
    Ran,       ///< the procedure ran; its result is in `*result`
    NoWindow,  ///< no such window, or it or its owner ended before running it
    Failed,    ///< the caller has no queue or is nested too deep in sends
};

/// SendWindowMessage that tells whether the procedure ran. A send that
/// finds the owner's queue full waits for room as long as the window and
/// its owner live; it is never dropped.
SendOutcome SendWindowMessageChecked(HWND window, unsigned int message, std::uintptr_t wParam,
                                     std::intptr_t lParam, std::intptr_t* result);

/// Waits up to `timeoutMs` (-1 forever, 0 poll) for a posted message of the
/// calling thread, running messages sent to it meanwhile. 1: `*out` is the
/// message; 0: the quit message (its wParam the exit code); -1: timeout or
/// failure.
int GetWindowMessage(WindowMessage* out, int timeoutMs);

/// Runs a message taken by GetWindowMessage through its window's procedure;
/// 0 if the window is not one of this process.
std::intptr_t DispatchWindowMessage(const WindowMessage& message);

/// Takes and dispatches messages of the calling thread until the quit
/// message (true; its exit code into `*exitCode` when given) or until
/// `timeoutMs` passed (false).
bool PumpWindowMessages(int timeoutMs, int* exitCode = nullptr);

/// Asks the calling thread's pump to end: GetWindowMessage returns the quit
/// message once the posted messages before it were taken.
void PostQuitWindowMessage(int exitCode);

/// The first window whose class name and title equal the given ones
/// exactly; an absent criterion matches every window. Null if none.
HWND FindMessageWindow(std::optional<std::wstring_view> className,
                       std::optional<std::wstring_view> title);

/// The kernel thread id of the window's owner (0 if there is no such
/// window); its process id into `*processId` when given.
std::uint32_t GetWindowOwner(HWND window, std::uint32_t* processId);

/// What the window table of the current namespace holds, for tests.
struct WindowCensus {
    int windows = 0;
    int queues = 0;           ///< threads with a queue
    bool consistent = false;  ///< every window's owner queue exists
};

/// Counts the table under its lock (repairing it first if its last holder
/// died). False if the table cannot be attached or locked.
bool TakeWindowCensus(WindowCensus* out);

/// Takes the table lock and never releases it: lets a test process die
/// holding it. False if the table cannot be attached or locked.
bool HoldWindowTableLockForever();

/// HWND from and to its 32-bit value; a pointer beyond 32 bits names no
/// window (0).
inline HWND WindowFromValue(std::uint32_t value) {
    return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(value));
}
inline std::uint32_t WindowValue(HWND window) {
    const auto value = reinterpret_cast<std::uintptr_t>(window);
    return value > 0xFFFFFFFFu ? 0u : static_cast<std::uint32_t>(value);
}

}  // namespace kiv::platform
