// What a player tells its listeners: which player, and what happened.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::media {

class IPlayer;

class KIV_API MPlayerEvent {
public:
    static const unsigned char INITIALIZED;           ///< 0: UNINITIALIZED to READY
    static const unsigned char DEINITIALIZED;         ///< 1: READY to UNINITIALIZED
    static const unsigned char STARTED;               ///< 2: READY to STARTED
    static const unsigned char STOPPED_BY_REQUEST;    ///< 3: Pause or Stop, STARTED to READY
    static const unsigned char STOPPED_END_OF_MEDIA;  ///< 4: playback reached the end
    static const unsigned char RESTARTED;             ///< 5: a new data source was loaded
    static const unsigned char RECORD_STARTED;        ///< 6
    static const unsigned char RECORD_STOPPED;        ///< 7
    static const unsigned char LRC_LINE_CHANGE;       ///< 8: the lyrics moved to another line
    static const unsigned char LRC_WORD_CHANGE;       ///< 9: the lyrics moved to another word
    static const unsigned char MEDIA_TIME_SET;        ///< 10: SetMediaTime succeeded
    static const unsigned char MOUSE_CLICK_VIDEO;     ///< 11: the user tapped the video window
    static const unsigned char STOPPED_ERRORABORT;    ///< 12: playback stopped on an error

    /// An event of `type` fired by `player` (not owned).
    MPlayerEvent(IPlayer* player, unsigned char type);
    MPlayerEvent(const MPlayerEvent& other);
    MPlayerEvent& operator=(const MPlayerEvent& other);
    virtual ~MPlayerEvent();

    /// One of the type constants above.
    unsigned char GetEventType() const;
    /// The player that fired the event.
    IPlayer* GetPlayer() const;

private:
    IPlayer* m_player;
    unsigned char m_type;
};

}  // namespace kiv::media
