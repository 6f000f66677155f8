// Sound from an input: the default capture device, or the source that
// KIV_AUDIO_SOURCE names. The captured sound arrives as blocks of 16-bit
// little-endian interleaved PCM on a thread of the capture; nothing arrives
// while it is paused. Failures are media status words (MediaEngine.h).
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace kiv::platform {

class AudioCapture {
public:
    /// The shape of the PCM delivered (always 16 bits per sample).
    struct Format {
        int rate = 0;
        int channels = 0;
    };
    /// What ends a running capture by itself.
    enum class Event {
        END,    ///< the source has no more sound (a finite test source)
        ERROR,  ///< the input failed; Open again before the next Start
    };
    /// Called on a thread of the capture, once per end; must not call Close.
    using EventCallback = std::function<void(Event)>;
    /// Called on the capture's thread for every block while it runs.
    using DataCallback =
        std::function<void(const Format& format, const unsigned char* data, std::size_t bytes)>;

    /// A capture with nothing open. The media framework starts here, once
    /// per process.
    static std::unique_ptr<AudioCapture> Create();

    /// Closes whatever is open.
    virtual ~AudioCapture() = default;

    /// Opens the input, paused; fails with a status when there is none.
    virtual unsigned int Open() = 0;
    /// Stops the input; no callback runs once it returns. Idempotent.
    virtual void Close() = 0;
    virtual bool IsOpen() const = 0;
    virtual unsigned int Start() = 0;
    virtual unsigned int Pause() = 0;

    /// Replaces the callback; returns after any running call of the old one.
    virtual void SetDataCallback(DataCallback callback) = 0;
    /// Replaces the event callback; returns after any running call of the old
    /// one.
    virtual void SetEventCallback(EventCallback callback) = 0;
};

}  // namespace kiv::platform
