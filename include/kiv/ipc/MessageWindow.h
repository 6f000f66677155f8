// Message windows for applications: hidden windows that receive messages
// from threads and processes of the same KIV_NAMESPACE, and the pump that
// runs them.
//
// A window belongs to the thread that created it; its procedure runs only on
// that thread, when the thread pumps (GetWindowMessage and
// DispatchWindowMessage, or PumpWindowMessages) or waits in a
// SendWindowMessage of its own. The IPC classes deliver commands and events
// this way: the thread that registers a server or subscribes to an event
// must pump. Windows end with their thread.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

#include <cstdint>

namespace kiv::ipc {

/// Runs one message on the owner thread; its result is what a send returns.
typedef std::intptr_t (*WindowProcedure)(HWND window, unsigned int message, std::uintptr_t wParam,
                                         std::intptr_t lParam);

/// A message taken from the calling thread's queue.
struct WindowMessage {
    HWND window;
    unsigned int message;
    std::uintptr_t wParam;
    std::intptr_t lParam;
};

/// The message that ends a pump; its wParam is the exit code.
constexpr unsigned int WINDOW_QUIT_MESSAGE = 0x0012;

/// Creates a window owned by the calling thread. Null if a name is longer
/// than 256 UTF-16 code units, the procedure is null, or the table is full.
KIV_API HWND CreateMessageWindow(const wchar_t* className, const wchar_t* title,
                                 WindowProcedure procedure);
/// Destroys a window of the calling thread; false for any other handle.
KIV_API bool DestroyMessageWindow(HWND window);
/// Queues a message for the window and returns at once; false if there is no
/// such window or its queue (128 messages) is full.
KIV_API bool PostWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                               std::intptr_t lParam);
/// Runs the window's procedure on its owner thread and returns its result;
/// 0 if the window does not exist, is destroyed or its process ends meanwhile.
KIV_API std::intptr_t SendWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                                        std::intptr_t lParam);
/// Takes the next posted message of the calling thread, waiting up to
/// `timeoutMs` (-1 forever, 0 not at all): 1 a message, 0 the quit message,
/// -1 timeout. Sent messages are run while it waits.
KIV_API int GetWindowMessage(WindowMessage& message, int timeoutMs);
/// Runs a message from GetWindowMessage through its window's procedure.
KIV_API std::intptr_t DispatchWindowMessage(const WindowMessage& message);
/// Takes and dispatches messages until the quit message (true, with its exit
/// code into `*exitCode` when given) or until `timeoutMs` passed (false).
KIV_API bool PumpWindowMessages(int timeoutMs, int* exitCode = nullptr);
/// Makes the calling thread's pump end after the messages already posted.
KIV_API void PostQuitWindowMessage(int exitCode);
/// The first window with this class name and title (exact match; null
/// matches any); null if none.
KIV_API HWND FindMessageWindow(const wchar_t* className, const wchar_t* title);
/// The thread id of the window's owner, 0 if there is no such window; the
/// owner's process id into `*processId` when not null.
KIV_API unsigned int GetWindowOwner(HWND window, unsigned int* processId);

}  // namespace kiv::ipc
