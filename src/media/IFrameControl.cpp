#include <kiv/media/IFrameControl.h>

namespace kiv::media {

std::string IFrameControl::DEFAULT_NAME() {
    return "FrameControl";
}

std::string IFrameControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
