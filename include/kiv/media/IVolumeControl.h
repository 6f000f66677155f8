// The sound level of a player.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IVolumeControl : public IControl {
public:
    static const short UNKNOWN_VOLUME_LEVEL;  ///< -1
    /// "VolumeControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Sets the level, 0 (silent) to 100; values outside are clamped. Returns
    /// the level now set. Does not change the mute state.
    virtual short SetLevel(short level) = 0;
    /// The level set, 0 to 100; UNKNOWN_VOLUME_LEVEL if not known yet.
    virtual short GetLevel() = 0;
    /// Silences the player (true) or gives it back its level (false).
    virtual void SetMute(bool mute) = 0;
    /// Whether the player is muted.
    virtual bool IsMuted() = 0;
};

}  // namespace kiv::media
