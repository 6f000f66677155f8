#include <kiv/media/IPlayerListener.h>

namespace kiv::media {

IPlayerListener::~IPlayerListener() = default;

}  // namespace kiv::media
