#include <kiv/media/IVideoControl.h>

namespace kiv::media {

std::string IVideoControl::DEFAULT_NAME() {
    return "VideoControl";
}

std::string IVideoControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
