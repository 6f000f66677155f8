// Device settings that applications change from their own screens: user
// language, date and time, backlight, master volume and mute, battery.
//
// Results are 0 for success and 0xFFFFFFFF (-1) for failure unless an
// operation says otherwise; 0xFF means the object has no implementation.
// The battery state is read once, when the object is made. Copies share one
// implementation.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system {

/// The platform's date-and-time record.
struct _MSYSTEMTIME {
    unsigned short wYear;
    unsigned short wMonth;      ///< 1..12
    unsigned short wDayOfWeek;  ///< 0 = Sunday
    unsigned short wDay;
    unsigned short wHour;
    unsigned short wMinute;
    unsigned short wSecond;
    unsigned short wMilliseconds;
};

class MShellImpl;

class KIV_API MShell {
public:
    /// Reads the battery state; both maximum levels start at 1.
    MShell();
    MShell(const MShell& other);
    MShell& operator=(const MShell& other);
    ~MShell();

    /// Makes `lcid` the user's language; -1 for an unknown LCID.
    unsigned int SetCurrentLanguage(unsigned int lcid);
    /// The user's language; 0.
    unsigned int GetCurrentLanguage(unsigned int& lcid);
    /// The English name of the language of `lcid` into `buffer` of `size`
    /// characters; -1 when the buffer is null or too small or the LCID is
    /// unknown.
    unsigned int GetLanguageString(unsigned int lcid, wchar_t* buffer, unsigned int size);

    /// Sets the clock to the local time `time`; -1 without the privilege.
    unsigned int SetDateTime(const _MSYSTEMTIME* time);
    /// The current time as UTC and as local time; -1 if either is null.
    unsigned int GetDateTime(_MSYSTEMTIME* utc, _MSYSTEMTIME* local);

    /// Stores the brightness scale; a level outside 1..65534 gives 1.
    unsigned int SetMaxBrightnessLevel(unsigned int level);
    unsigned int GetMaxBrightnessLevel(unsigned int& level);
    /// Sets the backlight to `level`, not scaled by the maximum.
    unsigned int SetMainBrightnessLevel(unsigned int level);
    unsigned int GetMainBrightnessLevel(unsigned int& level);

    /// Stores the volume scale; a level outside 1..65534 gives 1.
    unsigned int SetMaxVolumeLevel(unsigned int level);
    unsigned int GetMaxVolumeLevel(unsigned int& level);
    /// Sets both channels to `level` on the scale of the maximum; 0 whether
    /// or not the sound output took it.
    unsigned int SetMainVolumeLevel(unsigned int level);
    /// The left channel on the scale of the maximum.
    unsigned int GetMainVolumeLevel(unsigned int& level);
    /// Non-zero mutes (remembering the volume), zero restores it. 1 on
    /// success and 0 on failure.
    unsigned int EnableMute(unsigned char mute);

    /// 0..100, 255 unknown.
    unsigned int GetBatteryLifePercent(unsigned int& percent);
    /// 0 off line, 1 on line, 255 unknown.
    unsigned int GetChargingStatus(int& status);

private:
    MShellImpl* m_impl;
};

}  // namespace kiv::system
