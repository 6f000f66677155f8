// GStreamer is started once per process, by the first engine or audio input
// made, never when the library is loaded.
#pragma once

namespace kiv::platform {

/// Starts GStreamer on the first call; false (then and after) if it cannot.
bool StartGStreamer();

}  // namespace kiv::platform
