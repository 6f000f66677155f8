#include <kiv/concurrent/IRunnable.h>

namespace kiv::system {

IRunnable::~IRunnable() = default;

}  // namespace kiv::system
