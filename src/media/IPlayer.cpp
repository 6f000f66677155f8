#include <kiv/media/IPlayer.h>

namespace kiv::media {

const signed char IPlayer::CLOSED = 0;
const signed char IPlayer::UNINITIALIZED = 1;
const signed char IPlayer::READY = 2;
const signed char IPlayer::STARTED = 3;

const double IPlayer::NORMAL_RATE = 1.0;
const double IPlayer::UNKNOWN_RATE = -1.0;
const int IPlayer::UNKNOWN_TIME = -1;

const int IPlayer::ZM_LETTERBOX = 0;
const int IPlayer::ZM_PANSCAN = 1;
const int IPlayer::ZM_FITWINDOW = 2;
const int IPlayer::ZM_NORMAL = 3;

IPlayer::~IPlayer() = default;

int IPlayer::GetDuration(const wchar_t* /*path*/) {
    return -1;
}

bool IPlayer::ForceSoftwareCCRRR(int /*mode*/) {
    return false;
}

bool IPlayer::SetAudioThreadPriority(int /*priority*/) {
    return false;
}

bool IPlayer::SetAudioVolume(int /*volume*/) {
    return false;
}

bool IPlayer::SetEqualizer(const int* /*gains*/, bool /*enable*/) {
    return false;
}

bool IPlayer::SetVideoThreadPriority(int /*priority*/) {
    return false;
}

bool IPlayer::SetZoomMode(int /*mode*/) {
    return false;
}

bool IPlayer::StartVideo() {
    return false;
}

bool IPlayer::StopVideo() {
    return false;
}

int IPlayer::GetAudioVolume() {
    return -1;
}

bool IPlayer::HasVideo() {
    return false;
}

}  // namespace kiv::media
