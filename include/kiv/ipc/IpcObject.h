// One command or event of a server, as the command and event lists give it,
// and the status word of the IPC family.
#pragma once

namespace kiv::ipc {

/// A command or event that was not delivered: the server or subscriber
/// ended before its handler ran, the payload found no data slot, or the
/// message could not be queued. Module 8 (IPC), code 1.
inline constexpr unsigned int IPC_NOT_DELIVERED = 0x08000001;

/// A name (at most 31 characters) and a description (at most 63), both
/// terminated; zero-filled before they are copied in.
struct _tagIpcObject {
    wchar_t name[32];
    wchar_t description[64];
};

}  // namespace kiv::ipc
