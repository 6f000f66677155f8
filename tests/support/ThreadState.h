// Observing other threads of the test process, so that a test can signal a
// thread only once it is really asleep in a wait.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

namespace kiv::test {

/// The kernel id of the calling thread.
inline int CurrentThreadId() {
    return static_cast<int>(syscall(SYS_gettid));
}

/// Waits until thread `tid` of process `pid` sleeps in a futex wait (the
/// kernel function it sleeps in, /proc/.../wchan, starts with "futex"), for
/// at most `limitMs`. False if that never happens.
inline bool WaitUntilThreadOfInFutexWait(int pid, int tid, int limitMs = 20000) {
    const std::string path =
        "/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/wchan";
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (std::chrono::steady_clock::now() < end) {
        std::ifstream in(path);
        std::string where;
        in >> where;
        if (where.rfind("futex", 0) == 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

/// The same for thread `tid` of this process.
inline bool WaitUntilInFutexWait(int tid, int limitMs = 20000) {
    return WaitUntilThreadOfInFutexWait(static_cast<int>(getpid()), tid, limitMs);
}

}  // namespace kiv::test
