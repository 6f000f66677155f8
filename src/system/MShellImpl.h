// The device services behind MShell. Copies of a facade share one
// implementation, counted here.
#pragma once

#include <kiv/system/MShell.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "foundation/SharedImplementation.h"
#include "platform/Mixer.h"
#include "platform/PowerSupply.h"

namespace kiv::system {

class MShellImpl : public SharedImplementation<MShellImpl> {
public:
    MShellImpl();
    MShellImpl(const MShellImpl&) = delete;
    MShellImpl& operator=(const MShellImpl&) = delete;

    // Virtual operations in the facade's slot order.
    virtual ~MShellImpl();
    virtual unsigned int GetBatteryLifePercent(unsigned int& percent);
    virtual unsigned int GetChargingStatus(int& status);
    virtual unsigned int GetBatteryTimes(unsigned int& lifeTime, unsigned int& fullLifeTime);
    virtual unsigned int GetACLineStatus(unsigned int& status);
    virtual unsigned int EnableMute(unsigned char mute);
    virtual unsigned int SetMaxVolumeLevel(unsigned int level);
    virtual unsigned int GetMaxVolumeLevel(unsigned int& level);
    virtual unsigned int SetMainVolumeLevel(unsigned int level);
    virtual unsigned int GetMainVolumeLevel(unsigned int& level);
    virtual unsigned int SetMaxBrightnessLevel(unsigned int level);
    virtual unsigned int GetMaxBrightnessLevel(unsigned int& level);
    virtual unsigned int SetMainBrightnessLevel(unsigned int level);
    virtual unsigned int GetMainBrightnessLevel(unsigned int& level);
    virtual unsigned int SetCurrentLanguage(unsigned int lcid);
    virtual unsigned int GetLanguageString(unsigned int lcid, wchar_t* buffer, unsigned int size);
    virtual unsigned int GetCurrentLanguage(unsigned int& lcid);
    virtual unsigned int SetDateTime(const _MSYSTEMTIME* time);
    virtual unsigned int GetDateTime(_MSYSTEMTIME* utc, _MSYSTEMTIME* local);

private:
    // Through the mixer, opened at the first volume call (and tried again
    // while there is none); false when it failed or there is none.
    bool SetVolume(std::uint32_t packed);
    bool GetVolume(std::uint32_t& packed);

    platform::PowerStatus m_powerStatus;
    std::uint32_t m_currentVolume = 0;
    std::uint32_t m_savedVolume = 0;
    std::uint32_t m_maxVolumeLevel = 1;
    std::uint32_t m_maxBrightnessLevel = 1;
    std::unique_ptr<platform::Mixer> m_mixer;
};

}  // namespace kiv::system
