// CPU time of an idle watchdog against a thread that polls an event every
// millisecond, the way the device's watchdog looks for a reset.
//
// Each case runs its thread for a fixed stretch (10 s; KIV_BENCH_IDLE_SECONDS
// changes it) while the main thread sleeps, and reports the CPU time the
// whole process used in that stretch (cpu_us) and its voluntary context
// switches per second (wakeups_per_s). The watchdog is started with a
// timeout of an hour, so it is idle throughout; the baseline waits on an
// automatic event that nobody sets, with a 1 ms timeout, in a loop. A third
// case, the process with no extra thread, shows the floor of the figures.
#include <kiv/system/MWatchDog.h>
#include <sys/resource.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "platform/Waitable.h"

namespace {

int IdleSeconds() {
    const char* text = std::getenv("KIV_BENCH_IDLE_SECONDS");
    const int seconds = text != nullptr ? std::atoi(text) : 0;
    return seconds > 0 ? seconds : 10;
}

struct Usage {
    double cpuSeconds = 0;
    long switches = 0;
};

Usage ProcessUsage() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    timespec cpu{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &cpu);
    return {static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) * 1e-9,
            usage.ru_nvcsw};
}

// Sleeps through the stretch and reports what the process spent in it.
void MeasureIdleStretch(benchmark::State& state) {
    const int seconds = IdleSeconds();
    // Let the thread under test reach its wait first.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const Usage before = ProcessUsage();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const Usage after = ProcessUsage();
    state.SetIterationTime(seconds);
    state.counters["cpu_us"] = (after.cpuSeconds - before.cpuSeconds) * 1e6;
    state.counters["wakeups_per_s"] =
        static_cast<double>(after.switches - before.switches) / seconds;
}

void IdleWatchDog(benchmark::State& state) {
    for (auto _ : state) {
        kiv::system::MWatchDog watchDog;
        watchDog.StartWatchDog(L"/nonexistent/kiv-bench-program", 3600 * 1000);
        MeasureIdleStretch(state);
        watchDog.StopWatchDog();
    }
}

void OneMillisecondPolling(benchmark::State& state) {
    for (auto _ : state) {
        const auto event =
            kiv::platform::Event::Create(kiv::platform::EventReset::Automatic, false);
        std::atomic<bool> stop{false};
        std::thread poller([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                kiv::platform::WaitFor(event, 1);
            }
        });
        MeasureIdleStretch(state);
        stop = true;
        poller.join();
    }
}

void NoExtraThread(benchmark::State& state) {
    for (auto _ : state) {
        MeasureIdleStretch(state);
    }
}

}  // namespace

BENCHMARK(IdleWatchDog)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(OneMillisecondPolling)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(NoExtraThread)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

BENCHMARK_MAIN();
