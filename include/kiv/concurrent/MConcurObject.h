// A wait/notify object: the library's condition variable.
//
// Notify wakes one waiter, and is remembered (once) when nobody waits, so it
// releases the next Wait at once. NotifyAll wakes every thread waiting at the
// time and is not remembered. No lock is held across a wait; callers keep
// their own state under their own lock. Copying moves the object and leaves
// the source empty; threads must not be waiting on an object that is
// destroyed.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system::concurrent {

class MConcurObjectImpl;

class KIV_API MConcurObject {
public:
    MConcurObject();
    /// Moves the object out of `other`, which is left empty.
    MConcurObject(MConcurObject& other);
    /// Destroys this object's state (unless `other` is this object), then
    /// moves `other`'s in.
    MConcurObject& operator=(MConcurObject& other);
    virtual ~MConcurObject();

    /// Wakes one waiter; with none, the next Wait returns at once. Several
    /// notifications without a waiter count as one.
    void Notify();
    /// Wakes every thread waiting now; later waits are not affected.
    void NotifyAll();
    /// Waits at most `timeout` ms (-1 forever): 1 if notified, 0 on timeout.
    unsigned char Wait(int timeout);
    /// Waits until notified; returns 1.
    unsigned char Wait();

private:
    MConcurObjectImpl* m_impl;
};

}  // namespace kiv::system::concurrent
