// A lock that lives in shared memory and that processes of the namespace
// take in turn. Taking it and becoming its owner are one step: a holder that
// dies at any moment hands it to the next taker, which is told so.
#pragma once

#include <cstdint>

namespace kiv::platform {

/// The bytes of one lock, placed in a shared section; zero until
/// InitSharedLock ran.
struct alignas(8) SharedLock {
    std::uint8_t bytes[64];
};

enum class SharedLockResult {
    Taken,
    TakenFromDeadOwner,  ///< the previous holder died holding it
    Failed,
};

/// Prepares a lock in a section nobody uses yet. False on failure.
bool InitSharedLock(SharedLock* lock);

/// Waits as long as it takes for the lock. With TakenFromDeadOwner the lock
/// is held and usable again, but what it guards may be half edited.
SharedLockResult TakeSharedLock(SharedLock* lock);

/// Gives back a lock the calling thread holds.
void ReleaseSharedLock(SharedLock* lock);

}  // namespace kiv::platform
