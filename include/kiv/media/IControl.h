// A named control of a player (volume, video window, ...). Each control
// interface has a static DEFAULT_NAME(), and a player's control answers
// GetName with it.
#pragma once

#include <kiv/platform/KivApi.h>

#include <string>

namespace kiv::media {

class KIV_API IControl {
public:
    virtual ~IControl();
    /// Returns the control's settings to those of a new player. The default
    /// does nothing.
    virtual void Reset();
    /// The control's name, the DEFAULT_NAME() of its interface.
    virtual std::string GetName() = 0;
};

}  // namespace kiv::media
