// Locks, wait objects and named events against their plain baselines.
//
// - Cross-process ping-pong through two named automatic events against a raw
//   futex ping-pong on a shared word, both sides pinned to one CPU ("/0")
//   and split across two CPUs ("/1"). The other side is a forked child.
// - MMutex uncontended Aquire/Release against std::recursive_mutex.
// - MConcurObject Notify/Wait ping-pong between two threads against
//   std::condition_variable, pinned the same two ways.
//
// Round trips are timed one by one; the counters p50_us and p99_us are the
// percentiles of one run, and the reported time is the mean.
#include <kiv/concurrent/MConcurObject.h>
#include <kiv/concurrent/MMutex.h>

#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/Namespace.h"
#include "platform/Waitable.h"

namespace {

using Clock = std::chrono::steady_clock;
using kiv::system::concurrent::MConcurObject;
using kiv::system::concurrent::MMutex;

// --- helpers -----------------------------------------------------------------

void PinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof set, &set);  // the calling thread
}

void Unpin() {
    cpu_set_t set;
    CPU_ZERO(&set);
    const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
    for (long i = 0; i < cpus; ++i) {
        CPU_SET(static_cast<int>(i), &set);
    }
    sched_setaffinity(0, sizeof set, &set);
}

// The CPU the other side runs on: the same one, or the next.
int OtherCpu(const benchmark::State& state) {
    return state.range(0) == 0 ? 0 : 1;
}

// Times each round trip and reports the mean as the benchmark time and the
// 50th and 99th percentiles as counters.
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

long Futex(std::atomic<std::uint32_t>* word, int op, std::uint32_t value) {
    return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op, value, nullptr, nullptr,
                   0);
}

// A page shared with a forked child.
template <typename T>
T* SharedPage() {
    void* p = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) T();
}

// --- cross-process ping-pong -------------------------------------------------

struct FutexPair {
    std::atomic<std::uint32_t> turn{0};  // 1: the child's move, 0: the parent's
    std::atomic<std::uint32_t> quit{0};
};

void BM_Baseline_FutexPingPongAcrossProcesses(benchmark::State& state) {
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
BENCHMARK(BM_Baseline_FutexPingPongAcrossProcesses)->Arg(0)->Arg(1)->UseRealTime();

void BM_NamedEventPingPongAcrossProcesses(benchmark::State& state) {
    using kiv::platform::Event;
    using kiv::platform::EventReset;
    auto* quit = SharedPage<std::atomic<std::uint32_t>>();
    Event ping = Event::Create(L"bench ping", EventReset::Automatic, false);
    Event pong = Event::Create(L"bench pong", EventReset::Automatic, false);
    PinTo(0);
    const pid_t child = fork();
    if (child == 0) {
        PinTo(OtherCpu(state));
        // The child's own handles, as another process would open them.
        Event childPing = Event::Open(L"bench ping");
        Event childPong = Event::Open(L"bench pong");
        for (;;) {
            kiv::platform::WaitFor(childPing, kiv::platform::kInfinite);
            if (quit->load()) {
                _exit(0);
            }
            childPong.Set();
        }
    }
    RoundTrips(state).Run([&] {
        ping.Set();
        kiv::platform::WaitFor(pong, kiv::platform::kInfinite);
    });
    quit->store(1);
    ping.Set();
    waitpid(child, nullptr, 0);
    munmap(quit, 4096);
    Unpin();
}
BENCHMARK(BM_NamedEventPingPongAcrossProcesses)->Arg(0)->Arg(1)->UseRealTime();

// --- uncontended mutex -----------------------------------------------------

void BM_Baseline_RecursiveMutexLockUnlock(benchmark::State& state) {
    std::recursive_mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(BM_Baseline_RecursiveMutexLockUnlock);

void BM_MMutexAquireRelease(benchmark::State& state) {
    MMutex mutex;
    for (auto _ : state) {
        mutex.Aquire();
        mutex.Release();
    }
}
BENCHMARK(BM_MMutexAquireRelease);

// --- wait/notify ping-pong between threads ---------------------------------

void BM_Baseline_ConditionVariablePingPong(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable toWorker;
    std::condition_variable toMain;
    int turn = 0;  // 1: the worker's move
    bool quit = false;
    PinTo(0);
    std::thread worker([&] {
        PinTo(OtherCpu(state));
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            toWorker.wait(lock, [&] { return turn == 1 || quit; });
            if (quit) {
                return;
            }
            turn = 0;
            toMain.notify_one();
        }
    });
    RoundTrips(state).Run([&] {
        std::unique_lock<std::mutex> lock(mutex);
        turn = 1;
        toWorker.notify_one();
        toMain.wait(lock, [&] { return turn == 0; });
    });
    {
        std::lock_guard<std::mutex> lock(mutex);
        quit = true;
    }
    toWorker.notify_one();
    worker.join();
    Unpin();
}
BENCHMARK(BM_Baseline_ConditionVariablePingPong)->Arg(0)->Arg(1)->UseRealTime();

void BM_MConcurObjectPingPong(benchmark::State& state) {
    MConcurObject toWorker;
    MConcurObject toMain;
    std::atomic<bool> quit{false};
    PinTo(0);
    std::thread worker([&] {
        PinTo(OtherCpu(state));
        for (;;) {
            toWorker.Wait();
            if (quit.load()) {
                return;
            }
            toMain.Notify();
        }
    });
    RoundTrips(state).Run([&] {
        toWorker.Notify();
        toMain.Wait();
    });
    quit.store(true);
    toWorker.Notify();
    worker.join();
    Unpin();
}
BENCHMARK(BM_MConcurObjectPingPong)->Arg(0)->Arg(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    // A namespace of this run only, so that named objects meet nobody else's.
    const std::string ns = "bench" + std::to_string(getpid());
    setenv("KIV_NAMESPACE", ns.c_str(), 1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    shm_unlink(kiv::platform::SystemObjectName("waitables", L"table").c_str());
    return 0;
}
