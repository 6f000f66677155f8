#include <kiv/media/IMediaSelectControl.h>

namespace kiv::media {

std::string IMediaSelectControl::DEFAULT_NAME() {
    return "MediaSelectControl";
}

std::string IMediaSelectControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
