#include "system/MShellImpl.h"

#include <kiv/system/MRegistry.h>

#include <cwchar>
#include <string>

#include "platform/Backlight.h"
#include "platform/DeviceClock.h"
#include "platform/Language.h"

namespace kiv::system {
namespace {

constexpr unsigned int kFailed = 0xFFFFFFFFu;
constexpr unsigned int kMaxLevel = 65534;

// Where the user's language is kept.
constexpr const wchar_t* kShellKey = L"Software\\Tarvo\\KivFramework\\SHELL";
constexpr const wchar_t* kLanguageValue = L"LCID";

_MSYSTEMTIME ToSystemTime(const platform::CivilTime& t) {
    return {t.year, t.month, t.dayOfWeek, t.day, t.hour, t.minute, t.second, t.milliseconds};
}

}  // namespace

MShellImpl::MShellImpl() {
    platform::ReadPowerStatus(m_powerStatus);
    m_maxVolumeLevel = 1;
    m_maxBrightnessLevel = 1;
}

MShellImpl::~MShellImpl() = default;

bool MShellImpl::SetVolume(std::uint32_t packed) {
    if (m_mixer == nullptr) {
        m_mixer = platform::OpenMixer();
    }
    return m_mixer != nullptr && m_mixer->SetVolume(packed);
}

bool MShellImpl::GetVolume(std::uint32_t& packed) {
    if (m_mixer == nullptr) {
        m_mixer = platform::OpenMixer();
    }
    return m_mixer != nullptr && m_mixer->GetVolume(packed);
}

unsigned int MShellImpl::GetBatteryLifePercent(unsigned int& percent) {
    percent = m_powerStatus.batteryLifePercent;
    return 0;
}

unsigned int MShellImpl::GetChargingStatus(int& status) {
    status = m_powerStatus.acLineStatus;
    return 0;
}

unsigned int MShellImpl::GetBatteryTimes(unsigned int& lifeTime, unsigned int& fullLifeTime) {
    lifeTime = m_powerStatus.batteryLifeTime;
    fullLifeTime = m_powerStatus.batteryFullLifeTime;
    return 0;
}

unsigned int MShellImpl::GetACLineStatus(unsigned int& status) {
    status = m_powerStatus.acLineStatus;
    return 0;
}

unsigned int MShellImpl::EnableMute(unsigned char mute) {
    std::uint32_t volume = 0;
    if (mute != 0) {
        m_savedVolume = m_currentVolume;
    } else {
        volume = m_savedVolume;
        m_currentVolume = m_savedVolume;
    }
    if (!SetVolume(volume)) {
        return 0;
    }
    m_currentVolume = volume;
    // Success is 1 here, unlike every other operation of the shell.
    return 1;
}

unsigned int MShellImpl::SetMaxVolumeLevel(unsigned int level) {
    // Out of range gives 1, not -1.
    if (level < 1 || level > kMaxLevel) {
        return 1;
    }
    m_maxVolumeLevel = level;
    return 0;
}

unsigned int MShellImpl::GetMaxVolumeLevel(unsigned int& level) {
    level = m_maxVolumeLevel;
    return 0;
}

unsigned int MShellImpl::SetMainVolumeLevel(unsigned int level) {
    if (m_maxVolumeLevel == 0) {
        return kFailed;
    }
    const std::uint32_t v = (level * 65535u) / m_maxVolumeLevel;
    const std::uint32_t packed = v | (v << 16);
    m_currentVolume = packed;
    // The answer of the sound output is not looked at.
    SetVolume(packed);
    return 0;
}

unsigned int MShellImpl::GetMainVolumeLevel(unsigned int& level) {
    if (!GetVolume(m_currentVolume)) {
        return kFailed;
    }
    // Two unsigned divisions in this order, as the device computes it.
    level = (m_currentVolume & 0xFFFFu) / (65535u / m_maxVolumeLevel);
    return 0;
}

unsigned int MShellImpl::SetMaxBrightnessLevel(unsigned int level) {
    if (level < 1 || level > kMaxLevel) {
        return 1;
    }
    m_maxBrightnessLevel = level;
    return 0;
}

unsigned int MShellImpl::GetMaxBrightnessLevel(unsigned int& level) {
    level = m_maxBrightnessLevel;
    return 0;
}

unsigned int MShellImpl::SetMainBrightnessLevel(unsigned int level) {
    return platform::SetBacklightLevel(level) ? 0 : kFailed;
}

unsigned int MShellImpl::GetMainBrightnessLevel(unsigned int& level) {
    return platform::GetBacklightLevel(level) ? 0 : kFailed;
}

unsigned int MShellImpl::SetCurrentLanguage(unsigned int lcid) {
    if (!platform::IsKnownLanguage(lcid)) {
        return kFailed;
    }
    MRegistry reg;
    if (reg.Create(HKEY_CURRENT_USER, kShellKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr) !=
            0 ||
        reg.SetValue(lcid, kLanguageValue) != 0) {
        return kFailed;
    }
    return 0;
}

unsigned int MShellImpl::GetLanguageString(unsigned int lcid, wchar_t* buffer, unsigned int size) {
    if (buffer == nullptr) {
        return kFailed;
    }
    std::wstring name;
    if (!platform::EnglishLanguageName(lcid, name) || name.size() + 1 > size) {
        return kFailed;
    }
    std::wmemcpy(buffer, name.c_str(), name.size() + 1);
    return 0;
}

unsigned int MShellImpl::GetCurrentLanguage(unsigned int& lcid) {
    MRegistry reg;
    unsigned int stored = 0;
    if (reg.Open(HKEY_CURRENT_USER, kShellKey, KEY_READ) == 0 &&
        reg.QueryValue(stored, kLanguageValue) == 0) {
        lcid = stored;
    } else {
        lcid = platform::ProcessLanguage();
    }
    return 0;
}

unsigned int MShellImpl::SetDateTime(const _MSYSTEMTIME* time) {
    if (time == nullptr) {
        return kFailed;
    }
    const platform::CivilTime local = {time->wYear,   time->wMonth,       time->wDayOfWeek,
                                       time->wDay,    time->wHour,        time->wMinute,
                                       time->wSecond, time->wMilliseconds};
    return platform::SetLocalClock(local) ? 0 : kFailed;
}

unsigned int MShellImpl::GetDateTime(_MSYSTEMTIME* utc, _MSYSTEMTIME* local) {
    if (utc == nullptr || local == nullptr) {
        return kFailed;
    }
    platform::CivilTime u{};
    platform::CivilTime l{};
    platform::ReadClock(u, l);
    *utc = ToSystemTime(u);
    *local = ToSystemTime(l);
    return 0;
}

}  // namespace kiv::system
