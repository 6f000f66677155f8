// The directory that stands for the device's root "\" (where "\NMEA.Log"
// lives): KIV_DEVICE_ROOT when set, else a per-user data directory
// ($XDG_DATA_HOME/kiv/device or ~/.local/share/kiv/device), created with
// owner-only permissions when missing. Read from the environment each call.
#pragma once

#include <string>
#include <string_view>

namespace kiv::platform {

/// The device root directory, without a trailing slash. Empty when the
/// default directory exists but is not a private directory of this user.
std::string DeviceRoot();

/// A file directly in the device root, given as the device names it
/// ("\NMEA.Log" or "NMEA.Log"); empty when the root is refused.
std::string DeviceRootFile(std::string_view deviceName);

}  // namespace kiv::platform
