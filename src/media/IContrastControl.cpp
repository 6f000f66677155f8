#include <kiv/media/IContrastControl.h>

namespace kiv::media {

std::string IContrastControl::DEFAULT_NAME() {
    return "ContrastControl";
}

std::string IContrastControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
