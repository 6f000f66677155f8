// Restarts a program when its user stops resetting the watchdog in time.
//
// Once started with a program path and a timeout, the watchdog's thread
// waits; every reset starts the timeout again; when a whole timeout passes
// without one, the thread starts the program (no arguments) and ends.
// Resets go through the auto-reset event "KIV_WATCH_DOG_RESET_EVENT" of the
// namespace: a reset from any process of it releases one waiting watchdog.
//
// Results are 0 on success, -1 and -2 (0xFFFFFFFF, 0xFFFFFFFE) on failure,
// 0xFF when the object has no implementation. Copies share one watchdog.
// Intended: after the program was started, StartWatchDog still answers -2
// and ResetWatchDog 0 until StopWatchDog is called.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system {

class MWatchDogImpl;

class KIV_API MWatchDog {
public:
    /// A watchdog that is not running.
    MWatchDog();
    /// Shares `other`'s watchdog.
    MWatchDog(const MWatchDog& other);
    /// Drops this object's watchdog and shares `other`'s.
    MWatchDog& operator=(const MWatchDog& other);
    /// The last copy stops a running watchdog thread.
    ~MWatchDog();

    /// Watches: `path` is started when `timeout` ms pass without a reset.
    /// -1 for a null path or one of 2,048 characters or more, -2 while a
    /// watchdog thread is recorded (also after it started the program); 0.
    unsigned int StartWatchDog(const wchar_t* path, unsigned int timeout);
    /// Starts the timeout again (of one watchdog of the namespace); -1 when
    /// this object has no watchdog thread; 0.
    unsigned int ResetWatchDog();
    /// Stops the watchdog thread without starting the program, and forgets
    /// it; -1 when there is none; 0.
    unsigned int StopWatchDog();

private:
    MWatchDogImpl* m_impl;
};

}  // namespace kiv::system
