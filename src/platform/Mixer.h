// The master volume of the sound output, as the platform's packed
// two-channel value: left in the low 16 bits, right in the high 16 bits,
// each 0..0xFFFF.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace kiv::platform {

class Mixer {
public:
    virtual ~Mixer() = default;
    /// False when the volume could not be set.
    virtual bool SetVolume(std::uint32_t packed) = 0;
    /// False when the volume could not be read.
    virtual bool GetVolume(std::uint32_t& packed) = 0;
};

/// The mixer of the system's default sound output; null when there is none.
/// A test replaces it with SetMixerFactoryForTesting.
std::unique_ptr<Mixer> OpenMixer();

/// The real mixer, whatever a test installed; null when there is none.
std::unique_ptr<Mixer> OpenSystemMixer();

/// Makes OpenMixer call `factory` instead; an empty function restores the
/// system mixer. For tests only.
void SetMixerFactoryForTesting(std::function<std::unique_ptr<Mixer>()> factory);

}  // namespace kiv::platform
