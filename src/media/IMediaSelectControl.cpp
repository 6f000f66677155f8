#include <kiv/media/IMediaSelectControl.h>

namespace kiv::media {

const int IMediaSelectControl::AUDIO_STREAM = 0;
const int IMediaSelectControl::SUBTITLE_STREAM = 1;

std::string IMediaSelectControl::DEFAULT_NAME() {
    return "MediaSelectControl";
}

std::string IMediaSelectControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
