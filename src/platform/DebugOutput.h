// Text for a debugger, as the device's debug-output call carries it. Off by
// default; KIV_DEBUG_OUTPUT turns it on: "stderr" writes each text to the
// standard error stream, any other value is a file the texts are appended
// to (UTF-8), which is how tests capture them.
#pragma once

#include <string_view>

namespace kiv::platform {

/// Emits `text` where KIV_DEBUG_OUTPUT says; nothing when it is unset.
void OutputDebugText(std::wstring_view text);

}  // namespace kiv::platform
