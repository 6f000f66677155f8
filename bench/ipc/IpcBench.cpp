// IPC round trips between two processes against a raw futex ping-pong.
//
// - SendCommand with a 64-byte payload to a server in a forked child, which
//   pumps its IPC window: look-up of the record, a data slot, the window send
//   and the handler's look-up of the command id, and back.
// - SendWindowMessage to a window of the child: the transport alone.
// - The baseline: a futex ping-pong on a shared word between two processes.
// Each runs with both sides on CPU 0 ("/0") and split across CPUs 0 and 1
// ("/1"). Round trips are timed one by one; the counters p50_us and p99_us
// are the percentiles of one run, and the reported time is the mean.
#include <kiv/ipc/MIpc.h>
#include <kiv/ipc/MessageWindow.h>

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
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/Namespace.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace kiv::ipc;

void PinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof set, &set);
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

int OtherCpu(const benchmark::State& state) {
    return state.range(0) == 0 ? 0 : 1;
}

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

template <typename T>
T* SharedPage() {
    void* p = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return p == MAP_FAILED ? nullptr : new (p) T();
}

long Futex(std::atomic<std::uint32_t>* word, int op, std::uint32_t value) {
    return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op, value, nullptr, nullptr,
                   0);
}

void AwaitFlag(const std::atomic<std::uint32_t>* flag) {
    while (flag->load() == 0) {
        usleep(1000);
    }
}

// --- baseline ---------------------------------------------------------------

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

// --- window messages ---------------------------------------------------------

constexpr unsigned int kPing = 0x500;
constexpr unsigned int kQuit = 0x501;

std::intptr_t BenchProcedure(HWND, unsigned int message, std::uintptr_t wParam, std::intptr_t) {
    if (message == kQuit) {
        PostQuitWindowMessage(0);
    }
    return static_cast<std::intptr_t>(wParam);
}

void BM_SendWindowMessageAcrossProcesses(benchmark::State& state) {
    auto* ready = SharedPage<std::atomic<std::uint32_t>>();
    PinTo(0);
    const pid_t child = fork();
    if (child == 0) {
        PinTo(OtherCpu(state));
        CreateMessageWindow(L"bench window", L"", BenchProcedure);
        ready->store(1);
        PumpWindowMessages(-1);
        _exit(0);
    }
    AwaitFlag(ready);
    const HWND window = FindMessageWindow(L"bench window", nullptr);
    RoundTrips(state).Run(
        [&] { benchmark::DoNotOptimize(SendWindowMessage(window, kPing, 1, 0)); });
    SendWindowMessage(window, kQuit, 0, 0);
    waitpid(child, nullptr, 0);
    munmap(ready, 4096);
    Unpin();
}
BENCHMARK(BM_SendWindowMessageAcrossProcesses)->Arg(0)->Arg(1)->UseRealTime();

// --- SendCommand --------------------------------------------------------------

int Noop(void* payload) {
    benchmark::DoNotOptimize(payload);
    return 0;
}

int QuitServer(void*) {
    PostQuitWindowMessage(0);
    return 0;
}

void BM_SendCommand64BytesAcrossProcesses(benchmark::State& state) {
    auto* ready = SharedPage<std::atomic<std::uint32_t>>();
    PinTo(0);
    const pid_t child = fork();
    if (child == 0) {
        PinTo(OtherCpu(state));
        MIpcServer server;
        server.SetServerName(L"bench");
        server.AddCommand(L"noop", Noop, nullptr);
        server.AddCommand(L"quit", QuitServer, nullptr);
        MIpc ipc;
        if (ipc.RegisterMyService(server) != 0) {
            _exit(1);
        }
        ready->store(1);
        PumpWindowMessages(-1);
        ipc.UnregisterMyService(L"bench");
        _exit(0);
    }
    AwaitFlag(ready);
    MIpc ipc;
    MIpcService service;
    if (ipc.GetService(L"bench", service) != 0) {
        state.SkipWithError("the server did not register");
    }
    char payload[64];
    for (int i = 0; i < 64; ++i) {
        payload[i] = static_cast<char>('a' + i % 26);
    }
    RoundTrips(state).Run([&] { service.SendCommand(L"noop", payload, sizeof payload, 0); });
    service.SendCommand(L"quit", nullptr, 0, 0);
    waitpid(child, nullptr, 0);
    munmap(ready, 4096);
    Unpin();
}
BENCHMARK(BM_SendCommand64BytesAcrossProcesses)->Arg(0)->Arg(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    // A namespace of this run only, so that the servers meet nobody else's.
    const std::string ns = "bench" + std::to_string(getpid());
    setenv("KIV_NAMESPACE", ns.c_str(), 1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (const auto& [kind, name] :
         {std::pair{"waitables", L"table"}, std::pair{"windows", L"table"},
          std::pair{"section", L"IPC_Shar"}}) {
        shm_unlink(kiv::platform::SystemObjectName(kind, name).c_str());
    }
    return 0;
}
