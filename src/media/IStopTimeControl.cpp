#include <kiv/media/IStopTimeControl.h>

namespace kiv::media {

const int IStopTimeControl::RESET = 0x7FFFFFFF;

std::string IStopTimeControl::DEFAULT_NAME() {
    return "StopTimeControl";
}

std::string IStopTimeControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
