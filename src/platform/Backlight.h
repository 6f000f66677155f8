// The display backlight: the first device of the backlight class.
#pragma once

namespace kiv::platform {

/// Writes `level` as the brightness, unscaled; false without a device or
/// when the device refuses the level.
bool SetBacklightLevel(unsigned int level);

/// Reads the brightness; false without a device.
bool GetBacklightLevel(unsigned int& level);

}  // namespace kiv::platform
