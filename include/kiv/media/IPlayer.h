// A media player. A player starts UNINITIALIZED; Initialize makes it READY
// (the media is open), Start makes it STARTED (playing), Pause and Stop
// return it to READY, Deinitialize to UNINITIALIZED. An operation the current
// state does not allow returns 0 and does nothing. Status results are 0 on
// success, else a status word (see MError). Players are made by a driver
// (MPlayerManager::CreatePlayer) and handed back to it when done.
//
// Media times and durations are milliseconds.
#pragma once

#include <kiv/media/IControllable.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class IDataSource;
class IPlayerListener;

class KIV_API IPlayer : public IControllable {
public:
    static const signed char CLOSED;         ///< 0
    static const signed char UNINITIALIZED;  ///< 1
    static const signed char READY;          ///< 2
    static const signed char STARTED;        ///< 3

    static const double NORMAL_RATE;   ///< 1.0
    static const double UNKNOWN_RATE;  ///< -1.0
    static const int UNKNOWN_TIME;     ///< -1

    static const int ZM_LETTERBOX;  ///< 0
    static const int ZM_PANSCAN;    ///< 1
    static const int ZM_FITWINDOW;  ///< 2
    static const int ZM_NORMAL;     ///< 3

    virtual ~IPlayer();

    /// The playback rate (1.0 is normal); UNKNOWN_RATE before Initialize.
    virtual double GetRate() = 0;
    /// Sets the playback rate; does nothing before Initialize.
    virtual unsigned int SetRate(double rate) = 0;
    /// The playback position; UNKNOWN_TIME before Initialize.
    virtual int GetMediaTime() = 0;
    /// Moves the playback position; does nothing before Initialize.
    virtual unsigned int SetMediaTime(int time) = 0;
    /// The duration of the media file at `path` without opening a player;
    /// -1 unless the player supports it.
    virtual int GetDuration(const wchar_t* path);
    /// The duration of the current media; UNKNOWN_TIME before Initialize or
    /// when it is not known.
    virtual int GetDuration() = 0;
    /// Opens the data source's media: UNINITIALIZED to READY.
    virtual unsigned int Initialize() = 0;
    /// Releases the media: READY to UNINITIALIZED.
    virtual unsigned int Deinitialize() = 0;
    /// Starts playing: READY to STARTED.
    virtual unsigned int Start() = 0;
    /// Pauses at the current position: STARTED to READY.
    virtual unsigned int Pause() = 0;
    /// Stops playing: STARTED to READY.
    virtual unsigned int Stop() = 0;
    /// Stops playback, detaches the video window and releases the playback
    /// resources.
    virtual unsigned int Close() = 0;
    /// Switches to another source; a started player stops, loads it and
    /// starts again. Null only forgets the current source.
    virtual unsigned int SetDataSource(IDataSource* source) = 0;
    /// CLOSED, UNINITIALIZED, READY or STARTED.
    virtual signed char GetState() = 0;
    /// Stores one byte for the player's own use.
    virtual void SetOption(unsigned char option) = 0;
    /// The byte SetOption stored (0 at first).
    virtual unsigned char GetOption() = 0;
    /// Adds a listener (not owned) that gets every later event of this player.
    virtual void AddPlayerListener(IPlayerListener* listener) = 0;
    /// Removes a listener; once this returns, the listener is not called again.
    virtual void RemovePlayerListener(IPlayerListener* listener) = 0;

    // What a player may support beyond the state machine. Unless a player
    // overrides them, they do nothing and answer false (-1 for the volume).

    /// Forces software colour conversion of the video with the given mode.
    virtual bool ForceSoftwareCCRRR(int mode);
    /// Sets the scheduling priority of the audio decoding thread.
    virtual bool SetAudioThreadPriority(int priority);
    /// Sets the player's audio volume, 0 to 100.
    virtual bool SetAudioVolume(int volume);
    /// Sets the equalizer band gains (`gains` as the player documents);
    /// `enable` false turns the equalizer off.
    virtual bool SetEqualizer(const int* gains, bool enable);
    /// Sets the scheduling priority of the video decoding thread.
    virtual bool SetVideoThreadPriority(int priority);
    /// Sets how video fits its window: one of the ZM_ constants.
    virtual bool SetZoomMode(int mode);
    /// Shows the video.
    virtual bool StartVideo();
    /// Hides the video; the sound goes on.
    virtual bool StopVideo();
    /// The player's audio volume, 0 to 100; -1 if not supported.
    virtual int GetAudioVolume();
    /// Whether the current media has a picture.
    virtual bool HasVideo();
};

}  // namespace kiv::media
