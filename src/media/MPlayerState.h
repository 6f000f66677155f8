// The three states a player can be in, shared by all players. Each state
// object decides, operation by operation, whether the player's primitive
// runs, and moves the player on when the primitive succeeded.
#pragma once

#include <kiv/media/MPlayerBase.h>

namespace kiv::media {

class MPlayerState {
public:
    static const MPlayerState* Uninitialized();
    static const MPlayerState* Ready();
    static const MPlayerState* Started();

    /// The player's current state. Safe from any thread.
    static const MPlayerState* Of(MPlayerBase& player);
    /// Moves `player` from `from` to `to` unless another thread moved it
    /// first; true if it did.
    static bool Move(MPlayerBase& player, const MPlayerState* from, const MPlayerState* to);

    MPlayerState(const MPlayerState&) = delete;
    MPlayerState& operator=(const MPlayerState&) = delete;

    /// UNINITIALIZED, READY or STARTED.
    signed char Code() const { return m_code; }

    double GetRate(MPlayerBase& player) const;
    unsigned int SetRate(MPlayerBase& player, double rate) const;
    int GetMediaTime(MPlayerBase& player) const;
    unsigned int SetMediaTime(MPlayerBase& player, int time) const;
    int GetDuration(MPlayerBase& player) const;
    unsigned int Initialize(MPlayerBase& player) const;
    unsigned int Deinitialize(MPlayerBase& player) const;
    unsigned int Start(MPlayerBase& player) const;
    unsigned int Pause(MPlayerBase& player) const;
    unsigned int Stop(MPlayerBase& player) const;
    /// Loads `source` into the player; only READY does so.
    unsigned int LoadSource(MPlayerBase& player, IDataSource* source) const;

private:
    explicit MPlayerState(signed char code) : m_code(code) {}

    bool IsOpen() const;
    // When `status` is 0, enters `next` (unless null) and fires `event`;
    // returns `status`.
    static unsigned int Complete(MPlayerBase& player, unsigned int status, const MPlayerState* next,
                                 unsigned char event);

    signed char m_code;
};

}  // namespace kiv::media
