#include <kiv/media/IControl.h>

namespace kiv::media {

IControl::~IControl() = default;

void IControl::Reset() {}

}  // namespace kiv::media
