// The implementation behind MWatchDog: the program path, the timeout and
// the watchdog thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

#include "foundation/SharedImplementation.h"
#include "platform/Waitable.h"

namespace kiv::system {

class MWatchDogImpl : public SharedImplementation<MWatchDogImpl> {
public:
    static constexpr std::size_t kPathCapacity = 2048;

    MWatchDogImpl();
    virtual ~MWatchDogImpl();

    unsigned int StartWatchDog(const wchar_t* path, unsigned int timeout);
    unsigned int ResetWatchDog();
    unsigned int StopWatchDog();

private:
    void WatchThread();
    void StopThread();

    std::atomic<std::uint32_t> m_timeout{0};
    std::atomic<std::uint32_t> m_lastReset{0};
    wchar_t m_programPath[kPathCapacity] = {};
    // Start and stop of the thread from several threads at once must not
    // meet half-way; the watchdog thread itself never takes this lock.
    std::mutex m_lock;
    std::thread m_watchThread;
    std::atomic<bool> m_running{false};  // a watchdog thread is recorded
    platform::Event m_resetEvent;        // named, shared by the namespace
    platform::Event m_stop;              // this watchdog's own
};

}  // namespace kiv::system
