// Battery and external power: the first battery and the first mains supply
// of the power-supply class.
#pragma once

#include <cstdint>

namespace kiv::platform {

/// The fields of the platform's extended power status record, with its
/// "unknown" values as defaults.
struct PowerStatus {
    std::uint8_t acLineStatus = 255;        ///< 0 off line, 1 on line, 255 unknown
    std::uint8_t batteryFlag = 255;         ///< 1 high, 2 low, 4 critical, 8 charging, 128 none
    std::uint8_t batteryLifePercent = 255;  ///< 0..100, 255 unknown
    std::uint8_t reserved1 = 0;
    std::uint32_t batteryLifeTime = 0xFFFFFFFF;      ///< seconds left, or unknown
    std::uint32_t batteryFullLifeTime = 0xFFFFFFFF;  ///< seconds on a full charge, or unknown
    std::uint8_t reserved2 = 0;
    std::uint8_t backupBatteryFlag = 255;
    std::uint8_t backupBatteryLifePercent = 255;
    std::uint8_t reserved3 = 0;
    std::uint32_t backupBatteryLifeTime = 0xFFFFFFFF;
    std::uint32_t backupBatteryFullLifeTime = 0xFFFFFFFF;
};

/// Reads the current state; what cannot be read stays unknown.
void ReadPowerStatus(PowerStatus& status);

}  // namespace kiv::platform
