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
#include "support/ConcurObjectPingPong.h"
#include "support/CrossProcess.h"

namespace {

using kiv::bench::Clock;
using kiv::bench::Futex;
using kiv::bench::OtherCpu;
using kiv::bench::PinTo;
using kiv::bench::RoundTrips;
using kiv::bench::SharedPage;
using kiv::bench::Unpin;
using kiv::system::concurrent::MConcurObject;
using kiv::system::concurrent::MMutex;

// --- cross-process ping-pong -------------------------------------------------

void BM_Baseline_FutexPingPongAcrossProcesses(benchmark::State& state) {
    kiv::bench::FutexPingPongAcrossProcesses(state);
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

// --- a producer's signal on an event another process holds ----------------

// A child that holds the named event until it is told to quit, as a client
// holds the GPS events while the daemon signals them.
template <typename Signal>
void SignalHeldEvent(benchmark::State& state, Signal signal) {
    using kiv::platform::Event;
    using kiv::platform::EventReset;
    Event held = Event::Create(L"bench held", EventReset::Automatic, false);
    Event quitEvent = Event::Create(L"bench quit", EventReset::Manual, false);
    const pid_t child = fork();
    if (child == 0) {
        Event childHeld = Event::Open(L"bench held");
        kiv::platform::WaitFor(quitEvent, kiv::platform::kInfinite);
        _exit(childHeld.IsValid() ? 0 : 1);
    }
    for (auto _ : state) {
        signal();
        held.Reset();  // so that every signal changes the event
    }
    quitEvent.Set();
    waitpid(child, nullptr, 0);
}

void BM_Baseline_NamedEventSignalByOpening(benchmark::State& state) {
    using kiv::platform::Event;
    SignalHeldEvent(state, [] {
        const Event event =
            Event::Create(L"bench held", kiv::platform::EventReset::Automatic, false);
        event.Set();
    });
}
BENCHMARK(BM_Baseline_NamedEventSignalByOpening);

void BM_NamedEventSignaller(benchmark::State& state) {
    kiv::platform::EventSignaller signaller(L"bench held");
    SignalHeldEvent(state, [&] { signaller.Set(); });
}
BENCHMARK(BM_NamedEventSignaller);

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
    kiv::bench::ConcurObjectPingPong(state);
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
