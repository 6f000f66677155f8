// A counting semaphore whose initial count is also its maximum.
//
// Copying moves the semaphore to the new object and leaves the source empty:
// an empty MSemaphore may only be destroyed or assigned to.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system::concurrent {

class MSemaphoreImpl;

class KIV_API MSemaphore {
public:
    /// A semaphore holding `count` units, at most `count`. With 0 it never
    /// holds a unit, so every acquire blocks; a negative count gives a broken
    /// semaphore on which every wait fails at once.
    MSemaphore(int count);
    /// Moves the semaphore out of `other`, which is left empty.
    MSemaphore(MSemaphore& other);
    /// Destroys this object's semaphore (unless `other` is this object), then
    /// moves `other`'s in.
    MSemaphore& operator=(MSemaphore& other);
    virtual ~MSemaphore();

    /// Waits without timeout for one unit.
    void Aquire();
    /// Waits without timeout for `n` units, one at a time; n <= 0 does nothing.
    void Aquire(int n);
    /// One wait of at most `timeout` ms (-1 forever, 0 polls): 1 if a unit was
    /// taken, 0 on timeout or failure.
    unsigned char TryAquire(int timeout);
    /// Takes `n` units within `timeout` ms, all or nothing: on timeout the
    /// units already taken are given back. Returns 1 in every case.
    unsigned char TryAquire(int n, int timeout);
    /// Releases one unit.
    void Release();
    /// Releases `n` units at once; a release past the maximum does nothing.
    void Release(int n);

private:
    MSemaphoreImpl* m_impl;
};

}  // namespace kiv::system::concurrent
