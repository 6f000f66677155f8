#include "media/MDirectShowStreamControls.h"

#include <algorithm>
#include <string>

#include "foundation/Text.h"
#include "media/MDirectShowPlayer.h"
#include "platform/MediaEngine.h"

namespace kiv::media {

using platform::MediaEngine;
using platform::MediaStatus;

FrameControl::FrameControl(MediaEngine& engine, MPlayerBase& player)
    : m_engine(engine), m_player(player) {}

bool FrameControl::ReadRate(Rate& rate) {
    int numerator = 0;
    int denominator = 0;
    if (!m_engine.FrameRate(numerator, denominator) || numerator <= 0 || denominator <= 0) {
        return false;
    }
    rate = {numerator, denominator};
    return true;
}

// Frame k starts at k * 1000 * d / n ms; rounded up, so that the time lies
// inside the frame and maps back to it.
int FrameControl::TimeOf(const Rate& rate, int frame) {
    const long long scaled = static_cast<long long>(frame) * 1000 * rate.denominator;
    return static_cast<int>((scaled + rate.numerator - 1) / rate.numerator);
}

int FrameControl::FrameAt(const Rate& rate, int time) {
    return static_cast<int>(static_cast<long long>(time) * rate.numerator /
                            (1000 * rate.denominator));
}

int FrameControl::LastFrame(const Rate& rate) {
    const int duration = m_engine.Duration();
    if (duration <= 0) {
        return -1;
    }
    // The duration is whole milliseconds, cut off: the frame count is the
    // nearest whole number, not the one below.
    const long long frames =
        (static_cast<long long>(duration) * rate.numerator + 500 * rate.denominator) /
        (1000 * rate.denominator);
    return static_cast<int>(std::max(frames - 1, 0LL));
}

int FrameControl::CurrentFrame(const Rate& rate) {
    const int time = m_player.GetMediaTime();
    return time < 0 ? -1 : FrameAt(rate, time);
}

int FrameControl::Seek(int frame) {
    Rate rate{};
    if (!ReadRate(rate)) {
        return -1;
    }
    const int last = LastFrame(rate);
    frame = std::max(frame, 0);
    if (last >= 0) {
        frame = std::min(frame, last);
    }
    if (m_player.SetMediaTime(TimeOf(rate, frame)) != 0) {
        return -1;
    }
    return CurrentFrame(rate);
}

int FrameControl::Skip(int frames) {
    Rate rate{};
    if (!ReadRate(rate)) {
        return 0;
    }
    const int current = CurrentFrame(rate);
    if (current < 0) {
        return 0;
    }
    const long long target = static_cast<long long>(current) + frames;
    const int reached = Seek(static_cast<int>(std::clamp<long long>(target, 0, 0x7FFFFFFF)));
    return reached < 0 ? 0 : reached - current;
}

int FrameControl::MapFrameToTime(int frame) {
    Rate rate{};
    if (frame < 0 || !ReadRate(rate)) {
        return -1;
    }
    const int last = LastFrame(rate);
    return last >= 0 && frame > last ? -1 : TimeOf(rate, frame);
}

int FrameControl::MapTimeToFrame(int time) {
    Rate rate{};
    if (time < 0 || !ReadRate(rate)) {
        return -1;
    }
    const int duration = m_engine.Duration();
    if (duration >= 0 && time > duration) {
        return -1;
    }
    const int last = LastFrame(rate);
    // The end of the media shows the last frame.
    return last >= 0 ? std::min(FrameAt(rate, time), last) : FrameAt(rate, time);
}

MediaSelectControl::MediaSelectControl(MediaEngine& engine) : m_engine(engine) {}

namespace {

using Kind = MediaEngine::StreamKind;

// Where stream `index` of the control's numbering lies: its kind, its
// number within the kind and what the engine says of it. False outside.
struct Located {
    Kind kind = Kind::AUDIO;
    int number = -1;
    MediaEngine::StreamInfo info;
};

bool Locate(MediaEngine& engine, int index, Located& where) {
    if (index < 0) {
        return false;
    }
    for (Kind kind : {Kind::AUDIO, Kind::SUBTITLE}) {
        const auto streams = engine.Streams(kind);
        if (static_cast<std::size_t>(index) < streams.size()) {
            where = {kind, index, streams[static_cast<std::size_t>(index)]};
            return true;
        }
        index -= static_cast<int>(streams.size());
    }
    return false;
}

}  // namespace

int MediaSelectControl::GetStreamCount() {
    return static_cast<int>(m_engine.Streams(Kind::AUDIO).size() +
                            m_engine.Streams(Kind::SUBTITLE).size());
}

int MediaSelectControl::GetStreamType(int index) {
    Located where;
    if (!Locate(m_engine, index, where)) {
        return -1;
    }
    return where.kind == Kind::AUDIO ? AUDIO_STREAM : SUBTITLE_STREAM;
}

std::wstring MediaSelectControl::GetStreamName(int index) {
    Located where;
    if (!Locate(m_engine, index, where)) {
        return {};
    }
    std::string name = where.info.title;
    if (!where.info.language.empty()) {
        name += name.empty() ? where.info.language : " (" + where.info.language + ")";
    }
    if (name.empty()) {
        name = (where.kind == Kind::AUDIO ? "Audio " : "Subtitles ") +
               std::to_string(where.number + 1);
    }
    return text::FromUtf8(name);
}

std::string MediaSelectControl::GetStreamLanguage(int index) {
    Located where;
    return Locate(m_engine, index, where) ? where.info.language : std::string();
}

unsigned int MediaSelectControl::SelectStream(int index) {
    Located where;
    if (!Locate(m_engine, index, where)) {
        return MediaStatus::INVALID_ARGUMENT;
    }
    return m_engine.SelectStream(where.kind, where.number);
}

int MediaSelectControl::GetSelectedStream() {
    return m_engine.CurrentStream(Kind::AUDIO);
}

int MediaSelectControl::GetSelectedSubtitle() {
    const int shown = m_engine.CurrentStream(Kind::SUBTITLE);
    return shown < 0 ? -1 : static_cast<int>(m_engine.Streams(Kind::AUDIO).size()) + shown;
}

void MediaSelectControl::HideSubtitles() {
    m_engine.SelectStream(Kind::SUBTITLE, -1);
}

void MediaSelectControl::Reset() {
    if (!m_engine.Streams(Kind::AUDIO).empty()) {
        m_engine.SelectStream(Kind::AUDIO, 0);
    }
    HideSubtitles();
}

void MDirectShowPlayer::ListStreamControls() {
    RemoveControl(&m_streamControls->frame);
    RemoveControl(&m_streamControls->select);
    if (!m_engine->IsOpen()) {
        return;
    }
    int numerator = 0;
    int denominator = 0;
    if (m_engine->HasVideo() && m_engine->FrameRate(numerator, denominator)) {
        AddControl(&m_streamControls->frame);
    }
    if (m_engine->HasAudio()) {
        AddControl(&m_streamControls->select);
    }
}

}  // namespace kiv::media
