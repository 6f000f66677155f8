#include <kiv/concurrent/MSemaphore.h>

#include <cstdint>
#include <new>

#include "concurrent/MSemaphoreImpl.h"

namespace kiv::system::concurrent {

MSemaphoreImpl::MSemaphoreImpl(int count)
    : m_semaphore(platform::Semaphore::Create(count, count)) {}

void MSemaphoreImpl::Aquire(int n) {
    for (int i = 0; i < n; ++i) {
        platform::WaitFor(m_semaphore, platform::kInfinite);
    }
}

void MSemaphoreImpl::Aquire() {
    platform::WaitFor(m_semaphore, platform::kInfinite);
}

unsigned char MSemaphoreImpl::TryAquire(int n, int timeout) {
    std::uint32_t start = platform::TickCount();
    std::uint32_t taken = 0;
    std::uint32_t remaining = static_cast<std::uint32_t>(timeout);
    if (n < 1) {
        return 1;
    }
    for (;;) {
        if (platform::WaitFor(m_semaphore, static_cast<int>(remaining)) == platform::kWaitTimeout) {
            // No partial take survives a timeout.
            if (taken > 0) {
                m_semaphore.Release(static_cast<int>(taken));
            }
            // Returns 1 on timeout as well: callers cannot tell the two apart.
            return 1;
        }
        const std::uint32_t now = platform::TickCount();
        ++taken;
        // Unsigned on purpose: when more time passed than remained, this
        // wraps to a very long timeout instead of ending the take.
        remaining -= now - start;
        start = now;
        if (taken >= static_cast<std::uint32_t>(n)) {
            return 1;
        }
    }
}

unsigned char MSemaphoreImpl::TryAquire(int timeout) {
    return platform::WaitFor(m_semaphore, timeout) == 0 ? 1 : 0;
}

void MSemaphoreImpl::Release(int n) {
    m_semaphore.Release(n);
}

void MSemaphoreImpl::Release() {
    m_semaphore.Release(1);
}

// Out of memory leaves the facade without an implementation, as a failed
// creation does: its takes then fail at once.
MSemaphore::MSemaphore(int count) : m_impl(new (std::nothrow) MSemaphoreImpl(count)) {}

MSemaphore::MSemaphore(MSemaphore& other) : m_impl(other.m_impl) {
    other.m_impl = nullptr;
}

MSemaphore& MSemaphore::operator=(MSemaphore& other) {
    if (this != &other) {
        delete m_impl;
        m_impl = other.m_impl;
        other.m_impl = nullptr;
    }
    return *this;
}

MSemaphore::~MSemaphore() {
    delete m_impl;
}

void MSemaphore::Aquire() {
    if (m_impl != nullptr) {
        m_impl->Aquire();
    }
}

void MSemaphore::Aquire(int n) {
    if (m_impl != nullptr) {
        m_impl->Aquire(n);
    }
}

unsigned char MSemaphore::TryAquire(int timeout) {
    return m_impl != nullptr ? m_impl->TryAquire(timeout) : 0;
}

unsigned char MSemaphore::TryAquire(int n, int timeout) {
    return m_impl != nullptr ? m_impl->TryAquire(n, timeout) : 0;
}

void MSemaphore::Release() {
    if (m_impl != nullptr) {
        m_impl->Release();
    }
}

void MSemaphore::Release(int n) {
    if (m_impl != nullptr) {
        m_impl->Release(n);
    }
}

}  // namespace kiv::system::concurrent
