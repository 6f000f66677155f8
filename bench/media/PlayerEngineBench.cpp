// The built-in player's engine against a plain playbin program doing the same
// work in the same process, with the same sink, on the same 60 s MP3 (128
// kbit/s constant bit rate, ID3v2 tag, made at start-up with GStreamer's own
// encoder):
//
// - FirstBuffer: from Initialize + Start (player) or from building a playbin
//   and setting it to PLAYING (plain) to the first buffer the audio sink
//   renders. Both sinks are "fakesink sync=true signal-handoffs=true"; one
//   emission hook on fakesink's "handoff" signal, which fires for rendered
//   buffers only (not the preroll), timestamps the first one on both sides.
//   The player gets the sink through KIV_AUDIO_SINK.
// - CpuTime/0: user + system CPU time of the process to play the whole file
//   to its end against a sink that does not sync to the clock (the decoding
//   work of 60 s, as fast as it goes). CpuTime/1 syncs, so it truly plays
//   60 s; it runs only with KIV_BENCH_REAL_TIME=1 (and few repetitions).
// - IdleMemory: resident and proportional set size added per idle, prerolled
//   player (kPlayers of them alive at once), against as many prerolled plain
//   playbins.
//
// The reported time is manual (the latency, or the CPU time); run with
// --benchmark_enable_random_interleaving=true so that both sides see the same
// machine speed.
#include <gst/gst.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/IPlayer.h>
#include <kiv/media/IPlayerListener.h>
#include <kiv/media/MPlayerEvent.h>
#include <kiv/media/MPlayerManager.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace {

using kiv::media::IDataSource;
using kiv::media::IPlayer;
using kiv::media::MPlayerEvent;
using kiv::media::MPlayerManager;
using Clock = std::chrono::steady_clock;

constexpr const char* kSyncSink = "fakesink sync=true signal-handoffs=true";
constexpr const char* kFreeSink = "fakesink sync=false signal-handoffs=true";
constexpr int kPlayers = 8;

std::string g_path;
std::string g_uri;

// The first rendered buffer since the last Arm().
class Probe {
public:
    void Arm() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_seen = false;
    }
    void Rendered() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_seen) {
            m_seen = true;
            m_at = Clock::now();
            m_changed.notify_all();
        }
    }
    // The moment of the first buffer; false after 10 s without one.
    bool Wait(Clock::time_point& at) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_for(lock, std::chrono::seconds(10), [&] { return m_seen; })) {
            return false;
        }
        at = m_at;
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_seen = false;
    Clock::time_point m_at;
};

Probe g_probe;

gboolean OnHandoff(GSignalInvocationHint*, guint, const GValue*, gpointer) {
    g_probe.Rendered();
    return TRUE;  // stay installed
}

// Waits for the end of a player's playback.
class EndListener : public kiv::media::IPlayerListener {
public:
    void OnPlayerEvent(const MPlayerEvent& event) override {
        const unsigned char type = event.GetEventType();
        if (type == MPlayerEvent::STOPPED_END_OF_MEDIA ||
            type == MPlayerEvent::STOPPED_ERRORABORT) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_ended = true;
            m_changed.notify_all();
        }
    }
    bool Wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(120), [&] { return m_ended; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ended = false;
};

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Rss and Pss of the process in KiB.
void MemoryKib(long& rss, long& pss) {
    rss = pss = -1;
    if (FILE* f = std::fopen("/proc/self/smaps_rollup", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, f) != nullptr) {
            std::sscanf(line, "Rss: %ld", &rss);
            std::sscanf(line, "Pss: %ld", &pss);
        }
        std::fclose(f);
    }
}

// The player side: players made through the manager, as an application
// makes them.
class Players {
public:
    explicit Players(const char* sink) {
        setenv("KIV_AUDIO_SINK", sink, 1);
        setenv("KIV_VIDEO_SINK", "discard", 1);
        m_manager.RegisterMediaType("mp3", "ms.directshow");
        m_driver = MPlayerManager::GetDriver("ms.directshow");
    }
    ~Players() {
        for (std::size_t i = 0; i < m_players.size(); ++i) {
            m_driver->ReleasePlayer(m_players[i]);
            m_driver->ReleaseDataSource(m_sources[i]);
        }
    }
    IPlayer* Make() {
        const std::wstring locator(g_path.begin(), g_path.end());
        m_sources.push_back(m_manager.CreateDataSource(locator));
        m_players.push_back(m_manager.CreatePlayer(m_sources.back()));
        return m_players.back();
    }

private:
    MPlayerManager m_manager;
    kiv::media::IDriver* m_driver = nullptr;
    std::vector<IDataSource*> m_sources;
    std::vector<IPlayer*> m_players;
};

// The plain side: a playbin on the file with the given sink, no video.
GstElement* PlainPlaybin(const char* sink) {
    GstElement* playbin = gst_element_factory_make("playbin", nullptr);
    g_object_set(playbin, "uri", g_uri.c_str(), "audio-sink",
                 gst_parse_bin_from_description(sink, TRUE, nullptr), "video-sink",
                 gst_element_factory_make("fakesink", nullptr), nullptr);
    return playbin;
}

void ReleasePlaybin(GstElement* playbin) {
    gst_element_set_state(playbin, GST_STATE_NULL);
    gst_object_unref(playbin);
}

bool WaitForEnd(GstElement* playbin) {
    GstBus* bus = gst_element_get_bus(playbin);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 120 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool ended = message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message != nullptr) {
        gst_message_unref(message);
    }
    gst_object_unref(bus);
    return ended;
}

void BM_FirstBuffer_Playbin(benchmark::State& state) {
    for (auto _ : state) {
        g_probe.Arm();
        const auto start = Clock::now();
        GstElement* playbin = PlainPlaybin(kSyncSink);
        gst_element_set_state(playbin, GST_STATE_PLAYING);
        Clock::time_point at;
        if (!g_probe.Wait(at)) {
            state.SkipWithError("no buffer reached the sink");
        }
        state.SetIterationTime(std::chrono::duration<double>(at - start).count());
        ReleasePlaybin(playbin);
    }
}
BENCHMARK(BM_FirstBuffer_Playbin)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

// The plain program in the player's two steps: preroll (PAUSED, waited for),
// then PLAYING. Not the baseline; it shows what the preroll costs by itself.
void BM_FirstBuffer_PlaybinPrerolled(benchmark::State& state) {
    for (auto _ : state) {
        g_probe.Arm();
        const auto start = Clock::now();
        GstElement* playbin = PlainPlaybin(kSyncSink);
        gst_element_set_state(playbin, GST_STATE_PAUSED);
        gst_element_get_state(playbin, nullptr, nullptr, 10 * GST_SECOND);
        gst_element_set_state(playbin, GST_STATE_PLAYING);
        Clock::time_point at;
        if (!g_probe.Wait(at)) {
            state.SkipWithError("no buffer reached the sink");
        }
        state.SetIterationTime(std::chrono::duration<double>(at - start).count());
        ReleasePlaybin(playbin);
    }
}
BENCHMARK(BM_FirstBuffer_PlaybinPrerolled)
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

// The counters init_ms and play_ms split the time at the return of
// Initialize: the preroll, and the rest.
void BM_FirstBuffer_Player(benchmark::State& state) {
    Players players(kSyncSink);
    double prerolling = 0;
    double total = 0;
    for (auto _ : state) {
        IPlayer* player = players.Make();
        g_probe.Arm();
        const auto start = Clock::now();
        if (player->Initialize() != 0) {
            state.SkipWithError("the player did not initialize");
            break;
        }
        const auto initialized = Clock::now();
        if (player->Start() != 0) {
            state.SkipWithError("the player did not start");
            break;
        }
        Clock::time_point at;
        if (!g_probe.Wait(at)) {
            state.SkipWithError("no buffer reached the sink");
        }
        const double seconds = std::chrono::duration<double>(at - start).count();
        state.SetIterationTime(seconds);
        prerolling += std::chrono::duration<double>(initialized - start).count();
        total += seconds;
        player->Close();
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["init_ms"] = prerolling * 1000 / n;
    state.counters["play_ms"] = (total - prerolling) * 1000 / n;
}
BENCHMARK(BM_FirstBuffer_Player)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

void BM_CpuTime_Playbin(benchmark::State& state) {
    const char* sink = state.range(0) != 0 ? kSyncSink : kFreeSink;
    for (auto _ : state) {
        const double before = CpuSeconds();
        GstElement* playbin = PlainPlaybin(sink);
        gst_element_set_state(playbin, GST_STATE_PLAYING);
        if (!WaitForEnd(playbin)) {
            state.SkipWithError("playback did not reach the end");
        }
        ReleasePlaybin(playbin);
        state.SetIterationTime(CpuSeconds() - before);
    }
}
BENCHMARK(BM_CpuTime_Playbin)
    ->Arg(0)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void BM_CpuTime_Player(benchmark::State& state) {
    Players players(state.range(0) != 0 ? kSyncSink : kFreeSink);
    for (auto _ : state) {
        const double before = CpuSeconds();
        IPlayer* player = players.Make();
        EndListener listener;
        player->AddPlayerListener(&listener);
        if (player->Initialize() != 0 || player->Start() != 0 || !listener.Wait()) {
            state.SkipWithError("playback did not reach the end");
        }
        player->Close();
        player->RemovePlayerListener(&listener);
        state.SetIterationTime(CpuSeconds() - before);
    }
}
BENCHMARK(BM_CpuTime_Player)->Arg(0)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

// Runs `make` kPlayers times between two readings of the process's memory;
// reports the growth per player and the time of the whole as manual time.
template <typename Make>
void MeasureIdle(benchmark::State& state, Make make) {
    malloc_trim(0);
    long rss0 = 0;
    long pss0 = 0;
    MemoryKib(rss0, pss0);
    const auto start = Clock::now();
    for (int i = 0; i < kPlayers; ++i) {
        if (!make()) {
            state.SkipWithError("a player did not preroll");
            return;
        }
    }
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    long rss1 = 0;
    long pss1 = 0;
    MemoryKib(rss1, pss1);
    state.counters["rss_kib"] = static_cast<double>(rss1 - rss0) / kPlayers;
    state.counters["pss_kib"] = static_cast<double>(pss1 - pss0) / kPlayers;
}

void BM_IdleMemory_Playbin(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<GstElement*> playbins;
        MeasureIdle(state, [&] {
            GstElement* playbin = PlainPlaybin(kSyncSink);
            playbins.push_back(playbin);
            gst_element_set_state(playbin, GST_STATE_PAUSED);
            return gst_element_get_state(playbin, nullptr, nullptr, 10 * GST_SECOND) ==
                   GST_STATE_CHANGE_SUCCESS;
        });
        for (GstElement* playbin : playbins) {
            ReleasePlaybin(playbin);
        }
    }
}
BENCHMARK(BM_IdleMemory_Playbin)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_IdleMemory_Player(benchmark::State& state) {
    for (auto _ : state) {
        Players players(kSyncSink);
        MeasureIdle(state, [&] { return players.Make()->Initialize() == 0; });
    }
}
BENCHMARK(BM_IdleMemory_Player)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

// The 60 s file, and one playback on each side so that every plugin is
// loaded before anything is measured.
bool Prepare() {
    char dir[] = "/tmp/kiv-engine-bench-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        return false;
    }
    g_path = std::string(dir) + "/tone60.mp3";
    gchar* uri = gst_filename_to_uri(g_path.c_str(), nullptr);
    g_uri = uri;
    g_free(uri);
    const std::string description =
        "audiotestsrc num-buffers=3000 samplesperbuffer=882 ! "
        "audio/x-raw,rate=44100,channels=2 ! lamemp3enc target=bitrate cbr=true bitrate=128 ! "
        "taginject tags=title=Tone,artist=Bench ! id3v2mux ! filesink location=" +
        g_path;
    GstElement* maker = gst_parse_launch(description.c_str(), nullptr);
    if (maker == nullptr) {
        return false;
    }
    gst_element_set_state(maker, GST_STATE_PLAYING);
    const bool made = WaitForEnd(maker);
    ReleasePlaybin(maker);
    if (!made) {
        return false;
    }

    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    g_signal_add_emission_hook(g_signal_lookup("handoff", G_OBJECT_TYPE(sink)), 0, OnHandoff,
                               nullptr, nullptr);
    gst_object_unref(sink);

    GstElement* playbin = PlainPlaybin(kFreeSink);
    gst_element_set_state(playbin, GST_STATE_PLAYING);
    const bool plain = WaitForEnd(playbin);
    ReleasePlaybin(playbin);
    Players players(kFreeSink);
    IPlayer* player = players.Make();
    EndListener listener;
    player->AddPlayerListener(&listener);
    const bool played = player->Initialize() == 0 && player->Start() == 0 && listener.Wait();
    player->RemovePlayerListener(&listener);
    return plain && played;
}

}  // namespace

int main(int argc, char** argv) {
    // The engine would start GStreamer on its first player; the baseline and
    // the probe need it before.
    gst_init(nullptr, nullptr);
    benchmark::Initialize(&argc, argv);
    // Playing in real time takes a minute per repetition and side: only on
    // request, so that scripts/bench stays short.
    if (const char* realTime = std::getenv("KIV_BENCH_REAL_TIME");
        realTime != nullptr && std::strcmp(realTime, "1") == 0) {
        for (auto* run : {benchmark::RegisterBenchmark("BM_CpuTime_Playbin", BM_CpuTime_Playbin),
                          benchmark::RegisterBenchmark("BM_CpuTime_Player", BM_CpuTime_Player)}) {
            run->Arg(1)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
        }
    }
    if (!Prepare()) {
        std::fprintf(stderr, "cannot make or play the test file %s\n", g_path.c_str());
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    unlink(g_path.c_str());
    rmdir(g_path.substr(0, g_path.rfind('/')).c_str());
    return 0;
}
