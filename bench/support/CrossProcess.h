// Helpers of the round-trip benchmarks: CPU pinning, per-trip timing with
// percentiles, pages shared with a forked child, and the raw futex
// ping-pong between two processes that those benchmarks are measured
// against.
#pragma once

#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <new>
#include <vector>

namespace kiv::bench {

using Clock = std::chrono::steady_clock;

/// Pins the calling thread to one CPU.
inline void PinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof set, &set);
}

/// Lets the calling thread run on every CPU again.
inline void Unpin() {
    cpu_set_t set;
    CPU_ZERO(&set);
    const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
    for (long i = 0; i < cpus; ++i) {
        CPU_SET(static_cast<int>(i), &set);
    }
    sched_setaffinity(0, sizeof set, &set);
}

/// The CPU the other side runs on: the same one ("/0"), or the next ("/1").
inline int OtherCpu(const benchmark::State& state) {
    return state.range(0) == 0 ? 0 : 1;
}

/// Times each round trip and reports the mean as the benchmark time and the
/// 50th and 99th percentiles as the counters p50_us and p99_us.
class RoundTrips {
public:
    explicit RoundTrips(benchmark::State& state) : m_state(state) { m_samples.reserve(1 << 20); }
    template <typename Trip>
    void Run(Trip trip) {
        for (auto _ : m_state) {
            const auto start = Clock::now();
            trip();
            const auto elapsed = Clock::now() - start;
            if (m_samples.size() < m_samples.capacity()) {
                m_samples.push_back(std::chrono::duration<double, std::micro>(elapsed).count());
            }
        }
        if (!m_samples.empty()) {
            std::sort(m_samples.begin(), m_samples.end());
            m_state.counters["p50_us"] = m_samples[m_samples.size() / 2];
            m_state.counters["p99_us"] = m_samples[m_samples.size() * 99 / 100];
        }
    }

private:
    benchmark::State& m_state;
    std::vector<double> m_samples;
};

/// A page shared with a forked child, holding a T.
template <typename T>
T* SharedPage() {
    void* p = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) T();
}

inline long Futex(std::atomic<std::uint32_t>* word, int op, std::uint32_t value) {
    return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op, value, nullptr, nullptr,
                   0);
}

/// The baseline: a futex ping-pong on a shared word between this process
/// and a forked child, pinned as OtherCpu says.
inline void FutexPingPongAcrossProcesses(benchmark::State& state) {
    struct FutexPair {
        std::atomic<std::uint32_t> turn{0};  // 1: the child's move, 0: the parent's
        std::atomic<std::uint32_t> quit{0};
    };
    auto* shared = SharedPage<FutexPair>();
    PinTo(0);
    const pid_t child = fork();
    if (child == 0) {
        PinTo(OtherCpu(state));
        for (;;) {
            while (shared->turn.load(std::memory_order_acquire) == 0) {
                if (shared->quit.load()) {
                    _exit(0);
                }
                Futex(&shared->turn, FUTEX_WAIT, 0);
            }
            shared->turn.store(0, std::memory_order_release);
            Futex(&shared->turn, FUTEX_WAKE, 1);
        }
    }
    RoundTrips(state).Run([&] {
        shared->turn.store(1, std::memory_order_release);
        Futex(&shared->turn, FUTEX_WAKE, 1);
        while (shared->turn.load(std::memory_order_acquire) == 1) {
            Futex(&shared->turn, FUTEX_WAIT, 1);
        }
    });
    shared->quit.store(1);
    Futex(&shared->turn, FUTEX_WAKE, 1);
    waitpid(child, nullptr, 0);
    munmap(shared, 4096);
    Unpin();
}

}  // namespace kiv::bench
