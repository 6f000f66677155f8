// Observing other threads of the test process, so that a test can signal a
// thread only once it is really asleep in a wait.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/KivTestEnvironment.h"

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
    return Eventually(
        [&] {
            std::ifstream in(path);
            std::string where;
            in >> where;
            return where.rfind("futex", 0) == 0;
        },
        limitMs);
}

/// The same for thread `tid` of this process.
inline bool WaitUntilInFutexWait(int tid, int limitMs = 20000) {
    return WaitUntilThreadOfInFutexWait(static_cast<int>(getpid()), tid, limitMs);
}

/// The number of threads this process has now.
inline int ThreadCount() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

/// The number of threads before a test starts its own: a throwaway thread
/// is started and joined first, so that helper threads a runtime starts with
/// the first thread (the thread sanitizer's) are already counted.
inline int BaselineThreadCount() {
    std::thread([] {}).join();
    return ThreadCount();
}

/// Waits until this process has `count` threads, for at most `limitMs`;
/// false if it never does.
inline bool WaitForThreadCount(int count, int limitMs = 20000) {
    return Eventually([&] { return ThreadCount() == count; }, limitMs);
}

/// Threads that each run `work` once, for tests of waits: the test can make
/// sure every one of them sleeps in its wait before it wakes them, then count
/// how many returned and add up what they returned.
class BlockedThreads {
public:
    BlockedThreads(int count, std::function<int()> work) : m_tids(count) {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, work, i] {
                m_tids[i].store(CurrentThreadId());
                m_sum.fetch_add(work());
                m_done.fetch_add(1);
            });
        }
    }
    explicit BlockedThreads(std::function<int()> work) : BlockedThreads(1, std::move(work)) {}
    BlockedThreads(const BlockedThreads&) = delete;
    BlockedThreads& operator=(const BlockedThreads&) = delete;
    ~BlockedThreads() { Join(); }

    /// True once every thread sleeps in a futex wait; false if one never does.
    bool AllAsleep() {
        for (auto& tid : m_tids) {
            while (tid.load() == 0) {
                std::this_thread::yield();
            }
            if (!WaitUntilInFutexWait(tid.load())) {
                return false;
            }
        }
        return true;
    }
    /// Returns the number of threads done once `n` are (or after 30 s).
    int AwaitDone(int n) {
        for (int i = 0; i < 30000 && m_done.load() < n; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return m_done.load();
    }
    int Done() const { return m_done.load(); }
    /// The sum of what the threads that are done returned.
    int Sum() const { return m_sum.load(); }
    void Join() {
        for (auto& t : m_threads) {
            if (t.joinable()) {
                t.join();
            }
        }
    }

private:
    std::vector<std::atomic<int>> m_tids;
    std::atomic<int> m_sum{0};
    std::atomic<int> m_done{0};
    std::vector<std::thread> m_threads;
};

/// True in a build with a sanitizer, where creating threads costs far more:
/// long campaigns run fewer rounds there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kUnderSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kUnderSanitizer = true;
#else
inline constexpr bool kUnderSanitizer = false;
#endif
#else
inline constexpr bool kUnderSanitizer = false;
#endif

}  // namespace kiv::test
