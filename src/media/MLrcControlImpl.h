// The lyrics control of the built-in player. With a source set it holds the
// lyrics of the file of the media's name with the extension ".lrc" (or of
// one the application names), and a thread of its own, made when lyrics are
// first loaded, fires LRC_LINE_CHANGE and LRC_WORD_CHANGE by the media
// clock: it reads the media time, fires what was passed, and sleeps until
// the next line or word is due at the current rate, or until the player
// reports a start, a pause, a seek or a rate change. It never polls while
// nothing is due.
//
// While the media plays on, every line and every timed word passed gives its
// event, in order; after a jump (seek, stop, new source, new lyrics) one
// event each says where the position landed. Events are posted from the
// lyrics thread, so one due at the very moment of a state change may reach
// the listeners before that change's own event.
#pragma once

#include <kiv/media/ILrcControl.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "media/LrcParser.h"

namespace kiv::media {

class MLrcControlImpl final : public ILrcControl {
public:
    /// The media time in ms; -1 when unknown (no pipeline).
    using MediaClock = std::function<int()>;
    /// Posts an event of the player.
    using EventSink = std::function<void(unsigned char type)>;

    MLrcControlImpl(MediaClock clock, EventSink fire);
    /// Shuts the thread down.
    ~MLrcControlImpl() override;
    MLrcControlImpl(const MLrcControlImpl&) = delete;
    MLrcControlImpl& operator=(const MLrcControlImpl&) = delete;

    /// The player's source is now `locator`: its default lyrics (none if
    /// there is no such file) replace the others, read when first needed;
    /// the same locator again keeps them and is taken as a jump of the
    /// clock. An empty locator forgets them.
    void SetMedia(const std::wstring& locator);
    /// Playback started or stopped.
    void SetPlaying(bool playing);
    /// The media time jumped (seek, stop, a new pipeline).
    void ClockMoved();
    /// The playback rate changed.
    void SetRate(double rate);
    /// Ends the thread; no event is fired after it returns, and the control
    /// only answers questions from then on.
    void Shutdown();

    /// NOT_FOUND when the file cannot be read, UNKNOWN_FORMAT when it has no
    /// timed line; the lyrics are then empty.
    unsigned int LoadLyrics(std::wstring path) override;
    int GetLineCount() override;
    std::wstring GetLineText(int index) override;
    int GetLineTime(int index) override;
    int GetCurrentLine() override;
    int GetCurrentWord() override;

    /// The file of the media's name with ".lrc" for its extension.
    static std::wstring DefaultPath(const std::wstring& locator);

private:
    // A moment at which an event may be due: a line's start (word -1) or a
    // timed word of the line.
    struct Cue {
        int timeMs;
        int line;
        int word;
    };

    // Reads the default lyrics if SetMedia left them to be read.
    void LoadPendingLocked();
    // Installs `lyrics` and starts over before the first cue; m_mutex held.
    void InstallLocked(LrcLyrics lyrics);
    // Asks the thread to read the clock now, making it if needed.
    void WakeLocked();
    void Run();
    // Moves m_cue to the cue showing at `now`, collecting the events.
    void AdvanceLocked(int now, std::vector<unsigned char>& events);
    // How long the thread may sleep after reading `now`; -1 for no limit.
    int SleepMsLocked(int now) const;

    const MediaClock m_clock;
    const EventSink m_fire;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::thread m_thread;
    std::wstring m_locator;
    bool m_defaultPending = false;
    LrcLyrics m_lyrics;
    std::vector<Cue> m_cues;
    int m_cue = -1;  // the last cue passed; -1 before the first
    bool m_jumped = true;
    bool m_playing = false;
    double m_rate = 1.0;
    bool m_evaluate = false;
    bool m_quit = false;
    std::uint64_t m_generation = 0;
};

}  // namespace kiv::media
