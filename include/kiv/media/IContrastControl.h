// The contrast of a player's picture.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IContrastControl : public IControl {
public:
    /// "ContrastControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// Sets the level, 0 to 100 (50 leaves the picture as decoded); values
    /// outside are clamped. Returns the level now set.
    virtual short SetLevel(short level) = 0;
    /// The level set, 0 to 100; -1 if not known.
    virtual short GetLevel() = 0;
};

}  // namespace kiv::media
