#include <kiv/media/ISaturationControl.h>

namespace kiv::media {

std::string ISaturationControl::DEFAULT_NAME() {
    return "SaturationControl";
}

std::string ISaturationControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
