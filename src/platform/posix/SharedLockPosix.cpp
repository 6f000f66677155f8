#include "platform/SharedLock.h"

#include <pthread.h>

#include <cerrno>
#include <new>

namespace kiv::platform {
namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(SharedLock::bytes));
static_assert(alignof(pthread_mutex_t) <= alignof(SharedLock));

pthread_mutex_t* MutexOf(SharedLock* lock) {
    return std::launder(reinterpret_cast<pthread_mutex_t*>(lock->bytes));
}

}  // namespace

bool InitSharedLock(SharedLock* lock) {
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) {
        return false;
    }
    auto* mutex = new (lock->bytes) pthread_mutex_t;
    const bool ok = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
                    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST) == 0 &&
                    pthread_mutex_init(mutex, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    return ok;
}

SharedLockResult TakeSharedLock(SharedLock* lock) {
    pthread_mutex_t* mutex = MutexOf(lock);
    const int rc = pthread_mutex_lock(mutex);
    if (rc == 0) {
        return SharedLockResult::Taken;
    }
    if (rc == EOWNERDEAD) {
        if (pthread_mutex_consistent(mutex) == 0) {
            return SharedLockResult::TakenFromDeadOwner;
        }
        pthread_mutex_unlock(mutex);
    }
    return SharedLockResult::Failed;
}

void ReleaseSharedLock(SharedLock* lock) {
    pthread_mutex_unlock(MutexOf(lock));
}

}  // namespace kiv::platform
