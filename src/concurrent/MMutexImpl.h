// The lock behind MMutex: one recursive critical section.
#pragma once

#include <mutex>

namespace kiv::system::concurrent {

class MMutexImpl final {
public:
    MMutexImpl() = default;
    MMutexImpl(const MMutexImpl&) = delete;
    MMutexImpl& operator=(const MMutexImpl&) = delete;

    virtual ~MMutexImpl() = default;
    virtual void Enter() { m_section.lock(); }
    virtual void Leave() { m_section.unlock(); }

private:
    std::recursive_mutex m_section;
};

}  // namespace kiv::system::concurrent
