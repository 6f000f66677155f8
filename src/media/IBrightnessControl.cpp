#include <kiv/media/IBrightnessControl.h>

namespace kiv::media {

const short IBrightnessControl::UNKNOWN_LEVEL = -1;

std::string IBrightnessControl::DEFAULT_NAME() {
    return "BrightnessControl";
}

std::string IBrightnessControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
