// The MConcurObject ping-pong between two threads: a benchmark of its own
// and the baseline that other hand-overs (player events) are measured
// against.
#pragma once

#include <kiv/concurrent/MConcurObject.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "support/CrossProcess.h"

namespace kiv::bench {

/// One round trip a timed iteration: the main thread notifies, the worker
/// (on the CPU `OtherCpu` names) answers.
inline void ConcurObjectPingPong(benchmark::State& state) {
    using kiv::system::concurrent::MConcurObject;
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

}  // namespace kiv::bench
