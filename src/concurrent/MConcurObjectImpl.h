// The state behind MConcurObject: a notify semaphore of one unit for Notify,
// and the current broadcast generation for NotifyAll.
//
// A generation is a manual-reset event that the NotifyAll retiring it sets
// once, with a count of the references to it: the owning object's, and one
// per thread waiting on it. Waiters that arrive later find a fresh
// generation, so a NotifyAll nobody waits for leaves no trace.
#pragma once

#include <cstdint>
#include <mutex>

#include "concurrent/MMutexImpl.h"
#include "platform/Waitable.h"

namespace kiv::system::concurrent {

class MConcurObjectImpl {
public:
    MConcurObjectImpl();
    MConcurObjectImpl(const MConcurObjectImpl&) = delete;
    MConcurObjectImpl& operator=(const MConcurObjectImpl&) = delete;

    /// Destroys the current generation outright: nobody may be waiting.
    virtual ~MConcurObjectImpl();
    virtual void Notify();
    virtual void NotifyAll();
    virtual unsigned char Wait(int timeout);
    virtual unsigned char Wait();

private:
    struct Generation {
        platform::Event event = platform::Event::Create(platform::EventReset::Manual, false);
        std::uint32_t references = 1;  // the owning object's
        std::mutex lock;               // guards references and retired
        bool retired = false;          // no more references are handed out
    };

    // The current generation with one more reference, and its event; null
    // if it has been retired.
    const platform::Event* ReferenceCurrent(Generation** generation);
    static void Drop(Generation* generation);

    platform::Semaphore m_notify;
    Generation* m_generation;  // null only when it could not be made
    MMutexImpl m_lock;         // guards m_generation
};

}  // namespace kiv::system::concurrent
