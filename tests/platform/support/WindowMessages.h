// The messages that the message-window tests and their helper process
// exchange, and the window procedure both sides use.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/MessageWindow.h"
#include "support/ThreadState.h"

namespace kiv::test::windows {

inline constexpr unsigned int kAdd = 0x500;       // sent: returns wParam + lParam
inline constexpr unsigned int kSequence = 0x501;  // posted: wParam counts up from 0
inline constexpr unsigned int kFinish = 0x502;    // posted: ends the pump with the in-order count
inline constexpr unsigned int kNested = 0x503;    // sent: sends kAdd(wParam, 1) to lParam, adds 1

// What the procedure saw. A procedure run on a thread other than `owner`
// (when set) counts as on the wrong thread.
struct ProcedureLog {
    std::atomic<int> inOrder{0};
    std::atomic<int> adds{0};
    std::atomic<int> finished{0};
    std::atomic<int> wrongThread{0};
    std::atomic<int> owner{0};
    std::atomic<int> lastAddThread{0};
};
inline ProcedureLog g_log;

inline void ResetLog(int owner) {
    g_log.inOrder = 0;
    g_log.adds = 0;
    g_log.finished = 0;
    g_log.wrongThread = 0;
    g_log.owner = owner;
}

inline std::intptr_t Procedure(HWND, unsigned int message, std::uintptr_t wParam,
                               std::intptr_t lParam) {
    using namespace kiv::platform;
    if (g_log.owner != 0 && g_log.owner != CurrentThreadId()) {
        g_log.wrongThread.fetch_add(1);
    }
    switch (message) {
        case kAdd:
            g_log.adds.fetch_add(1);
            g_log.lastAddThread = CurrentThreadId();
            return static_cast<std::intptr_t>(wParam) + lParam;
        case kSequence:
            if (wParam == static_cast<std::uintptr_t>(g_log.inOrder.load())) {
                g_log.inOrder.fetch_add(1);
            }
            return 0;
        case kFinish:
            g_log.finished.fetch_add(1);
            PostQuitWindowMessage(g_log.inOrder.load());
            return 0;
        case kNested:
            return SendWindowMessage(WindowFromValue(static_cast<std::uint32_t>(lParam)), kAdd,
                                     wParam, 1) +
                   1;
        default:
            return 0;
    }
}

}  // namespace kiv::test::windows
