#include <kiv/media/MSeekType.h>

namespace kiv::media {

const int MSeekType::NOT_SEEKABLE = 0;
const int MSeekType::SEEKABLE_TOStart = 1;
const int MSeekType::RANDOM_ACCESSABLE = 2;

}  // namespace kiv::media
