// Audio input on GStreamer: the source, a converter to 16-bit PCM and a
// sink that hands each buffer to the callback on the streaming thread.
// KIV_AUDIO_SOURCE picks the source: unset or "auto" for the automatic
// one, "test" for a live 440 Hz sine (machines without a sound card, the
// tests), or a gst-launch bin description.
#include <gst/gst.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "platform/AudioCapture.h"
#include "platform/MediaEngine.h"
#include "platform/posix/GStreamerStart.h"

namespace kiv::platform {
namespace {

constexpr GstClockTime kSettleTimeout = 10 * GST_SECOND;

constexpr const char* kConvert =
    " ! audioconvert ! audioresample ! "
    "audio/x-raw,format=S16LE,layout=interleaved,rate=[8000,48000],channels=[1,2] ! "
    "fakesink name=out signal-handoffs=true sync=false";

std::string SourceDescription() {
    const char* value = std::getenv("KIV_AUDIO_SOURCE");
    if (value == nullptr || *value == '\0' || std::strcmp(value, "auto") == 0) {
        return "autoaudiosrc";
    }
    if (std::strcmp(value, "test") == 0) {
        return "audiotestsrc is-live=true wave=sine freq=440";
    }
    return value;
}

class AudioCaptureGst final : public AudioCapture {
public:
    AudioCaptureGst() = default;
    ~AudioCaptureGst() override { Close(); }
    AudioCaptureGst(const AudioCaptureGst&) = delete;
    AudioCaptureGst& operator=(const AudioCaptureGst&) = delete;

    unsigned int Open() override {
        Close();
        if (!StartGStreamer()) {
            return MediaStatus::UNAVAILABLE;
        }
        GError* error = nullptr;
        GstElement* pipeline = gst_parse_launch((SourceDescription() + kConvert).c_str(), &error);
        if (error != nullptr) {
            g_error_free(error);
            if (pipeline != nullptr) {
                gst_object_unref(pipeline);
            }
            return MediaStatus::NOT_FOUND;
        }
        // The end and errors are taken where they are posted; nothing else
        // of the bus is wanted, and nothing is left to pile up on it.
        GstBus* bus = gst_element_get_bus(pipeline);
        gst_bus_set_sync_handler(bus, &AudioCaptureGst::OnMessage, this, nullptr);
        gst_object_unref(bus);
        GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
        g_signal_connect(sink, "handoff", G_CALLBACK(&AudioCaptureGst::OnBuffer), this);
        gst_object_unref(sink);
        // A live source opens its device on the way to PAUSED and delivers
        // nothing until PLAYING.
        if (gst_element_set_state(pipeline, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE ||
            gst_element_get_state(pipeline, nullptr, nullptr, kSettleTimeout) ==
                GST_STATE_CHANGE_FAILURE) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(pipeline);
            return MediaStatus::NOT_FOUND;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_pipeline = pipeline;
        return 0;
    }

    void Close() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return;
        }
        // Joins the streaming thread: no handoff runs after this.
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        gst_object_unref(m_pipeline);
        m_pipeline = nullptr;
    }

    bool IsOpen() const override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_pipeline != nullptr;
    }

    unsigned int Start() override {
        m_ended = false;
        return SetState(GST_STATE_PLAYING);
    }
    unsigned int Pause() override { return SetState(GST_STATE_PAUSED); }

    void SetDataCallback(DataCallback callback) override {
        std::lock_guard<std::mutex> lock(m_callbackMutex);
        m_callback = std::move(callback);
    }

    void SetEventCallback(EventCallback callback) override {
        std::lock_guard<std::mutex> lock(m_eventMutex);
        m_eventCallback = std::move(callback);
    }

private:
    unsigned int SetState(GstState state) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pipeline == nullptr) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (gst_element_set_state(m_pipeline, state) == GST_STATE_CHANGE_FAILURE ||
            gst_element_get_state(m_pipeline, nullptr, nullptr, kSettleTimeout) ==
                GST_STATE_CHANGE_FAILURE) {
            return MediaStatus::ENGINE_FAILURE;
        }
        return 0;
    }

    static GstBusSyncReply OnMessage(GstBus*, GstMessage* message, gpointer self) {
        const GstMessageType type = GST_MESSAGE_TYPE(message);
        if (type == GST_MESSAGE_EOS || type == GST_MESSAGE_ERROR) {
            static_cast<AudioCaptureGst*>(self)->Report(type == GST_MESSAGE_EOS ? Event::END
                                                                                : Event::ERROR);
        }
        gst_message_unref(message);
        return GST_BUS_DROP;
    }

    // The elements of one failure often report it several times: the first
    // report after a Start counts.
    void Report(Event event) {
        std::lock_guard<std::mutex> lock(m_eventMutex);
        if (m_ended.exchange(true)) {
            return;
        }
        if (m_eventCallback) {
            m_eventCallback(event);
        }
    }

    static void OnBuffer(GstElement*, GstBuffer* buffer, GstPad* pad, gpointer self) {
        static_cast<AudioCaptureGst*>(self)->Deliver(buffer, pad);
    }

    void Deliver(GstBuffer* buffer, GstPad* pad) {
        Format format;
        if (GstCaps* caps = gst_pad_get_current_caps(pad)) {
            const GstStructure* s = gst_caps_get_structure(caps, 0);
            gst_structure_get_int(s, "rate", &format.rate);
            gst_structure_get_int(s, "channels", &format.channels);
            gst_caps_unref(caps);
        }
        GstMapInfo map;
        if (format.rate <= 0 || format.channels <= 0 ||
            !gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(m_callbackMutex);
            if (m_callback) {
                m_callback(format, map.data, map.size);
            }
        }
        gst_buffer_unmap(buffer, &map);
    }

    mutable std::mutex m_mutex;
    GstElement* m_pipeline = nullptr;
    std::mutex m_callbackMutex;
    DataCallback m_callback;
    std::mutex m_eventMutex;
    EventCallback m_eventCallback;
    std::atomic<bool> m_ended{false};
};

}  // namespace

std::unique_ptr<AudioCapture> AudioCapture::Create() {
    return std::make_unique<AudioCaptureGst>();
}

}  // namespace kiv::platform
