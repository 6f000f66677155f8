// The master volume on the ALSA simple mixer of the "default" device.
#include <alsa/asoundlib.h>

#include <cstdarg>
#include <cstring>

#include "platform/Mixer.h"

namespace kiv::platform {
namespace {

// ALSA reports every failed open on stderr; a missing sound card is an
// expected state here, so the report is dropped while the library opens.
void Silent(const char*, int, const char*, int, const char*, ...) {}

class AlsaMixer final : public Mixer {
public:
    AlsaMixer(snd_mixer_t* mixer, snd_mixer_elem_t* element) : m_mixer(mixer), m_element(element) {
        snd_mixer_selem_get_playback_volume_range(m_element, &m_min, &m_max);
    }
    ~AlsaMixer() override { snd_mixer_close(m_mixer); }
    AlsaMixer(const AlsaMixer&) = delete;
    AlsaMixer& operator=(const AlsaMixer&) = delete;

    bool SetVolume(std::uint32_t packed) override {
        if (m_max <= m_min) {
            return false;
        }
        const long left = ToMixer(packed & 0xFFFF);
        const long right = ToMixer(packed >> 16);
        if (snd_mixer_selem_is_playback_mono(m_element) != 0) {
            return snd_mixer_selem_set_playback_volume_all(m_element, left) == 0;
        }
        return snd_mixer_selem_set_playback_volume(m_element, SND_MIXER_SCHN_FRONT_LEFT, left) ==
                   0 &&
               snd_mixer_selem_set_playback_volume(m_element, SND_MIXER_SCHN_FRONT_RIGHT, right) ==
                   0;
    }

    bool GetVolume(std::uint32_t& packed) override {
        if (m_max <= m_min) {
            return false;
        }
        snd_mixer_handle_events(m_mixer);
        long left = 0;
        long right = 0;
        if (snd_mixer_selem_get_playback_volume(m_element, SND_MIXER_SCHN_FRONT_LEFT, &left) != 0) {
            return false;
        }
        if (snd_mixer_selem_is_playback_mono(m_element) != 0 ||
            snd_mixer_selem_get_playback_volume(m_element, SND_MIXER_SCHN_FRONT_RIGHT, &right) !=
                0) {
            right = left;
        }
        packed = FromMixer(left) | (FromMixer(right) << 16);
        return true;
    }

private:
    // 0..0xFFFF onto min..max and back, rounding to the nearest step so that
    // a value set reads back the same at the range's ends.
    long ToMixer(std::uint32_t v) const {
        const long long span = m_max - m_min;
        return m_min + static_cast<long>((static_cast<long long>(v) * span + 32767) / 65535);
    }
    std::uint32_t FromMixer(long v) const {
        const long long span = m_max - m_min;
        const long long scaled = (static_cast<long long>(v - m_min) * 65535 + span / 2) / span;
        return static_cast<std::uint32_t>(scaled < 0 ? 0 : (scaled > 65535 ? 65535 : scaled));
    }

    snd_mixer_t* m_mixer;
    snd_mixer_elem_t* m_element;
    long m_min = 0;
    long m_max = 0;
};

// "Master" if the device has it, else its first element with a playback
// volume.
snd_mixer_elem_t* MasterElement(snd_mixer_t* mixer) {
    snd_mixer_elem_t* first = nullptr;
    for (snd_mixer_elem_t* e = snd_mixer_first_elem(mixer); e != nullptr;
         e = snd_mixer_elem_next(e)) {
        if (snd_mixer_selem_is_active(e) == 0 || snd_mixer_selem_has_playback_volume(e) == 0) {
            continue;
        }
        if (std::strcmp(snd_mixer_selem_get_name(e), "Master") == 0) {
            return e;
        }
        if (first == nullptr) {
            first = e;
        }
    }
    return first;
}

}  // namespace

std::unique_ptr<Mixer> OpenSystemMixer() {
    snd_lib_error_set_handler(Silent);
    snd_mixer_t* mixer = nullptr;
    snd_mixer_elem_t* element = nullptr;
    if (snd_mixer_open(&mixer, 0) == 0) {
        if (snd_mixer_attach(mixer, "default") == 0 &&
            snd_mixer_selem_register(mixer, nullptr, nullptr) == 0 && snd_mixer_load(mixer) == 0) {
            element = MasterElement(mixer);
        }
        if (element == nullptr) {
            snd_mixer_close(mixer);
        }
    }
    snd_lib_error_set_handler(nullptr);
    if (element == nullptr) {
        return nullptr;
    }
    return std::make_unique<AlsaMixer>(mixer, element);
}

}  // namespace kiv::platform
