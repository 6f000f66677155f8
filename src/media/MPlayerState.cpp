#include "media/MPlayerState.h"

#include <kiv/media/MPlayerEvent.h>

#include <atomic>

namespace kiv::media {
namespace {

// The state field is written by the application's thread and, at the end of
// playback, by an engine thread.
std::atomic_ref<const MPlayerState*> Field(const MPlayerState*& field) {
    return std::atomic_ref<const MPlayerState*>(field);
}

}  // namespace

const MPlayerState* MPlayerState::Uninitialized() {
    static const MPlayerState state(IPlayer::UNINITIALIZED);
    return &state;
}

const MPlayerState* MPlayerState::Ready() {
    static const MPlayerState state(IPlayer::READY);
    return &state;
}

const MPlayerState* MPlayerState::Started() {
    static const MPlayerState state(IPlayer::STARTED);
    return &state;
}

const MPlayerState* MPlayerState::Of(MPlayerBase& player) {
    return Field(player.m_state).load(std::memory_order_acquire);
}

bool MPlayerState::Move(MPlayerBase& player, const MPlayerState* from, const MPlayerState* to) {
    return Field(player.m_state).compare_exchange_strong(from, to, std::memory_order_acq_rel);
}

bool MPlayerState::IsOpen() const {
    return m_code != IPlayer::UNINITIALIZED;
}

unsigned int MPlayerState::Complete(MPlayerBase& player, unsigned int status,
                                    const MPlayerState* next, unsigned char event) {
    if (status != 0) {
        return status;
    }
    // The state changes before the event is queued, so a listener that asks
    // the player sees the new state.
    if (next != nullptr) {
        Field(player.m_state).store(next, std::memory_order_release);
    }
    player.FireEvent(event);
    return status;
}

double MPlayerState::GetRate(MPlayerBase& player) const {
    return IsOpen() ? player.DoGetRate() : IPlayer::UNKNOWN_RATE;
}

unsigned int MPlayerState::SetRate(MPlayerBase& player, double rate) const {
    return IsOpen() ? player.DoSetRate(rate) : 0;
}

int MPlayerState::GetMediaTime(MPlayerBase& player) const {
    return IsOpen() ? player.DoGetMediaTime() : IPlayer::UNKNOWN_TIME;
}

unsigned int MPlayerState::SetMediaTime(MPlayerBase& player, int time) const {
    if (!IsOpen()) {
        return 0;
    }
    return Complete(player, player.DoSetMediaTime(time), nullptr, MPlayerEvent::MEDIA_TIME_SET);
}

int MPlayerState::GetDuration(MPlayerBase& player) const {
    return IsOpen() ? player.DoGetDuration() : IPlayer::UNKNOWN_TIME;
}

unsigned int MPlayerState::Initialize(MPlayerBase& player) const {
    if (this != Uninitialized()) {
        return 0;
    }
    return Complete(player, player.DoInitialize(), Ready(), MPlayerEvent::INITIALIZED);
}

unsigned int MPlayerState::Deinitialize(MPlayerBase& player) const {
    if (this != Ready()) {
        return 0;
    }
    return Complete(player, player.DoDeinitialize(), Uninitialized(), MPlayerEvent::DEINITIALIZED);
}

unsigned int MPlayerState::Start(MPlayerBase& player) const {
    if (this != Ready()) {
        return 0;
    }
    return Complete(player, player.DoStart(), Started(), MPlayerEvent::STARTED);
}

unsigned int MPlayerState::Pause(MPlayerBase& player) const {
    if (this != Started()) {
        return 0;
    }
    return Complete(player, player.DoPause(), Ready(), MPlayerEvent::STOPPED_BY_REQUEST);
}

unsigned int MPlayerState::Stop(MPlayerBase& player) const {
    if (this != Started()) {
        return 0;
    }
    return Complete(player, player.DoStop(), Ready(), MPlayerEvent::STOPPED_BY_REQUEST);
}

unsigned int MPlayerState::LoadSource(MPlayerBase& player, IDataSource* source) const {
    return this == Ready() ? player.DoSetDataSource(source) : 0;
}

}  // namespace kiv::media
