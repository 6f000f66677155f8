// Receives the events of the players it is added to.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::media {

class MPlayerEvent;

class KIV_API IPlayerListener {
public:
    virtual ~IPlayerListener();
    /// Called on the player's dispatcher thread, never on the thread that
    /// drove the player, once per event in the order the events were fired.
    virtual void OnPlayerEvent(const MPlayerEvent& event) = 0;
};

}  // namespace kiv::media
