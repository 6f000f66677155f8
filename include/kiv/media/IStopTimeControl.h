// Stops a player at a chosen media time.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IStopTimeControl : public IControl {
public:
    static const int RESET;  ///< 0x7FFFFFFF: no stop time
    /// "StopTimeControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Stops the player, as Stop does (STOPPED_BY_REQUEST), when playback
    /// reaches `time` ms; RESET removes the stop time. Refused with a status
    /// while the player is STARTED and a stop time is already set. The stop
    /// time is used once, then reset.
    virtual unsigned int SetStopTime(int time) = 0;
    /// The stop time set, in ms; RESET if none.
    virtual int GetStopTime() = 0;
};

}  // namespace kiv::media
