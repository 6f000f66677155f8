#include <kiv/media/ILrcControl.h>

namespace kiv::media {

std::string ILrcControl::DEFAULT_NAME() {
    return "LrcControl";
}

std::string ILrcControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
