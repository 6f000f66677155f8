// The messages that the message-window tests and their helper process
// exchange.
#pragma once

namespace kiv::test::windows {

inline constexpr unsigned int kAdd = 0x500;       // sent: returns wParam + lParam
inline constexpr unsigned int kSequence = 0x501;  // posted: wParam counts up from 0
inline constexpr unsigned int kFinish = 0x502;    // posted: ends the pump
inline constexpr unsigned int kNested = 0x503;    // sent: sends kAdd(wParam, 1) to lParam, adds 1

}  // namespace kiv::test::windows
