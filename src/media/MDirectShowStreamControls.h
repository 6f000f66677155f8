// The controls of the built-in player that work on the streams of the open
// media: frame positioning on video, and the choice among audio streams.
#pragma once

#include <kiv/media/IFrameControl.h>
#include <kiv/media/IMediaSelectControl.h>

namespace kiv::platform {
class MediaEngine;
}

namespace kiv::media {

class MPlayerBase;

class FrameControl final : public IFrameControl {
public:
    FrameControl(platform::MediaEngine& engine, MPlayerBase& player);
    int Seek(int frame) override;
    int Skip(int frames) override;
    int MapFrameToTime(int frame) override;
    int MapTimeToFrame(int time) override;

private:
    struct Rate {
        long long numerator;
        long long denominator;
    };
    bool ReadRate(Rate& rate);
    // The number of the last frame; -1 when the duration is unknown.
    int LastFrame(const Rate& rate);
    static int TimeOf(const Rate& rate, int frame);
    static int FrameAt(const Rate& rate, int time);
    int CurrentFrame(const Rate& rate);

    platform::MediaEngine& m_engine;
    MPlayerBase& m_player;
};

class MediaSelectControl final : public IMediaSelectControl {
public:
    explicit MediaSelectControl(platform::MediaEngine& engine);
    int GetStreamCount() override;
    int GetStreamType(int index) override;
    std::wstring GetStreamName(int index) override;
    std::string GetStreamLanguage(int index) override;
    unsigned int SelectStream(int index) override;
    int GetSelectedStream() override;
    int GetSelectedSubtitle() override;
    void HideSubtitles() override;
    /// Back to the first audio stream, without subtitles.
    void Reset() override;

private:
    platform::MediaEngine& m_engine;
};

}  // namespace kiv::media

namespace kiv::media {

/// The stream controls of one player, listed by the player while a media
/// they apply to is open.
struct StreamControls {
    StreamControls(platform::MediaEngine& engine, MPlayerBase& player)
        : frame(engine, player), select(engine) {}
    FrameControl frame;
    MediaSelectControl select;
};

}  // namespace kiv::media
