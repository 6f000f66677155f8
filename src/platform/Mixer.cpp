#include "platform/Mixer.h"

#include <mutex>
#include <utility>

namespace kiv::platform {
namespace {

std::mutex g_mutex;
std::function<std::unique_ptr<Mixer>()> g_factory;

}  // namespace

std::unique_ptr<Mixer> OpenMixer() {
    std::function<std::unique_ptr<Mixer>()> factory;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        factory = g_factory;
    }
    return factory ? factory() : OpenSystemMixer();
}

void SetMixerFactoryForTesting(std::function<std::unique_ptr<Mixer>()> factory) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_factory = std::move(factory);
}

}  // namespace kiv::platform
