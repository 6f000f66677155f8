// Listener delivery latency: an event fired by a player, delivered by the
// player's dispatcher thread to OnPlayerEvent, which answers the firing
// thread through an MConcurObject. The baseline is the MConcurObject
// ping-pong between two threads, the same wake-ups without the player.
// Both are run with the other thread pinned to the firing thread's CPU
// ("/0") and to the other CPU ("/1").
//
// Round trips are timed one by one; the counters p50_us and p99_us are the
// percentiles of one run, and the reported time is the mean.
#include <kiv/concurrent/MConcurObject.h>
#include <kiv/media/IPlayerListener.h>
#include <kiv/media/MPlayerBase.h>
#include <kiv/media/MPlayerEvent.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "support/ConcurObjectPingPong.h"
#include "support/CrossProcess.h"

namespace {

using kiv::bench::OtherCpu;
using kiv::bench::PinTo;
using kiv::bench::RoundTrips;
using kiv::bench::Unpin;
using kiv::media::IDataSource;
using kiv::media::MPlayerEvent;
using kiv::system::concurrent::MConcurObject;

// A player with nothing behind it; only its events matter here.
class IdlePlayer : public kiv::media::MPlayerBase {
public:
    ~IdlePlayer() override { ShutDownListeners(); }
    using MPlayerBase::FireEvent;
    unsigned int Close() override { return 0; }

protected:
    double DoGetRate() override { return 1.0; }
    unsigned int DoSetRate(double) override { return 0; }
    int DoGetMediaTime() override { return 0; }
    unsigned int DoSetMediaTime(int) override { return 0; }
    int DoGetDuration() override { return 0; }
    unsigned int DoInitialize() override { return 0; }
    unsigned int DoDeinitialize() override { return 0; }
    unsigned int DoStart() override { return 0; }
    unsigned int DoPause() override { return 0; }
    unsigned int DoStop() override { return 0; }
    unsigned int DoSetDataSource(IDataSource*) override { return 0; }
};

class Answerer : public kiv::media::IPlayerListener {
public:
    explicit Answerer(int cpu) : m_cpu(cpu) {}
    void OnPlayerEvent(const MPlayerEvent&) override {
        if (!m_pinned) {
            PinTo(m_cpu);  // the dispatcher thread, on its first event
            m_pinned = true;
        }
        answer.Notify();
    }
    MConcurObject answer;

private:
    int m_cpu;
    bool m_pinned = false;
};

void BM_Baseline_MConcurObjectPingPong(benchmark::State& state) {
    kiv::bench::ConcurObjectPingPong(state);
}
BENCHMARK(BM_Baseline_MConcurObjectPingPong)->Arg(0)->Arg(1)->UseRealTime();

void BM_PlayerEventToListenerAndBack(benchmark::State& state) {
    PinTo(0);
    IdlePlayer player;
    Answerer listener(OtherCpu(state));
    player.AddPlayerListener(&listener);
    player.FireEvent(MPlayerEvent::MEDIA_TIME_SET);  // pins the dispatcher
    listener.answer.Wait();
    RoundTrips(state).Run([&] {
        player.FireEvent(MPlayerEvent::MEDIA_TIME_SET);
        listener.answer.Wait();
    });
    Unpin();
}
BENCHMARK(BM_PlayerEventToListenerAndBack)->Arg(0)->Arg(1)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
