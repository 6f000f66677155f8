// A non-recursive lock with a timed try.
//
// Made of a semaphore of one unit (which makes it exclusive and timed) and a
// recursive mutex (which ties it to the locking thread). A second Lock from
// the holding thread blocks forever; the thread that locked it must unlock
// it. Copying moves both parts and leaves the source empty.
#pragma once

#include <kiv/concurrent/MMutex.h>
#include <kiv/concurrent/MSemaphore.h>
#include <kiv/platform/KivApi.h>

namespace kiv::system::concurrent {

class KIV_API MLock {
public:
    MLock();
    /// Moves the mutex and the semaphore out of `other`.
    MLock(MLock& other);
    /// Moves `other`'s mutex and semaphore in, destroying this object's.
    MLock& operator=(MLock& other);
    ~MLock();

    /// Takes the semaphore without timeout, then the mutex.
    void Lock();
    /// Tries the semaphore for `timeout` ms: 0 on failure, without touching
    /// the mutex; on success takes the mutex and returns 1.
    unsigned char TryLock(int timeout);
    /// Releases the semaphore, then the mutex.
    void Unlock();

private:
    MMutex m_mutex;
    MSemaphore m_semaphore;
};

}  // namespace kiv::system::concurrent
