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
#include "support/CrossProcess.h"

namespace {

using kiv::bench::Clock;
using kiv::bench::Futex;
using kiv::bench::OtherCpu;
using kiv::bench::PinTo;
using kiv::bench::RoundTrips;
using kiv::bench::SharedPage;
using kiv::bench::Unpin;
using namespace kiv::ipc;

void AwaitFlag(const std::atomic<std::uint32_t>* flag) {
    while (flag->load() == 0) {
        usleep(1000);
    }
}

// --- baseline ---------------------------------------------------------------

void BM_Baseline_FutexPingPongAcrossProcesses(benchmark::State& state) {
    kiv::bench::FutexPingPongAcrossProcesses(state);
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
