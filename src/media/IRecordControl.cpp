#include <kiv/media/IRecordControl.h>

namespace kiv::media {

std::string IRecordControl::DEFAULT_NAME() {
    return "RecordControl";
}

std::string IRecordControl::GetName() {
    return DEFAULT_NAME();
}

}  // namespace kiv::media
