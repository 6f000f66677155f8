// The device clock: the current time as UTC and as local time, and setting
// it.
#pragma once

namespace kiv::platform {

/// A calendar time with the fields of the platform's system time.
struct CivilTime {
    unsigned short year;
    unsigned short month;      ///< 1..12
    unsigned short dayOfWeek;  ///< 0 = Sunday
    unsigned short day;
    unsigned short hour;
    unsigned short minute;
    unsigned short second;
    unsigned short milliseconds;
};

/// The same instant as UTC and as local time.
void ReadClock(CivilTime& utc, CivilTime& local);

/// Sets the system clock to the local time `local`. False when the time is
/// not a valid calendar time or the process may not set the clock.
bool SetLocalClock(const CivilTime& local);

}  // namespace kiv::platform
