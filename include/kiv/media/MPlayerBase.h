// The common half of every player: the state machine, the option byte, the
// data source, the control list and the listener dispatcher. A concrete
// player (the built-in one, or an application's own driver's) derives from
// it and supplies the primitive Do... operations and Close.
//
// The state operations call a primitive only where the current state allows
// it; the state changes and the event is fired only when the primitive
// returned 0. Listeners are called on a thread of the player's own, created
// with the first listener, in the order the events were fired; events fired
// before the first listener are dropped.
#pragma once

#include <kiv/media/IPlayer.h>
#include <kiv/platform/KivApi.h>

#include <string>
#include <vector>

namespace kiv::media {

class IControl;
class MPlayerState;
class MPlayerListenerDispatcher;

class KIV_API MPlayerBase : public IPlayer {
public:
    /// An UNINITIALIZED player without source, controls or listeners.
    MPlayerBase();
    MPlayerBase(const MPlayerBase&) = delete;
    MPlayerBase& operator=(const MPlayerBase&) = delete;
    /// Stops event delivery (see ShutDownListeners) and frees the dispatcher.
    ~MPlayerBase() override;

    IControl* GetControl(std::string name) override;
    void GetControls(std::vector<IControl*>& controls) override;

    using IPlayer::GetDuration;
    double GetRate() override;
    unsigned int SetRate(double rate) override;
    int GetMediaTime() override;
    /// Fires MEDIA_TIME_SET when the move succeeded.
    unsigned int SetMediaTime(int time) override;
    int GetDuration() override;
    unsigned int Initialize() override;
    unsigned int Deinitialize() override;
    unsigned int Start() override;
    unsigned int Pause() override;
    unsigned int Stop() override;
    /// Null forgets the source and fires nothing. Otherwise: a STARTED
    /// player is stopped; a READY one loads the source (a failure is returned
    /// and the old source kept); the source is stored; a player that was
    /// STARTED is started again; RESTARTED is fired in every case.
    unsigned int SetDataSource(IDataSource* source) override;
    signed char GetState() override;
    void SetOption(unsigned char option) override;
    unsigned char GetOption() override;
    void AddPlayerListener(IPlayerListener* listener) override;
    void RemovePlayerListener(IPlayerListener* listener) override;

protected:
    // The primitives, called only in the states that allow them. A status
    // other than 0 leaves the state unchanged and is returned to the caller.
    virtual double DoGetRate() = 0;
    virtual unsigned int DoSetRate(double rate) = 0;
    virtual int DoGetMediaTime() = 0;
    virtual unsigned int DoSetMediaTime(int time) = 0;
    virtual int DoGetDuration() = 0;
    virtual unsigned int DoInitialize() = 0;
    virtual unsigned int DoDeinitialize() = 0;
    virtual unsigned int DoStart() = 0;
    virtual unsigned int DoPause() = 0;
    virtual unsigned int DoStop() = 0;
    /// Called on a READY player to switch to `source` (never null).
    virtual unsigned int DoSetDataSource(IDataSource* source) = 0;

    /// The current data source (not owned); null until SetDataSource.
    IDataSource* GetDataSource();
    /// Appends a control (not owned) to the list GetControl searches.
    void AddControl(IControl* control);
    /// Removes a control from that list; nothing if it is not there.
    void RemoveControl(IControl* control);

    /// Queues an event of `type` for the listeners. Safe from any thread
    /// (an engine thread, for instance) while the player lives; nothing
    /// happens when no listener was ever added.
    void FireEvent(unsigned char type);
    /// For the engine when playback ends by itself (end of media, an error,
    /// a stop time): a STARTED player goes to READY and fires `type`.
    /// Returns 1 if it did, 0 if the player was not STARTED. Safe from any
    /// thread while the player lives, and never waits for a primitive: while
    /// a state operation runs on the application's thread, the end is kept
    /// and applied when that operation is over, if the player is then
    /// STARTED (1 is returned then).
    unsigned char EndPlayback(unsigned char type);
    /// Stops event delivery for good: waits for a listener call in progress
    /// (unless called from a listener) and drops the events still queued.
    /// A concrete player calls it first thing in its destructor, after which
    /// no listener sees the half-destroyed player; its engine threads must
    /// have stopped firing by then.
    void ShutDownListeners();

private:
    friend class MPlayerState;
    class EndGate;
    class Operation;

    unsigned char m_option;
    const MPlayerState* m_state;
    IDataSource* m_dataSource;
    std::vector<IControl*> m_controls;
    MPlayerListenerDispatcher* m_dispatcher;
    EndGate* m_endGate;
};

}  // namespace kiv::media
