#include <kiv/media/IDriver.h>

namespace kiv::media {

IDriver::~IDriver() = default;

}  // namespace kiv::media
