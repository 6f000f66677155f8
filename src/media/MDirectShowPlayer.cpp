#include "media/MDirectShowPlayer.h"

#include <kiv/media/IBrightnessControl.h>
#include <kiv/media/IContrastControl.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/ISaturationControl.h>
#include <kiv/media/IStopTimeControl.h>
#include <kiv/media/IVideoControl.h>
#include <kiv/media/IVolumeControl.h>
#include <kiv/media/MPlayerEvent.h>

#include <algorithm>
#include <atomic>
#include <new>

#include "foundation/Text.h"
#include "media/BuiltInPlayer.h"
#include "media/LocatorExtension.h"
#include "media/MCapturePlayer.h"
#include "media/MDirectShowStreamControls.h"
#include "media/MLrcControlImpl.h"
#include "media/MMetaDataControlImpl.h"
#include "platform/MediaEngine.h"
#include "platform/TagReader.h"

namespace kiv::media {

using platform::MediaEngine;
using platform::MediaStatus;

namespace {

short ClampLevel(short level) {
    return std::clamp<short>(level, 0, 100);
}

class VolumeControl final : public IVolumeControl {
public:
    explicit VolumeControl(MediaEngine& engine) : m_engine(engine) {}
    short SetLevel(short level) override {
        m_engine.SetVolume(ClampLevel(level));
        return static_cast<short>(m_engine.Volume());
    }
    short GetLevel() override { return static_cast<short>(m_engine.Volume()); }
    void SetMute(bool mute) override { m_engine.SetMute(mute); }
    bool IsMuted() override { return m_engine.IsMuted(); }
    void Reset() override {
        m_engine.SetVolume(100);
        m_engine.SetMute(false);
    }

private:
    MediaEngine& m_engine;
};

class StopTimeControl final : public IStopTimeControl {
public:
    StopTimeControl(MediaEngine& engine, MPlayerBase& player)
        : m_engine(engine), m_player(player) {}
    unsigned int SetStopTime(int time) override {
        if (time != RESET && time < 0) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        if (m_player.GetState() == IPlayer::STARTED && m_time.load() != RESET && time != RESET) {
            return MediaStatus::NOT_SUPPORTED;
        }
        const unsigned int status = m_engine.SetStopTime(time == RESET ? -1 : time);
        if (status == 0) {
            m_time = time;
        }
        return status;
    }
    int GetStopTime() override { return m_time; }
    void Reset() override { SetStopTime(RESET); }
    // The engine used the stop time up.
    void Reached() { m_time = RESET; }

private:
    MediaEngine& m_engine;
    MPlayerBase& m_player;
    std::atomic<int> m_time{RESET};
};

class VideoControl final : public IVideoControl {
public:
    explicit VideoControl(MediaEngine& engine) : m_engine(engine) {}
    unsigned int SetDisplayWindow(std::uintptr_t window) override {
        m_engine.SetWindow(window);
        return 0;
    }
    unsigned int SetDisplayLocation(int x, int y) override {
        m_x = x;
        m_y = y;
        m_engine.SetDisplayRect(m_x, m_y, m_width, m_height);
        return 0;
    }
    unsigned int SetDisplaySize(int width, int height) override {
        if (width <= 0 || height <= 0) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        m_width = width;
        m_height = height;
        m_engine.SetDisplayRect(m_x, m_y, m_width, m_height);
        return 0;
    }
    int GetDisplayX() override { return m_x; }
    int GetDisplayY() override { return m_y; }
    // Until a size is set the picture has its own.
    int GetDisplayWidth() override { return m_width > 0 ? m_width : GetSourceWidth(); }
    int GetDisplayHeight() override { return m_height > 0 ? m_height : GetSourceHeight(); }
    void SetVisible(bool visible) override { m_engine.SetVisible(visible); }
    bool IsVisible() override { return m_engine.IsVisible(); }
    unsigned int SetDisplayFullScreen(bool fullScreen) override {
        return m_engine.SetFullScreen(fullScreen);
    }
    int GetSourceWidth() override {
        int width = -1;
        int height = -1;
        return m_engine.VideoSize(width, height) ? width : -1;
    }
    int GetSourceHeight() override {
        int width = -1;
        int height = -1;
        return m_engine.VideoSize(width, height) ? height : -1;
    }
    unsigned int GetSnapshot(std::vector<unsigned char>& rgb, int& width, int& height) override {
        return m_engine.Snapshot(rgb, width, height);
    }

private:
    MediaEngine& m_engine;
    int m_x = 0;
    int m_y = 0;
    int m_width = 0;
    int m_height = 0;
};

// The three picture levels differ only in their interface and engine level.
template <typename Interface, MediaEngine::Picture Which>
class PictureControl final : public Interface {
public:
    explicit PictureControl(MediaEngine& engine) : m_engine(engine) {}
    short SetLevel(short level) override {
        m_engine.SetPictureLevel(Which, ClampLevel(level));
        return GetLevel();
    }
    short GetLevel() override { return static_cast<short>(m_engine.PictureLevel(Which)); }
    void Reset() override { m_engine.SetPictureLevel(Which, 50); }

private:
    MediaEngine& m_engine;
};

}  // namespace

class MDirectShowPlayer::Controls {
public:
    Controls(MediaEngine& engine, MPlayerBase& player)
        : volume(engine),
          stopTime(engine, player),
          video(engine),
          brightness(engine),
          contrast(engine),
          saturation(engine) {}

    VolumeControl volume;
    StopTimeControl stopTime;
    VideoControl video;
    PictureControl<IBrightnessControl, MediaEngine::Picture::BRIGHTNESS> brightness;
    PictureControl<IContrastControl, MediaEngine::Picture::CONTRAST> contrast;
    PictureControl<ISaturationControl, MediaEngine::Picture::SATURATION> saturation;

    IControl* const all[6] = {&volume, &stopTime, &video, &brightness, &contrast, &saturation};
};

MDirectShowPlayer::MDirectShowPlayer()
    : m_engine(MediaEngine::Create()),
      m_controls(std::make_unique<Controls>(*m_engine, *this)),
      m_metaData(std::make_unique<MMetaDataControlImpl>()),
      m_lyrics(std::make_unique<MLrcControlImpl>([this] { return m_engine->Position(); },
                                                 [this](unsigned char type) { FireEvent(type); })),
      m_streamControls(std::make_unique<StreamControls>(*m_engine, *this)) {
    m_engine->SetEventCallback([this](MediaEngine::Event event) {
        m_lyrics->SetPlaying(false);
        switch (event) {
            case MediaEngine::Event::END_OF_STREAM:
                EndPlayback(MPlayerEvent::STOPPED_END_OF_MEDIA);
                break;
            case MediaEngine::Event::STOP_TIME:
                m_controls->stopTime.Reached();
                EndPlayback(MPlayerEvent::STOPPED_BY_REQUEST);
                break;
            case MediaEngine::Event::ERROR:
                EndPlayback(MPlayerEvent::STOPPED_ERRORABORT);
                break;
        }
    });
}

MDirectShowPlayer::~MDirectShowPlayer() {
    // The engine thread fires events through the base: silence it before
    // the listeners go; so does the lyrics thread.
    m_lyrics->Shutdown();
    m_engine->SetEventCallback(nullptr);
    ShutDownListeners();
    m_engine->Close();
}

unsigned int MDirectShowPlayer::Close() {
    if (GetState() == STARTED) {
        Stop();
    }
    if (GetState() == READY) {
        Deinitialize();
    }
    m_engine->SetWindow(0);
    m_engine->Close();
    return 0;
}

int MDirectShowPlayer::GetDuration(const wchar_t* path) {
    if (path == nullptr) {
        return UNKNOWN_TIME;
    }
    const std::string file = text::ToUtf8(path);
    const int ms = platform::ReadDurationMs(file);
    if (ms >= 0) {
        return ms;
    }
    auto engine = MediaEngine::Create();
    if (engine->Open(file) != 0) {
        return UNKNOWN_TIME;
    }
    return engine->Duration();
}

unsigned int MDirectShowPlayer::SetDataSource(IDataSource* source) {
    const unsigned int status = MPlayerBase::SetDataSource(source);
    ListSourceControls();
    return status;
}

bool MDirectShowPlayer::SetAudioVolume(int volume) {
    m_engine->SetVolume(std::clamp(volume, 0, 100));
    return true;
}

int MDirectShowPlayer::GetAudioVolume() {
    return m_engine->Volume();
}

bool MDirectShowPlayer::SetZoomMode(int mode) {
    if (mode == ZM_LETTERBOX || mode == ZM_NORMAL) {
        m_engine->SetKeepAspect(true);
        return true;
    }
    if (mode == ZM_FITWINDOW) {
        m_engine->SetKeepAspect(false);
        return true;
    }
    return false;
}

bool MDirectShowPlayer::StartVideo() {
    if (!m_engine->HasVideo()) {
        return false;
    }
    m_engine->SetVisible(true);
    return true;
}

bool MDirectShowPlayer::StopVideo() {
    if (!m_engine->HasVideo()) {
        return false;
    }
    m_engine->SetVisible(false);
    return true;
}

bool MDirectShowPlayer::HasVideo() {
    return m_engine->HasVideo();
}

double MDirectShowPlayer::DoGetRate() {
    return m_engine->Rate();
}

unsigned int MDirectShowPlayer::DoSetRate(double rate) {
    const unsigned int status = m_engine->SetRate(rate);
    if (status == 0) {
        m_lyrics->SetRate(rate);
    }
    return status;
}

int MDirectShowPlayer::DoGetMediaTime() {
    return m_engine->Position();
}

unsigned int MDirectShowPlayer::DoSetMediaTime(int time) {
    const unsigned int status = m_engine->Seek(time);
    m_lyrics->ClockMoved();
    return status;
}

int MDirectShowPlayer::DoGetDuration() {
    return m_engine->Duration();
}

unsigned int MDirectShowPlayer::DoInitialize() {
    const unsigned int status = OpenSource(GetDataSource());
    if (status == 0) {
        ListControls();
        m_lyrics->ClockMoved();
    }
    return status;
}

unsigned int MDirectShowPlayer::DoDeinitialize() {
    m_lyrics->SetPlaying(false);
    m_engine->Close();
    ListControls();
    return 0;
}

unsigned int MDirectShowPlayer::DoStart() {
    const unsigned int status = m_engine->Play();
    m_lyrics->SetPlaying(status == 0);
    return status;
}

unsigned int MDirectShowPlayer::DoPause() {
    m_lyrics->SetPlaying(false);
    return m_engine->Pause();
}

unsigned int MDirectShowPlayer::DoStop() {
    m_lyrics->SetPlaying(false);
    const unsigned int status = m_engine->Stop();
    m_lyrics->ClockMoved();
    return status;
}

unsigned int MDirectShowPlayer::DoSetDataSource(IDataSource* source) {
    const unsigned int status = OpenSource(source);
    if (status != 0) {
        // The player stays on its old source, as far as it can still be
        // opened.
        if (OpenSource(GetDataSource()) != 0) {
            ListControls();
        }
        return status;
    }
    ListControls();
    return 0;
}

unsigned int MDirectShowPlayer::OpenSource(IDataSource* source) {
    if (source == nullptr) {
        return MediaStatus::INVALID_ARGUMENT;
    }
    return m_engine->Open(text::ToUtf8(source->GetLocator()));
}

void MDirectShowPlayer::ListControls() {
    ListStreamControls();
    for (IControl* control : m_controls->all) {
        RemoveControl(control);
    }
    if (!m_engine->IsOpen()) {
        return;
    }
    if (m_engine->HasAudio()) {
        AddControl(&m_controls->volume);
    }
    AddControl(&m_controls->stopTime);
    if (m_engine->HasVideo()) {
        AddControl(&m_controls->video);
        AddControl(&m_controls->brightness);
        AddControl(&m_controls->contrast);
        AddControl(&m_controls->saturation);
    }
}

void MDirectShowPlayer::ListSourceControls() {
    RemoveControl(m_metaData.get());
    RemoveControl(m_lyrics.get());
    IDataSource* source = GetDataSource();
    const std::wstring locator = source != nullptr ? source->GetLocator() : std::wstring();
    m_metaData->SetLocator(locator);
    m_lyrics->SetMedia(locator);
    if (source != nullptr) {
        AddControl(m_metaData.get());
        AddControl(m_lyrics.get());
    }
}

IPlayer* CreateBuiltInPlayer(IDataSource* source) {
    // The driver hands the source over with SetDataSource.
    if (source != nullptr && IsCaptureLocator(source->GetLocator())) {
        return new (std::nothrow) MCapturePlayer();
    }
    return new (std::nothrow) MDirectShowPlayer();
}

void ReleaseBuiltInPlayer(IPlayer* player) {
    delete player;
}

}  // namespace kiv::media
