// CPU cost of the GPS path against gpsd, per 1,000 sentences.
//
// The recordings of real receivers in a samples folder (every "*.log" file;
// lines starting with "#" are comments) are played through a pseudo-terminal
// in two ways:
//   line  at 115200 baud (10 bits a byte), one fix (the sentences that share
//         a UTC time) every 100 ms;
//   fast  everything in one go, as fast as the terminal takes it.
// The same stream goes, in the same run and in alternating order, to
//   kiv   the daemon KivGPS on the terminal as COM7, and a client process on
//         MGPSService whose fix and moving callbacks read the position, the
//         date and time and the satellites in view, as a monitor does;
//   gpsd  "gpsd -N -n -b" on a terminal of the same kind, on a port and
//         control socket of its own, and "gpspipe -w" as its client.
// CPU time is user + system of all threads, read from each process's CPU
// clock from the first byte written to 500 ms after the last (the same
// settling time on both sides, so a process's idle wake-ups in it count).
// Before each play the processes idle for --idle seconds; that CPU is
// reported per second on its own.
//
//   bench_gps_cost [--samples DIR] [--rounds N] [--idle S] [--mode line|fast|both]
//   (--benchmark_* is ignored, so scripts/bench can run it)
#include <kiv/gps/MGPSService.h>
#include <kiv/system/MRegistry.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
constexpr unsigned int kPort = 7;
constexpr const wchar_t* kGpsKey = L"Software\\Tarvo\\KivFramework\\GPS";
constexpr auto kSettle = std::chrono::milliseconds(500);

// ---- the client process ------------------------------------------------

kiv::gps::MGPSService* g_service = nullptr;

int ReadEverything(void*) {
    kiv::gps::MGPSPosition position;
    kiv::gps::MGPSDateTime time;
    std::vector<kiv::gps::MSatellite*> satellites;
    g_service->GetGPSPosition(&position);
    g_service->GetGPSDateTime(&time);
    g_service->GetSatellitesInView(satellites);
    for (auto* s : satellites) {
        delete s;
    }
    return 0;
}

// Runs until SIGTERM; writes one byte to stdout once the service is started.
int RunClient() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    int status = 0;
    {
        kiv::gps::MGPSService service;
        g_service = &service;
        service.SetFixCallback(ReadEverything);
        service.SetMovingCallback(ReadEverything);
        if (service.StartService() != 0) {
            return 1;
        }
        if (write(STDOUT_FILENO, "R", 1) != 1) {
            status = 1;
        }
        int signal = 0;
        sigwait(&set, &signal);
    }
    return status;
}

// ---- processes and their CPU clocks --------------------------------------

pid_t Spawn(const std::vector<std::string>& args, int stdoutFd, bool quiet = false) {
    std::vector<char*> argv;
    for (const auto& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdoutFd >= 0) {
        posix_spawn_file_actions_adddup2(&actions, stdoutFd, STDOUT_FILENO);
    }
    if (quiet) {
        // gpsd complains on stderr about the missing D-Bus system bus.
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// CPU time of a whole process (all threads, ended ones included), in ns.
double CpuNs(pid_t pid) {
    clockid_t id;
    timespec ts{};
    if (clock_getcpuclockid(pid, &id) != 0 || clock_gettime(id, &ts) != 0) {
        return 0;
    }
    return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

void Stop(pid_t pid) {
    if (pid <= 0) {
        return;
    }
    kill(pid, SIGTERM);
    for (int i = 0; i < 300; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

int OpenTerminal(std::string& slave) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        return -1;
    }
    termios tio{};
    if (tcgetattr(master, &tio) == 0) {
        cfmakeraw(&tio);
        tcsetattr(master, TCSANOW, &tio);
    }
    slave = ptsname(master);
    return master;
}

// ---- the stream ------------------------------------------------------------

// The sentences of one fix, written together at line rate.
using Epoch = std::vector<std::string>;

std::string TimeOf(const std::string& sentence) {
    // GGA, RMC, ZDA carry the time in field 1, GLL in field 5.
    if (sentence.size() < 7) {
        return {};
    }
    const std::string type = sentence.substr(3, 3);
    int field = 0;
    if (type == "GGA" || type == "RMC" || type == "ZDA") {
        field = 1;
    } else if (type == "GLL") {
        field = 5;
    } else {
        return {};
    }
    std::size_t at = 0;
    for (int i = 0; i < field && at != std::string::npos; ++i) {
        at = sentence.find(',', at + 1);
    }
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t end = sentence.find_first_of(",*", at + 1);
    return sentence.substr(at + 1, end == std::string::npos ? end : end - at - 1);
}

bool LoadSamples(const std::string& dir, std::vector<Epoch>& epochs, std::size_t& sentences,
                 std::size_t& bytes) {
    std::vector<std::filesystem::path> files;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
        if (entry.path().extension() == ".log") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        std::ifstream in(file);
        std::string line;
        std::string time;
        epochs.emplace_back();
        while (std::getline(in, line)) {
            while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) {
                line.pop_back();
            }
            if (line.empty() || line[0] == '#') {
                continue;
            }
            const std::string t = TimeOf(line);
            if (!t.empty() && t != time && !epochs.back().empty()) {
                epochs.emplace_back();
            }
            if (!t.empty()) {
                time = t;
            }
            epochs.back().push_back(line + "\r\n");
            ++sentences;
            bytes += line.size() + 2;
        }
    }
    return sentences > 0;
}

void Drain(int master) {
    char buffer[512];
    while (read(master, buffer, sizeof buffer) > 0) {
    }
}

// Writes the stream, paced (line) or not (fast); false on a write error.
bool Play(int master, const std::vector<Epoch>& epochs, bool paced) {
    auto next = Clock::now();
    for (const Epoch& epoch : epochs) {
        for (const std::string& s : epoch) {
            std::size_t done = 0;
            while (done < s.size()) {
                const ssize_t n = write(master, s.data() + done, s.size() - done);
                if (n < 0 && errno != EAGAIN && errno != EINTR) {
                    return false;
                }
                if (n > 0) {
                    done += static_cast<std::size_t>(n);
                } else {
                    Drain(master);
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                }
            }
            if (paced) {
                // 115200 baud, 8N1: 10 bits a byte.
                std::this_thread::sleep_for(
                    std::chrono::microseconds(s.size() * 10'000'000 / 115200));
            }
        }
        Drain(master);
        if (paced) {
            next += std::chrono::milliseconds(100);
            std::this_thread::sleep_until(next);
        }
    }
    return true;
}

// ---- one measured play ---------------------------------------------------

struct Cost {
    double serverNs = 0;  // the daemon, or gpsd
    double clientNs = 0;  // the MGPSService client, or gpspipe
    double idleServerNs = 0;
    double idleClientNs = 0;
};

struct Options {
    std::string self;
    std::string samples = KIV_SAMPLES_DIR;
    int rounds = 3;
    double idleSeconds = 2;
    bool line = true;
    bool fast = true;
};

// Idles, plays and settles with the two processes running; false on failure.
bool Measure(pid_t server, pid_t client, int master, const std::vector<Epoch>& epochs, bool paced,
             const Options& o, Cost& cost) {
    const double s0 = CpuNs(server);
    const double c0 = CpuNs(client);
    std::this_thread::sleep_for(std::chrono::duration<double>(o.idleSeconds));
    const double s1 = CpuNs(server);
    const double c1 = CpuNs(client);
    const bool played = Play(master, epochs, paced);
    std::this_thread::sleep_for(kSettle);
    Drain(master);
    cost.idleServerNs = s1 - s0;
    cost.idleClientNs = c1 - c0;
    cost.serverNs = CpuNs(server) - s1;
    cost.clientNs = CpuNs(client) - c1;
    return played && s1 > 0 && c1 > 0;
}

bool RunKiv(const std::string& dir, const std::vector<Epoch>& epochs, bool paced, const Options& o,
            Cost& cost) {
    std::string slave;
    const int master = OpenTerminal(slave);
    if (master < 0) {
        return false;
    }
    fcntl(master, F_SETFL, O_NONBLOCK);
    static int serial = 0;
    const std::string ns = "benchcost" + std::to_string(getpid()) + "x" + std::to_string(++serial);
    setenv("KIV_REGISTRY", (dir + "/" + ns + ".db").c_str(), 1);
    setenv("KIV_DEVICE_ROOT", dir.c_str(), 1);
    setenv("KIV_NAMESPACE", ns.c_str(), 1);
    setenv(("KIV_COM" + std::to_string(kPort)).c_str(), slave.c_str(), 1);
    {
        kiv::system::MRegistry key;
        key.Create(HKEY_CURRENT_USER, kGpsKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
        key.SetValue(kPort, L"COMPORT");
        key.SetValue(115200u, L"BAUDRATE");
        key.SetValue(L"", L"DEMO_FILE");
        key.SetValue(L"", L"FILE_PATH");
        key.SetValue(L"0", L"INIT_FLAG");
    }
    bool ok = false;
    const pid_t daemon = Spawn({KIV_DAEMON_PATH}, -1);
    pid_t client = -1;
    int ready[2] = {-1, -1};
    if (daemon > 0 && pipe2(ready, O_CLOEXEC) == 0) {
        // The daemon has opened the terminal once it answers; the client
        // then finds it running.
        kiv::system::MRegistry key;
        key.Open(HKEY_CURRENT_USER, kGpsKey, KEY_READ);
        for (int i = 0; i < 1000; ++i) {
            wchar_t flag[8] = {};
            unsigned int size = sizeof flag;
            if (key.QueryValue(flag, L"INIT_FLAG", &size) == 0 && flag[0] == L'1') {
                ok = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        client = ok ? Spawn({o.self, "--client"}, ready[1]) : -1;
        close(ready[1]);
        char byte = 0;
        ok = client > 0 && read(ready[0], &byte, 1) == 1;
        close(ready[0]);
    }
    if (ok) {
        ok = Measure(daemon, client, master, epochs, paced, o, cost);
    }
    // The last client stops the daemon; it is stopped here too, in case.
    Stop(client);
    Stop(daemon);
    close(master);
    return ok;
}

int FreePort() {
    const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = 0;
    if (bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        port = ntohs(a.sin_port);
    }
    close(s);
    return port;
}

// gpsd accepts a client once it listens; its device is open at once (-n).
bool WaitForPort(int port) {
    for (int i = 0; i < 500; ++i) {
        const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool up = connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        close(s);
        if (up) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

bool RunGpsd(const std::string& dir, const std::vector<Epoch>& epochs, bool paced, const Options& o,
             Cost& cost) {
    std::string slave;
    const int master = OpenTerminal(slave);
    if (master < 0) {
        return false;
    }
    fcntl(master, F_SETFL, O_NONBLOCK);
    const int port = FreePort();
    const std::string control = dir + "/gpsd" + std::to_string(port) + ".sock";
    const int devnull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t gpsd = Spawn(
        {"/usr/sbin/gpsd", "-N", "-n", "-b", "-S", std::to_string(port), "-F", control, slave},
        devnull, true);
    pid_t pipe = -1;
    bool ok = gpsd > 0 && WaitForPort(port);
    if (ok) {
        pipe = Spawn({"/usr/bin/gpspipe", "-w", "localhost:" + std::to_string(port)}, devnull);
        ok = pipe > 0;
    }
    if (ok) {
        // Let gpspipe connect and watch before the idle window begins.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        ok = Measure(gpsd, pipe, master, epochs, paced, o, cost);
    }
    Stop(pipe);
    Stop(gpsd);
    close(devnull);
    close(master);
    std::filesystem::remove(control);
    return ok;
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--client") == 0) {
        return RunClient();
    }
    Options o;
    o.self = "/proc/self/exe";
    char self[4096] = {};
    if (const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1); n > 0) {
        o.self = self;
    }
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--samples" && i + 1 < argc) {
            o.samples = argv[++i];
        } else if (a == "--rounds" && i + 1 < argc) {
            o.rounds = std::max(1, std::atoi(argv[++i]));
        } else if (a == "--idle" && i + 1 < argc) {
            o.idleSeconds = std::max(0.1, std::atof(argv[++i]));
        } else if (a == "--mode" && i + 1 < argc) {
            const std::string m = argv[++i];
            o.line = m != "fast";
            o.fast = m != "line";
        } else if (a.rfind("--benchmark_", 0) != 0) {
            std::fprintf(stderr,
                         "usage: bench_gps_cost [--samples DIR] [--rounds N] [--idle S] "
                         "[--mode line|fast|both]\n");
            return 2;
        }
    }
    std::vector<Epoch> epochs;
    std::size_t sentences = 0;
    std::size_t bytes = 0;
    if (!LoadSamples(o.samples, epochs, sentences, bytes)) {
        std::fprintf(stderr, "bench_gps_cost: no recordings (*.log) in %s; give --samples DIR\n",
                     o.samples.c_str());
        return 1;
    }
    if (access("/usr/sbin/gpsd", X_OK) != 0 || access("/usr/bin/gpspipe", X_OK) != 0) {
        std::fprintf(stderr,
                     "bench_gps_cost: gpsd and gpspipe are needed (scripts/bootstrap --bench)\n");
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);
    char dir[] = "/tmp/kiv-bench-cost-XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        return 1;
    }
    std::printf("%zu sentences, %zu bytes, %zu fixes from %s; %d rounds\n", sentences, bytes,
                epochs.size(), o.samples.c_str(), o.rounds);
    std::printf("CPU ms per 1,000 sentences (user + system, all threads)\n");
    std::printf("%-5s %5s %8s %8s %8s | %8s %8s %8s | %6s | idle ms/s kiv %6s gpsd %6s\n", "mode",
                "round", "KivGPS", "client", "kiv", "gpsd", "gpspipe", "gpsd", "ratio", "", "");
    const double per = 1e6 * static_cast<double>(sentences) / 1000;
    int status = 0;
    for (const bool paced : {true, false}) {
        if ((paced && !o.line) || (!paced && !o.fast)) {
            continue;
        }
        const char* mode = paced ? "line" : "fast";
        std::vector<double> ratios;
        std::vector<double> kivTotals;
        std::vector<double> gpsdTotals;
        for (int round = 0; round < o.rounds; ++round) {
            Cost kiv;
            Cost gpsd;
            bool ok = true;
            // Alternate which side goes first.
            if (round % 2 == 0) {
                ok = RunKiv(dir, epochs, paced, o, kiv) && RunGpsd(dir, epochs, paced, o, gpsd);
            } else {
                ok = RunGpsd(dir, epochs, paced, o, gpsd) && RunKiv(dir, epochs, paced, o, kiv);
            }
            if (!ok) {
                std::fprintf(stderr, "bench_gps_cost: round %d (%s) failed\n", round, mode);
                status = 1;
                continue;
            }
            const double k = (kiv.serverNs + kiv.clientNs) / per;
            const double g = (gpsd.serverNs + gpsd.clientNs) / per;
            ratios.push_back(k / g);
            kivTotals.push_back(k);
            gpsdTotals.push_back(g);
            std::printf("%-5s %5d %8.2f %8.2f %8.2f | %8.2f %8.2f %8.2f | %6.2f | %14.3f %11.3f\n",
                        mode, round, kiv.serverNs / per, kiv.clientNs / per, k, gpsd.serverNs / per,
                        gpsd.clientNs / per, g, k / g,
                        (kiv.idleServerNs + kiv.idleClientNs) / 1e6 / o.idleSeconds,
                        (gpsd.idleServerNs + gpsd.idleClientNs) / 1e6 / o.idleSeconds);
            std::fflush(stdout);
        }
        if (!ratios.empty()) {
            std::printf(
                "%-5s median: kiv %.2f ms, gpsd %.2f ms, ratio %.2f (rounds %.2f..%.2f); target "
                "at most 1.0: %s\n",
                mode, Median(kivTotals), Median(gpsdTotals), Median(ratios),
                *std::min_element(ratios.begin(), ratios.end()),
                *std::max_element(ratios.begin(), ratios.end()),
                Median(ratios) <= 1.0 ? "met" : "NOT met");
        }
    }
    std::filesystem::remove_all(dir);
    return status;
}
