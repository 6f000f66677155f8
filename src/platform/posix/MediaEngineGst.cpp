// The playback engine on GStreamer: one playbin per engine, watched by a
// thread of the engine that pops the pipeline's bus, so the application needs
// no GLib main loop. GStreamer starts on the first engine made, never at load.
#include <gst/gst.h>
#include <gst/video/colorbalance.h>
#include <gst/video/video.h>
#include <gst/video/videooverlay.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/MediaEngine.h"
#include "platform/TagReader.h"
#include "platform/posix/GStreamerStart.h"

namespace kiv::platform {

bool StartGStreamer() {
    static std::once_flag once;
    static bool started = false;
    std::call_once(once, [] {
        GError* error = nullptr;
        started = gst_init_check(nullptr, nullptr, &error) != FALSE;
        if (error != nullptr) {
            g_error_free(error);
        }
    });
    return started;
}

namespace {

// playbin's flag bits (GstPlayFlags is private to the plugin).
constexpr guint kPlayFlagVideo = 0x1;
constexpr guint kPlayFlagText = 0x4;

// Preroll of a local file normally takes milliseconds; a pipeline that has
// not settled after this long is broken, not slow.
constexpr GstClockTime kSettleTimeout = 10 * GST_SECOND;

constexpr const char* kQuitMessage = "kiv-engine-quit";

// The sink named by an environment variable: a bin description as
// gst-launch takes it, or "discard" for a sink that drops everything in real
// time. Null when unset or unusable: playbin then takes its automatic sink.
GstElement* SinkFromEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0' || std::strcmp(value, "auto") == 0) {
        return nullptr;
    }
    const char* description = std::strcmp(value, "discard") == 0 ? "fakesink sync=true" : value;
    GError* error = nullptr;
    GstElement* sink = gst_parse_bin_from_description(description, TRUE, &error);
    if (error != nullptr) {
        g_error_free(error);
        if (sink != nullptr) {
            gst_object_unref(sink);
        }
        return nullptr;
    }
    return sink;
}

bool HasDisplay() {
    const char* x = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    return (x != nullptr && *x != '\0') || (wayland != nullptr && *wayland != '\0');
}

// The status one bus message stands for; ENGINE_FAILURE when it says
// nothing more precise.
unsigned int StatusOf(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT) {
        const GstStructure* s = gst_message_get_structure(message);
        return s != nullptr && gst_structure_has_name(s, "missing-plugin")
                   ? MediaStatus::MISSING_DECODER
                   : MediaStatus::ENGINE_FAILURE;
    }
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    unsigned int status = MediaStatus::ENGINE_FAILURE;
    if (error != nullptr) {
        if (error->domain == GST_RESOURCE_ERROR) {
            status = MediaStatus::NOT_FOUND;
        } else if ((error->domain == GST_STREAM_ERROR &&
                    error->code == GST_STREAM_ERROR_CODEC_NOT_FOUND) ||
                   (error->domain == GST_CORE_ERROR &&
                    error->code == GST_CORE_ERROR_MISSING_PLUGIN)) {
            status = MediaStatus::MISSING_DECODER;
        } else if (error->domain == GST_STREAM_ERROR) {
            status = MediaStatus::UNKNOWN_FORMAT;
        }
        g_error_free(error);
    }
    return status;
}

// Sorts a failed preroll by the messages it left on the bus. The elements
// of one failure report it in several messages, not always in the order
// of cause and effect, and the precise one may trail the state change by a
// moment: the messages of a short window are read and the most precise
// wins.
unsigned int ClassifyFailure(GstBus* bus) {
    auto rank = [](unsigned int status) {
        switch (status) {
            case MediaStatus::MISSING_DECODER:
                return 3;
            case MediaStatus::NOT_FOUND:
                return 2;
            case MediaStatus::UNKNOWN_FORMAT:
                return 1;
            default:
                return 0;
        }
    };
    constexpr GstClockTime kWindow = 300 * GST_MSECOND;
    const GstClockTime end = gst_util_get_timestamp() + kWindow;
    unsigned int status = MediaStatus::ENGINE_FAILURE;
    for (;;) {
        const GstClockTime now = gst_util_get_timestamp();
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, now < end ? end - now : 0,
            static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_ELEMENT));
        if (message == nullptr) {
            return status;
        }
        const unsigned int candidate = StatusOf(message);
        gst_message_unref(message);
        if (rank(candidate) > rank(status)) {
            status = candidate;
        }
        if (status == MediaStatus::MISSING_DECODER) {
            return status;
        }
    }
}

int ToMs(gint64 ns) {
    return static_cast<int>(ns / GST_MSECOND);
}

void LinkToDiscardingSink(GstElement*, GstPad* pad, gpointer pipeline) {
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    g_object_set(sink, "sync", FALSE, nullptr);
    gst_bin_add(GST_BIN(pipeline), sink);
    gst_element_sync_state_with_parent(sink);
    GstPad* input = gst_element_get_static_pad(sink, "sink");
    gst_pad_link(pad, input);
    gst_object_unref(input);
}

// The length of a stream whose container does not state it (an MP3 without
// a frame-count header): the parsers read through the whole file without
// decoding, which takes milliseconds, and then know it exactly. -1 if that
// fails.
int ScanDurationMs(const std::string& uri) {
    GstElement* source = gst_element_make_from_uri(GST_URI_SRC, uri.c_str(), nullptr, nullptr);
    GstElement* parser = gst_element_factory_make("parsebin", nullptr);
    if (source == nullptr || parser == nullptr) {
        if (source != nullptr) {
            gst_object_unref(source);
        }
        if (parser != nullptr) {
            gst_object_unref(parser);
        }
        return -1;
    }
    GstElement* pipeline = gst_pipeline_new(nullptr);
    gst_bin_add_many(GST_BIN(pipeline), source, parser, nullptr);
    gst_element_link(source, parser);
    g_signal_connect(parser, "pad-added", G_CALLBACK(LinkToDiscardingSink), pipeline);
    int ms = -1;
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) {
        GstBus* bus = gst_element_get_bus(pipeline);
        GstMessage* end = gst_bus_timed_pop_filtered(
            bus, kSettleTimeout, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
        gint64 duration = 0;
        if (end != nullptr && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS &&
            gst_element_query_duration(pipeline, GST_FORMAT_TIME, &duration) && duration >= 0) {
            ms = ToMs(duration);
        }
        if (end != nullptr) {
            gst_message_unref(end);
        }
        gst_object_unref(bus);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return ms;
}

// GLib's UTF-8 as wide text (one character per wchar_t).
std::wstring WideFromUtf8(const gchar* utf8) {
    std::wstring out;
    if (utf8 == nullptr || !g_utf8_validate(utf8, -1, nullptr)) {
        return out;
    }
    for (const gchar* p = utf8; *p != '\0'; p = g_utf8_next_char(p)) {
        out.push_back(static_cast<wchar_t>(g_utf8_get_char(p)));
    }
    return out;
}

// The first text under `tag`, or empty.
std::wstring TagText(const GstTagList* tags, const char* tag) {
    const gchar* value = nullptr;
    return gst_tag_list_peek_string_index(tags, tag, 0, &value) ? WideFromUtf8(value)
                                                                : std::wstring();
}

// Fills `fields` from the tags of a stream; the sound's format and the
// duration are the caller's.
void FieldsFromTags(const GstTagList* tags, TagFields& fields) {
    fields.title = TagText(tags, GST_TAG_TITLE);
    fields.artist = TagText(tags, GST_TAG_ARTIST);
    fields.album = TagText(tags, GST_TAG_ALBUM);
    fields.comment = TagText(tags, GST_TAG_COMMENT);
    for (guint i = 0; i < gst_tag_list_get_tag_size(tags, GST_TAG_GENRE); ++i) {
        const gchar* genre = nullptr;
        if (gst_tag_list_peek_string_index(tags, GST_TAG_GENRE, i, &genre)) {
            fields.genres.push_back(WideFromUtf8(genre));
        }
    }
    GstDateTime* when = nullptr;
    GDate* date = nullptr;
    if (gst_tag_list_get_date_time(tags, GST_TAG_DATE_TIME, &when)) {
        fields.year = static_cast<unsigned int>(std::max(gst_date_time_get_year(when), 0));
        gst_date_time_unref(when);
    } else if (gst_tag_list_get_date(tags, GST_TAG_DATE, &date)) {
        fields.year = g_date_valid(date) ? g_date_get_year(date) : 0;
        g_date_free(date);
    }
    guint number = 0;
    if (gst_tag_list_get_uint(tags, GST_TAG_TRACK_NUMBER, &number)) {
        fields.track = number;
    }
    if (gst_tag_list_get_uint(tags, GST_TAG_BITRATE, &number) ||
        gst_tag_list_get_uint(tags, GST_TAG_NOMINAL_BITRATE, &number)) {
        fields.bitrateKbps = static_cast<int>((number + 500) / 1000);
    }
    GstSample* image = nullptr;
    if (gst_tag_list_get_sample(tags, GST_TAG_IMAGE, &image) ||
        gst_tag_list_get_sample(tags, GST_TAG_PREVIEW_IMAGE, &image)) {
        GstBuffer* buffer = gst_sample_get_buffer(image);
        const GstCaps* caps = gst_sample_get_caps(image);
        GstMapInfo map;
        if (buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            fields.picture.assign(map.data, map.data + map.size);
            gst_buffer_unmap(buffer, &map);
            if (caps != nullptr && gst_caps_get_size(caps) > 0) {
                fields.pictureMime = gst_structure_get_name(gst_caps_get_structure(caps, 0));
            }
        }
        gst_sample_unref(image);
    }
}

class MediaEngineGst final : public MediaEngine {
public:
    MediaEngineGst() = default;
    ~MediaEngineGst() override { Close(); }
    MediaEngineGst(const MediaEngineGst&) = delete;
    MediaEngineGst& operator=(const MediaEngineGst&) = delete;

    unsigned int Open(const std::string& location) override {
        Close();
        if (!StartGStreamer()) {
            return MediaStatus::UNAVAILABLE;
        }
        std::string uri;
        if (gst_uri_is_valid(location.c_str())) {
            uri = location;
        } else {
            struct stat info {};
            if (location.empty() || stat(location.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
                access(location.c_str(), R_OK) != 0) {
                return MediaStatus::NOT_FOUND;
            }
            gchar* converted = gst_filename_to_uri(location.c_str(), nullptr);
            if (converted == nullptr) {
                return MediaStatus::NOT_FOUND;
            }
            uri = converted;
            g_free(converted);
        }

        GstElement* pipeline = gst_element_factory_make("playbin", nullptr);
        if (pipeline == nullptr) {
            return MediaStatus::UNAVAILABLE;
        }
        g_object_set(pipeline, "uri", uri.c_str(), nullptr);
        if (GstElement* audio = SinkFromEnvironment("KIV_AUDIO_SINK")) {
            g_object_set(pipeline, "audio-sink", audio, nullptr);
        }
        GstElement* video = SinkFromEnvironment("KIV_VIDEO_SINK");
        if (video == nullptr && !HasDisplay()) {
            // Without a display the pictures are decoded and dropped in real
            // time, so snapshots and picture levels still work.
            video = gst_parse_bin_from_description("fakesink sync=true", TRUE, nullptr);
        }
        if (video != nullptr) {
            g_object_set(pipeline, "video-sink", video, nullptr);
        }
        guint flags = 0;
        g_object_get(pipeline, "flags", &flags, nullptr);
        flags &= ~kPlayFlagText;
        if (!m_visible) {
            flags &= ~kPlayFlagVideo;
        }
        g_object_set(pipeline, "flags", flags, "force-aspect-ratio", m_keepAspect ? TRUE : FALSE,
                     "volume", LinearVolume(m_volume), "mute", m_mute ? TRUE : FALSE, nullptr);
        if (m_window != 0) {
            gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(pipeline), m_window);
        }
        GstBus* bus = gst_element_get_bus(pipeline);

        unsigned int status = Settle(pipeline, gst_element_set_state(pipeline, GST_STATE_PAUSED));
        if (status == 0) {
            gint audioStreams = 0;
            gint videoStreams = 0;
            g_object_get(pipeline, "n-audio", &audioStreams, "n-video", &videoStreams, nullptr);
            if (audioStreams + videoStreams == 0) {
                status = MediaStatus::UNKNOWN_FORMAT;
            }
        } else if (status != MediaStatus::TIMEOUT) {
            status = ClassifyFailure(bus);
        }
        if (status != 0) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(bus);
            gst_object_unref(pipeline);
            return status;
        }
        // A stream whose length the pipeline does not know yet is scanned
        // when the length is first asked for, not here: the scan reads the
        // whole file, and Start must not wait for it.
        gint64 known = 0;
        const bool scan = !gst_element_query_duration(pipeline, GST_FORMAT_TIME, &known);
        // Messages of the preroll (warnings, tags) are of no use later.
        gst_bus_set_flushing(bus, TRUE);
        gst_bus_set_flushing(bus, FALSE);

        std::lock_guard<std::mutex> lock(m_mutex);
        m_pipeline = pipeline;
        m_bus = bus;
        m_rate = 1.0;
        m_stopMs = -1;
        m_resumeMs = -1;
        m_playing = false;
        m_segmentSeqnum = GST_SEQNUM_INVALID;
        m_uri = uri;
        m_scannedMs = scan ? kNotScanned : -1;
        m_busThread = std::thread([this] { WatchBus(); });
        return 0;
    }

    void Close() override {
        std::thread watcher;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_pipeline == nullptr) {
                return;
            }
            gst_bus_post(
                m_bus, gst_message_new_application(nullptr, gst_structure_new_empty(kQuitMessage)));
            watcher = std::move(m_busThread);
        }
        // The watcher takes the mutex for the messages before the quit one.
        watcher.join();
        std::lock_guard<std::mutex> lock(m_mutex);
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        gst_object_unref(m_bus);
        gst_object_unref(m_pipeline);
        m_bus = nullptr;
        m_pipeline = nullptr;
        m_playing = false;
    }

    bool IsOpen() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_pipeline != nullptr;
    }

    unsigned int Play() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (m_resumeMs >= 0) {
            // The last segment ran out (end of stream or stop time): the
            // sinks take data again only after a flushing seek.
            unsigned int status = SeekLocked(m_resumeMs);
            if (status != 0) {
                return status;
            }
        }
        if (gst_element_set_state(m_pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
            return MediaStatus::ENGINE_FAILURE;
        }
        m_errorReported = false;
        m_playing = true;
        return 0;
    }

    unsigned int Pause() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return PauseLocked();
    }

    unsigned int Stop() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        unsigned int status = PauseLocked();
        return status != 0 ? status : SeekLocked(0);
    }

    unsigned int Seek(int ms) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        return SeekLocked(ms);
    }

    int Position() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return -1;
        }
        gint64 position = 0;
        if (!gst_element_query_position(m_pipeline, GST_FORMAT_TIME, &position) || position < 0) {
            return m_resumeMs >= 0 ? m_resumeMs : -1;
        }
        return ToMs(position);
    }

    int Duration() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return DurationLocked();
    }

    double Rate() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_rate;
    }

    unsigned int SetRate(double rate) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr || rate == 0.0 || !std::isfinite(rate)) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (rate == m_rate) {
            return 0;
        }
        const double previous = m_rate;
        m_rate = rate;
        const int position = PositionLocked();
        unsigned int status = SeekLocked(position < 0 ? 0 : position);
        if (status != 0) {
            m_rate = previous;
            SeekLocked(position < 0 ? 0 : position);
            return MediaStatus::NOT_SUPPORTED;
        }
        return 0;
    }

    unsigned int SetStopTime(int ms) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr || ms < -1) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        m_stopMs = ms;
        // The stop position lives in the playback segment: a seek to where
        // playback stands installs it.
        const int position = m_resumeMs >= 0 ? m_resumeMs : PositionLocked();
        return SeekLocked(position < 0 ? 0 : position);
    }

    void SetVolume(int level) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_volume = std::clamp(level, 0, 100);
        if (m_pipeline != nullptr) {
            g_object_set(m_pipeline, "volume", LinearVolume(m_volume), nullptr);
        }
    }

    int Volume() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_volume;
    }

    void SetMute(bool mute) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_mute = mute;
        if (m_pipeline != nullptr) {
            g_object_set(m_pipeline, "mute", mute ? TRUE : FALSE, nullptr);
        }
    }

    bool IsMuted() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_mute;
    }

    bool HasAudio() override { return StreamCount("n-audio") > 0; }
    bool HasVideo() override { return StreamCount("n-video") > 0; }

    bool VideoSize(int& width, int& height) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return false;
        }
        GstPad* pad = nullptr;
        g_signal_emit_by_name(m_pipeline, "get-video-pad", 0, &pad);
        if (pad == nullptr) {
            return false;
        }
        GstCaps* caps = gst_pad_get_current_caps(pad);
        gst_object_unref(pad);
        if (caps == nullptr) {
            return false;
        }
        GstVideoInfo info;
        const bool known = gst_video_info_from_caps(&info, caps) != FALSE;
        gst_caps_unref(caps);
        if (known) {
            width = GST_VIDEO_INFO_WIDTH(&info);
            height = GST_VIDEO_INFO_HEIGHT(&info);
        }
        return known;
    }

    bool FrameRate(int& numerator, int& denominator) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        GstCaps* caps = VideoCapsLocked();
        if (caps == nullptr) {
            return false;
        }
        gint n = 0;
        gint d = 0;
        const bool known =
            gst_structure_get_fraction(gst_caps_get_structure(caps, 0), "framerate", &n, &d) &&
            n > 0 && d > 0;
        gst_caps_unref(caps);
        if (known) {
            numerator = n;
            denominator = d;
        }
        return known;
    }

    std::vector<StreamInfo> Streams(StreamKind kind) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        const bool audio = kind == StreamKind::AUDIO;
        std::vector<StreamInfo> streams;
        const gint count = StreamCountLocked(audio ? "n-audio" : "n-text");
        for (gint i = 0; i < count; ++i) {
            StreamInfo stream;
            GstTagList* tags = nullptr;
            g_signal_emit_by_name(m_pipeline, audio ? "get-audio-tags" : "get-text-tags", i, &tags);
            if (tags != nullptr) {
                stream.language = TagText(tags, GST_TAG_LANGUAGE_CODE);
                stream.title = TagText(tags, GST_TAG_TITLE);
                gst_tag_list_unref(tags);
            }
            streams.push_back(std::move(stream));
        }
        return streams;
    }

    unsigned int SelectStream(StreamKind kind, int index) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        const bool audio = kind == StreamKind::AUDIO;
        if (m_pipeline == nullptr || index < (audio ? 0 : -1) ||
            index >= StreamCountLocked(audio ? "n-audio" : "n-text")) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (audio) {
            g_object_set(m_pipeline, "current-audio", static_cast<gint>(index), nullptr);
            return 0;
        }
        // Subtitles are rendered only while their flag is set; playbin
        // builds or drops the text branch when it changes.
        guint flags = 0;
        g_object_get(m_pipeline, "flags", &flags, nullptr);
        if (index >= 0) {
            g_object_set(m_pipeline, "current-text", static_cast<gint>(index), nullptr);
        }
        flags = index >= 0 ? (flags | kPlayFlagText) : (flags & ~kPlayFlagText);
        g_object_set(m_pipeline, "flags", flags, nullptr);
        return 0;
    }

    int CurrentStream(StreamKind kind) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        const bool audio = kind == StreamKind::AUDIO;
        if (m_pipeline == nullptr || StreamCountLocked(audio ? "n-audio" : "n-text") == 0) {
            return -1;
        }
        guint flags = 0;
        gint current = -1;
        g_object_get(m_pipeline, "flags", &flags, audio ? "current-audio" : "current-text",
                     &current, nullptr);
        return audio || (flags & kPlayFlagText) != 0 ? current : -1;
    }

    void SetWindow(std::uintptr_t handle) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_window = handle;
        if (m_pipeline != nullptr) {
            gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(m_pipeline), handle);
            gst_video_overlay_expose(GST_VIDEO_OVERLAY(m_pipeline));
        }
    }

    void SetDisplayRect(int x, int y, int width, int height) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return;
        }
        if (width <= 0 || height <= 0) {
            gst_video_overlay_set_render_rectangle(GST_VIDEO_OVERLAY(m_pipeline), 0, 0, -1, -1);
        } else {
            gst_video_overlay_set_render_rectangle(GST_VIDEO_OVERLAY(m_pipeline), x, y, width,
                                                   height);
        }
        gst_video_overlay_expose(GST_VIDEO_OVERLAY(m_pipeline));
    }

    void SetKeepAspect(bool keep) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_keepAspect = keep;
        if (m_pipeline != nullptr) {
            g_object_set(m_pipeline, "force-aspect-ratio", keep ? TRUE : FALSE, nullptr);
        }
    }

    void SetVisible(bool visible) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (visible == m_visible) {
            return;
        }
        m_visible = visible;
        if (m_pipeline != nullptr) {
            // playbin builds or drops its video branch when the flag changes.
            guint flags = 0;
            g_object_get(m_pipeline, "flags", &flags, nullptr);
            flags = visible ? (flags | kPlayFlagVideo) : (flags & ~kPlayFlagVideo);
            g_object_set(m_pipeline, "flags", flags, nullptr);
        }
    }

    bool IsVisible() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_visible;
    }

    unsigned int SetFullScreen(bool fullScreen) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (!fullScreen) {
            if (m_fullScreen) {
                SetSinkFullScreen(false);
                m_fullScreen = false;
            }
            return 0;
        }
        // Only a window of the engine's own can be made full screen; an
        // application's window is the application's to size.
        if (m_window != 0 || !SetSinkFullScreen(true)) {
            return MediaStatus::NOT_SUPPORTED;
        }
        m_fullScreen = true;
        return 0;
    }

    bool IsFullScreen() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_fullScreen;
    }

    unsigned int Snapshot(std::vector<unsigned char>& rgb, int& width, int& height) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (StreamCountLocked("n-video") == 0) {
            return MediaStatus::NO_VIDEO;
        }
        GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "RGB", nullptr);
        GstSample* sample = nullptr;
        g_signal_emit_by_name(m_pipeline, "convert-sample", caps, &sample);
        gst_caps_unref(caps);
        if (sample == nullptr) {
            return MediaStatus::ENGINE_FAILURE;
        }
        unsigned int status = MediaStatus::ENGINE_FAILURE;
        GstVideoInfo info;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        GstMapInfo map;
        if (buffer != nullptr && gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) &&
            gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            const int w = GST_VIDEO_INFO_WIDTH(&info);
            const int h = GST_VIDEO_INFO_HEIGHT(&info);
            const std::size_t stride =
                static_cast<std::size_t>(GST_VIDEO_INFO_PLANE_STRIDE(&info, 0));
            const std::size_t row = static_cast<std::size_t>(w) * 3;
            if (w > 0 && h > 0 && stride >= row &&
                map.size >= stride * static_cast<std::size_t>(h - 1) + row) {
                rgb.resize(row * static_cast<std::size_t>(h));
                for (int y = 0; y < h; ++y) {
                    std::memcpy(rgb.data() + row * static_cast<std::size_t>(y),
                                map.data + stride * static_cast<std::size_t>(y), row);
                }
                width = w;
                height = h;
                status = 0;
            }
            gst_buffer_unmap(buffer, &map);
        }
        gst_sample_unref(sample);
        return status;
    }

    unsigned int SetPictureLevel(Picture which, int level) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (level < 0 || level > 100) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        GstColorBalanceChannel* channel = FindChannel(which);
        if (channel == nullptr) {
            return MediaStatus::NO_VIDEO;
        }
        const double span = channel->max_value - channel->min_value;
        const int value = channel->min_value + static_cast<int>(std::lround(span * level / 100.0));
        gst_color_balance_set_value(GST_COLOR_BALANCE(m_pipeline), channel, value);
        g_object_unref(channel);
        return 0;
    }

    int PictureLevel(Picture which) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        GstColorBalanceChannel* channel = FindChannel(which);
        if (channel == nullptr) {
            return -1;
        }
        const int value = gst_color_balance_get_value(GST_COLOR_BALANCE(m_pipeline), channel);
        const double span = channel->max_value - channel->min_value;
        g_object_unref(channel);
        return span <= 0
                   ? -1
                   : static_cast<int>(std::lround((value - channel->min_value) * 100.0 / span));
    }

    bool ReadTags(TagFields& fields) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return false;
        }
        // The first sound stream's tags come first: its bit rate is the one
        // asked for. Tags of the whole file reach every stream.
        GstTagList* merged = gst_tag_list_new_empty();
        for (const char* signal : {"get-audio-tags", "get-video-tags"}) {
            GstTagList* tags = nullptr;
            g_signal_emit_by_name(m_pipeline, signal, 0, &tags);
            if (tags != nullptr) {
                gst_tag_list_insert(merged, tags, GST_TAG_MERGE_KEEP);
                gst_tag_list_unref(tags);
            }
        }
        fields = TagFields{};
        FieldsFromTags(merged, fields);
        gst_tag_list_unref(merged);
        fields.durationMs = DurationLocked();
        GstPad* pad = nullptr;
        g_signal_emit_by_name(m_pipeline, "get-audio-pad", 0, &pad);
        if (pad != nullptr) {
            if (GstCaps* caps = gst_pad_get_current_caps(pad)) {
                const GstStructure* s = gst_caps_get_structure(caps, 0);
                gst_structure_get_int(s, "rate", &fields.sampleRateHz);
                gst_structure_get_int(s, "channels", &fields.channels);
                gst_caps_unref(caps);
            }
            gst_object_unref(pad);
        }
        return true;
    }

    void SetEventCallback(EventCallback callback) override {
        std::lock_guard<std::mutex> lock(m_callbackMutex);
        m_callback = std::move(callback);
    }

private:
    static double LinearVolume(int level) {
        const double cubic = level / 100.0;
        return cubic * cubic * cubic;
    }

    // Waits for an asynchronous state change to complete.
    static unsigned int Settle(GstElement* pipeline, GstStateChangeReturn change) {
        if (change == GST_STATE_CHANGE_FAILURE) {
            return MediaStatus::ENGINE_FAILURE;
        }
        if (change == GST_STATE_CHANGE_ASYNC) {
            change = gst_element_get_state(pipeline, nullptr, nullptr, kSettleTimeout);
            if (change == GST_STATE_CHANGE_FAILURE) {
                return MediaStatus::ENGINE_FAILURE;
            }
            if (change == GST_STATE_CHANGE_ASYNC) {
                return MediaStatus::TIMEOUT;
            }
        }
        return 0;
    }

    unsigned int PauseLocked() {
        if (m_pipeline == nullptr) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        const unsigned int status =
            Settle(m_pipeline, gst_element_set_state(m_pipeline, GST_STATE_PAUSED));
        if (status == 0) {
            m_playing = false;
        }
        return status;
    }

    int PositionLocked() {
        gint64 position = 0;
        if (!gst_element_query_position(m_pipeline, GST_FORMAT_TIME, &position) || position < 0) {
            return -1;
        }
        return ToMs(position);
    }

    int DurationLocked() {
        if (m_pipeline == nullptr) {
            return -1;
        }
        if (m_scannedMs == kNotScanned) {
            m_scannedMs = ScanDurationMs(m_uri);
        }
        if (m_scannedMs >= 0) {
            // Exact, where the pipeline's figure would be an estimate.
            return m_scannedMs;
        }
        gint64 duration = 0;
        if (!gst_element_query_duration(m_pipeline, GST_FORMAT_TIME, &duration) || duration < 0) {
            return -1;
        }
        return ToMs(duration);
    }

    unsigned int SeekLocked(int ms) {
        if (ms < 0) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        const int duration = DurationLocked();
        if (duration >= 0 && ms > duration) {
            ms = duration;
        }
        const gint64 target = static_cast<gint64>(ms) * GST_MSECOND;
        const bool stopSet = m_stopMs >= 0;
        const gint64 stop = stopSet ? static_cast<gint64>(m_stopMs) * GST_MSECOND : -1;
        const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
        GstEvent* seek = nullptr;
        if (m_rate > 0) {
            seek = gst_event_new_seek(m_rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, target,
                                      stopSet ? GST_SEEK_TYPE_SET : GST_SEEK_TYPE_NONE, stop);
        } else {
            // Backwards, the segment runs from the start (or the stop time)
            // to the position.
            seek = gst_event_new_seek(m_rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET,
                                      stopSet ? stop : 0, GST_SEEK_TYPE_SET, target);
        }
        const guint32 seqnum = gst_event_get_seqnum(seek);
        if (!gst_element_send_event(m_pipeline, seek)) {
            return MediaStatus::NOT_SUPPORTED;
        }
        // The end of the new segment carries the seek's number; an end of
        // stream still on the bus from before the seek does not.
        m_segmentSeqnum = seqnum;
        m_resumeMs = -1;
        m_errorReported = false;
        unsigned int status =
            Settle(m_pipeline, gst_element_get_state(m_pipeline, nullptr, nullptr, kSettleTimeout));
        return status;
    }

    // The caps of the decoded pictures, with a reference; null without a
    // video branch.
    GstCaps* VideoCapsLocked() {
        if (m_pipeline == nullptr) {
            return nullptr;
        }
        GstPad* pad = nullptr;
        g_signal_emit_by_name(m_pipeline, "get-video-pad", 0, &pad);
        if (pad == nullptr) {
            return nullptr;
        }
        GstCaps* caps = gst_pad_get_current_caps(pad);
        gst_object_unref(pad);
        return caps;
    }

    static std::string TagText(const GstTagList* tags, const char* tag) {
        gchar* value = nullptr;
        if (!gst_tag_list_get_string(tags, tag, &value) || value == nullptr) {
            return {};
        }
        std::string text(value);
        g_free(value);
        return text;
    }

    gint StreamCount(const char* property) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return StreamCountLocked(property);
    }

    gint StreamCountLocked(const char* property) {
        if (m_pipeline == nullptr) {
            return 0;
        }
        gint count = 0;
        g_object_get(m_pipeline, property, &count, nullptr);
        return count;
    }

    // The colour-balance channel of `which`, with a reference; null without
    // a video branch.
    GstColorBalanceChannel* FindChannel(Picture which) {
        if (m_pipeline == nullptr || !m_visible || StreamCountLocked("n-video") == 0) {
            return nullptr;
        }
        const char* wanted = which == Picture::BRIGHTNESS ? "BRIGHTNESS"
                             : which == Picture::CONTRAST ? "CONTRAST"
                                                          : "SATURATION";
        const GList* channels = gst_color_balance_list_channels(GST_COLOR_BALANCE(m_pipeline));
        for (const GList* item = channels; item != nullptr; item = item->next) {
            auto* channel = GST_COLOR_BALANCE_CHANNEL(item->data);
            if (channel->label != nullptr && g_ascii_strcasecmp(channel->label, wanted) == 0) {
                return GST_COLOR_BALANCE_CHANNEL(g_object_ref(channel));
            }
        }
        return nullptr;
    }

    // Sets "fullscreen" on the video sink or the first element inside it
    // that has the property; false when none has.
    bool SetSinkFullScreen(bool on) {
        GstElement* sink = nullptr;
        g_object_get(m_pipeline, "video-sink", &sink, nullptr);
        if (sink == nullptr) {
            return false;
        }
        bool done = false;
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(sink), "fullscreen") != nullptr) {
            g_object_set(sink, "fullscreen", on ? TRUE : FALSE, nullptr);
            done = true;
        } else if (GST_IS_BIN(sink)) {
            GstIterator* it = gst_bin_iterate_recurse(GST_BIN(sink));
            GValue item = G_VALUE_INIT;
            while (!done && gst_iterator_next(it, &item) == GST_ITERATOR_OK) {
                auto* element = GST_ELEMENT(g_value_get_object(&item));
                if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), "fullscreen")) {
                    g_object_set(element, "fullscreen", on ? TRUE : FALSE, nullptr);
                    done = true;
                }
                g_value_reset(&item);
            }
            g_value_unset(&item);
            gst_iterator_free(it);
        }
        gst_object_unref(sink);
        return done;
    }

    void WatchBus() {
        const auto wanted = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR |
                                                        GST_MESSAGE_APPLICATION);
        for (;;) {
            GstMessage* message = gst_bus_timed_pop_filtered(m_bus, GST_CLOCK_TIME_NONE, wanted);
            if (message == nullptr) {
                continue;
            }
            const GstMessageType type = GST_MESSAGE_TYPE(message);
            const guint32 seqnum = gst_message_get_seqnum(message);
            const GstStructure* s = gst_message_get_structure(message);
            const bool quit = type == GST_MESSAGE_APPLICATION && s != nullptr &&
                              gst_structure_has_name(s, kQuitMessage);
            gst_message_unref(message);
            if (quit) {
                return;
            }
            // The decision and the report are one step under the mutex: Play
            // and Pause of the application's thread come before or after
            // both, so an end is reported only for the playback it ended.
            std::lock_guard<std::mutex> lock(m_mutex);
            if (type == GST_MESSAGE_EOS) {
                // An element that does not pass the number on would leave
                // the player playing for ever at the end: an end found where
                // the segment ends is taken whatever its number.
                const bool stale = m_segmentSeqnum != GST_SEQNUM_INVALID &&
                                   seqnum != m_segmentSeqnum && !AtSegmentEndLocked();
                if (m_playing && !stale) {
                    Report(OnEndOfSegmentLocked());
                }
            } else if (type == GST_MESSAGE_ERROR) {
                if (OnErrorLocked() && m_playing) {
                    m_playing = false;
                    Report(Event::ERROR);
                }
            }
        }
    }

    // True when the position is within a moment of where the segment ends.
    bool AtSegmentEndLocked() {
        constexpr int kSlackMs = 250;
        const int position = PositionLocked();
        if (position < 0) {
            return true;
        }
        if (m_rate < 0) {
            return position <= (m_stopMs >= 0 ? m_stopMs : 0) + kSlackMs;
        }
        const int end = m_stopMs >= 0 ? m_stopMs : DurationLocked();
        return end < 0 || position + kSlackMs >= end;
    }

    // The end of a playback that nobody paused first. An end that arrives
    // after a Pause is left alone: the sinks report it again when playback
    // resumes there.
    Event OnEndOfSegmentLocked() {
        gst_element_set_state(m_pipeline, GST_STATE_PAUSED);
        m_playing = false;
        if (m_stopMs >= 0) {
            // A stop time is used once.
            m_resumeMs = m_stopMs;
            m_stopMs = -1;
            return Event::STOP_TIME;
        }
        // The next Play starts over, as after Stop.
        m_resumeMs = 0;
        return Event::END_OF_STREAM;
    }

    // True for the first error after a Play or a seek; the elements of one
    // breakdown often report it several times. Only an error during playback
    // is reported: a paused player has no playback to end.
    bool OnErrorLocked() {
        gst_element_set_state(m_pipeline, GST_STATE_PAUSED);
        const bool first = !m_errorReported;
        m_errorReported = true;
        return first;
    }

    void Report(Event event) {
        std::lock_guard<std::mutex> lock(m_callbackMutex);
        if (m_callback) {
            m_callback(event);
        }
    }

    mutable std::mutex m_mutex;
    GstElement* m_pipeline = nullptr;
    GstBus* m_bus = nullptr;
    std::thread m_busThread;
    bool m_errorReported = false;
    // Between a Play and the Pause, Stop, end or error that ends it.
    bool m_playing = false;
    // The number of the last seek; invalid before the first.
    guint32 m_segmentSeqnum = GST_SEQNUM_INVALID;
    double m_rate = 1.0;
    int m_stopMs = -1;
    int m_resumeMs = -1;
    // The scanned length; -1 when the pipeline's own figure is used.
    static constexpr int kNotScanned = -2;
    int m_scannedMs = -1;
    std::string m_uri;
    int m_volume = 100;
    bool m_mute = false;
    std::uintptr_t m_window = 0;
    bool m_visible = true;
    bool m_keepAspect = true;
    bool m_fullScreen = false;

    std::mutex m_callbackMutex;
    EventCallback m_callback;
};

}  // namespace

std::unique_ptr<MediaEngine> MediaEngine::Create() {
    return std::make_unique<MediaEngineGst>();
}

}  // namespace kiv::platform
