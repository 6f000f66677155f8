// One command or event of a server, as the command and event lists give it.
#pragma once

namespace kiv::ipc {

/// A name (at most 31 characters) and a description (at most 63), both
/// terminated; zero-filled before they are copied in.
struct _tagIpcObject {
    wchar_t name[32];
    wchar_t description[64];
};

}  // namespace kiv::ipc
