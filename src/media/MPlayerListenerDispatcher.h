// The thread that calls a player's listeners. Events are queued by whichever
// thread fires them and delivered, in the order queued, on the dispatcher's
// own thread. A player owns one from its first listener on.
#pragma once

#include <kiv/concurrent/IRunnable.h>
#include <kiv/concurrent/MConcurObject.h>
#include <kiv/concurrent/MMutex.h>
#include <kiv/concurrent/MThread.h>
#include <kiv/media/MPlayerEvent.h>

#include <deque>
#include <memory>
#include <vector>

namespace kiv::media {

class IPlayerListener;

class MPlayerListenerDispatcher : private system::IRunnable {
public:
    /// A dispatcher with its thread running; null when memory is exhausted.
    static MPlayerListenerDispatcher* Create();

    MPlayerListenerDispatcher(const MPlayerListenerDispatcher&) = delete;
    MPlayerListenerDispatcher& operator=(const MPlayerListenerDispatcher&) = delete;

    /// Appends a listener; it gets the events delivered from now on.
    void Add(IPlayerListener* listener);
    /// Removes every entry of `listener`. Waits while an event is being
    /// delivered on the dispatcher's thread, so the listener is not called
    /// once this returns (on that thread itself it returns at once).
    void Remove(IPlayerListener* listener);
    /// Queues `event` for delivery; dropped once the dispatcher is closing.
    void Post(std::unique_ptr<MPlayerEvent> event);
    /// Ends delivery, drops the events still queued and frees the
    /// dispatcher. From another thread it waits for the thread to end; from
    /// a listener (the dispatcher's own thread) the thread frees it once the
    /// listener has returned, without calling another one.
    void Close();

private:
    MPlayerListenerDispatcher();
    ~MPlayerListenerDispatcher() override;

    void Run() override;
    bool IsClosing();
    // Calls every listener with a copy of `event`; false once closing.
    bool Deliver(const MPlayerEvent& event);

    system::concurrent::MMutex m_queueLock;  // guards m_queue, m_closing, m_freeOnExit
    system::concurrent::MConcurObject m_wake;
    std::deque<std::unique_ptr<MPlayerEvent>> m_queue;
    bool m_closing = false;
    bool m_freeOnExit = false;

    // Held for the whole delivery of an event, so that Remove can wait for it.
    system::concurrent::MMutex m_listenerLock;
    std::vector<IPlayerListener*> m_listeners;
    std::vector<IPlayerListener*> m_delivering;  // used on the thread only

    system::MThread m_thread;
};

}  // namespace kiv::media
