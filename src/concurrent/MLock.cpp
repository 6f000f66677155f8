#include <kiv/concurrent/MLock.h>

namespace kiv::system::concurrent {

MLock::MLock() : m_mutex(), m_semaphore(1) {}

MLock::MLock(MLock& other) : m_mutex(other.m_mutex), m_semaphore(other.m_semaphore) {}

MLock& MLock::operator=(MLock& other) {
    m_mutex = other.m_mutex;
    m_semaphore = other.m_semaphore;
    return *this;
}

MLock::~MLock() = default;

void MLock::Lock() {
    m_semaphore.Aquire();
    m_mutex.Aquire();
}

unsigned char MLock::TryLock(int timeout) {
    if (m_semaphore.TryAquire(timeout) == 0) {
        return 0;
    }
    m_mutex.Aquire();
    return 1;
}

void MLock::Unlock() {
    // The semaphore goes first: the next locker may pass it and then wait
    // briefly for the mutex. The order is intended.
    m_semaphore.Release();
    m_mutex.Release();
}

}  // namespace kiv::system::concurrent
