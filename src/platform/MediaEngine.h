// One playback pipeline: a media file opened, prerolled and played.
//
// The built-in player drives one engine; the engine owns the decoding
// threads and one thread of its own that watches the pipeline and reports the
// end of the stream and errors through a callback. No operation needs a main
// loop of the caller. Failures are media status words (module 3).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kiv::platform {

struct TagFields;

/// Status words of the engine, media module.
struct MediaStatus {
    static constexpr unsigned int INVALID_ARGUMENT = 0x03000001;  ///< a bad value or no file open
    static constexpr unsigned int NOT_FOUND = 0x03000002;         ///< the file cannot be read
    static constexpr unsigned int UNKNOWN_FORMAT = 0x03000003;    ///< no demuxer knows the data
    static constexpr unsigned int MISSING_DECODER = 0x03000004;   ///< a decoder is not installed
    static constexpr unsigned int ENGINE_FAILURE = 0x03000005;    ///< the pipeline refused or broke
    static constexpr unsigned int NOT_SUPPORTED = 0x03000006;     ///< the stream refuses this
    static constexpr unsigned int NO_VIDEO = 0x03000007;          ///< a video operation, no video
    static constexpr unsigned int TIMEOUT = 0x03000008;           ///< the pipeline did not settle
    static constexpr unsigned int UNAVAILABLE = 0x03000009;       ///< the engine cannot start
    /// A recording cannot be written: the pipeline's failure word, since
    /// the media family has codes 1 to 9 only.
    static constexpr unsigned int WRITE_FAILED = ENGINE_FAILURE;
};

class MediaEngine {
public:
    /// What the engine thread reports.
    enum class Event {
        END_OF_STREAM,  ///< playback reached the end; the engine is paused there
        STOP_TIME,      ///< playback reached the stop time; the engine is paused there
        ERROR,          ///< decoding or output failed; the engine is paused
    };
    /// Called on the engine's own thread with the engine's lock held, so that
    /// no Play or Pause slips between an end and its report: it must not
    /// call the engine. An event is reported only for a playback that no
    /// Pause or Stop ended first.
    using EventCallback = std::function<void(Event)>;

    /// The three picture levels of a video stream.
    enum class Picture { BRIGHTNESS, CONTRAST, SATURATION };

    /// A new engine with nothing open. Starting the media framework happens
    /// here, once per process.
    static std::unique_ptr<MediaEngine> Create();

    /// Closes whatever is open.
    virtual ~MediaEngine() = default;

    /// Opens a file path (or a URI) and prerolls it, so Play starts at once.
    /// On failure nothing stays open.
    virtual unsigned int Open(const std::string& location) = 0;
    /// Releases the pipeline, its threads and the engine thread. Idempotent.
    virtual void Close() = 0;
    virtual bool IsOpen() const = 0;

    virtual unsigned int Play() = 0;
    virtual unsigned int Pause() = 0;
    /// Pauses and returns to the beginning.
    virtual unsigned int Stop() = 0;
    /// Accurate seek; returns once the new position is prerolled. Positions
    /// past the end are taken as the end.
    virtual unsigned int Seek(int ms) = 0;
    /// The position in ms, -1 when unknown.
    virtual int Position() = 0;
    /// The duration in ms, -1 when unknown.
    virtual int Duration() = 0;
    virtual double Rate() const = 0;
    /// Any non-zero rate the stream accepts; NOT_SUPPORTED otherwise.
    virtual unsigned int SetRate(double rate) = 0;
    /// Playback pauses at `ms` and reports STOP_TIME; -1 removes it.
    virtual unsigned int SetStopTime(int ms) = 0;

    /// Level 0..100 (perceptual), and mute.
    virtual void SetVolume(int level) = 0;
    virtual int Volume() const = 0;
    virtual void SetMute(bool mute) = 0;
    virtual bool IsMuted() const = 0;

    virtual bool HasAudio() = 0;
    virtual bool HasVideo() = 0;
    /// The size of the decoded pictures; false without video.
    virtual bool VideoSize(int& width, int& height) = 0;

    /// Renders into the native window `handle` (an X11 window id); 0 gives
    /// the output its own window again.
    virtual void SetWindow(std::uintptr_t handle) = 0;
    /// The area of the window that shows the video; a size of 0 means all.
    virtual void SetDisplayRect(int x, int y, int width, int height) = 0;
    /// True keeps the picture's proportions inside the area (bars fill the
    /// rest); false stretches it over the area.
    virtual void SetKeepAspect(bool keep) = 0;
    virtual void SetVisible(bool visible) = 0;
    virtual bool IsVisible() const = 0;
    virtual unsigned int SetFullScreen(bool fullScreen) = 0;
    virtual bool IsFullScreen() const = 0;
    /// The current picture as rows of 8-bit R, G, B without padding.
    virtual unsigned int Snapshot(std::vector<unsigned char>& rgb, int& width, int& height) = 0;

    /// Picture level 0..100, 50 being the stream as decoded.
    virtual unsigned int SetPictureLevel(Picture which, int level) = 0;
    /// -1 when the stream has no such level.
    virtual int PictureLevel(Picture which) = 0;

    /// The tags the demuxer found in the open file (for containers the tag
    /// reader does not know, such as AVI), with the duration and the bit
    /// rate and format of the sound. False when nothing is open.
    virtual bool ReadTags(TagFields& fields) = 0;

    /// The frame rate of the video as a fraction (frames per second =
    /// numerator / denominator); false without video or when the stream
    /// states none. Engines that cannot tell answer false.
    virtual bool FrameRate(int& numerator, int& denominator) {
        (void)numerator;
        (void)denominator;
        return false;
    }

    /// The kinds of stream a media may offer a choice among.
    enum class StreamKind { AUDIO, SUBTITLE };
    /// One stream of the media, as its container describes it.
    struct StreamInfo {
        std::string language;  ///< ISO 639 code as stated ("en", "deu"), or empty
        std::string title;     ///< the track's name, or empty
    };
    /// The streams of `kind` of the open media, in the container's order.
    virtual std::vector<StreamInfo> Streams(StreamKind kind) {
        (void)kind;
        return {};
    }
    /// Plays (shows) stream `index` of `kind` from now on; for subtitles -1
    /// hides them, as they are when a media is opened.
    virtual unsigned int SelectStream(StreamKind kind, int index) {
        (void)kind;
        (void)index;
        return MediaStatus::NOT_SUPPORTED;
    }
    /// The stream of `kind` playing (shown) now; -1 if none.
    virtual int CurrentStream(StreamKind kind) {
        (void)kind;
        return -1;
    }

    /// Replaces the callback; returns after any running call of the old one.
    virtual void SetEventCallback(EventCallback callback) = 0;
};

}  // namespace kiv::platform
