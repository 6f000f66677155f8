#include <kiv/media/IVolumeControl.h>

namespace kiv::media {

const short IVolumeControl::UNKNOWN_VOLUME_LEVEL = -1;

std::string IVolumeControl::DEFAULT_NAME() {
    return "VolumeControl";
}

std::string IVolumeControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
