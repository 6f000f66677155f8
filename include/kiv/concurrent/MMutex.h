// A recursive mutual-exclusion lock without timeout.
//
// The thread that holds it may take it again and must release it as often as
// it took it. Copying moves the lock to the new object and leaves the source
// empty: an empty MMutex may only be destroyed or assigned to.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system::concurrent {

class MMutexImpl;

class KIV_API MMutex {
public:
    /// Creates the lock.
    MMutex();
    /// Moves the lock out of `other`, which is left empty.
    MMutex(MMutex& other);
    /// Destroys this object's lock (unless `other` is this object), then
    /// moves `other`'s in.
    MMutex& operator=(MMutex& other);
    /// Destroys the lock; it must not be held.
    virtual ~MMutex();

    /// Takes the lock, waiting as long as another thread holds it.
    void Aquire();
    /// Releases one hold of the calling thread.
    void Release();

private:
    MMutexImpl* m_impl;
};

}  // namespace kiv::system::concurrent
