// kivgpsmon: a terminal GPS monitor. It starts the GPS service (which
// launches the daemon KivGPS when no client runs it yet), points the daemon
// at a receiver or at the demo drive, and shows position, time, fix,
// dilutions and the satellites in view on every fix and moving callback.
// It uses nothing but the library's public client interface.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "GpxTrack.h"
#include "Reading.h"
#include "View.h"
#include "common/KeyboardMode.h"
#include "foundation/Text.h"

namespace {

using Clock = std::chrono::steady_clock;
using kivgpsmon::GpxTrack;
using kivgpsmon::Status;
namespace fs = std::filesystem;

// The values of one receiver burst (RMC, GGA, GSA, GSV) arrive within a few
// milliseconds of each other; the monitor reads this long after a callback,
// so that one reading shows one burst.
constexpr auto kSettle = std::chrono::milliseconds(50);

// Written by the service's callback thread and by signal handlers, read by
// the main thread. The pipe wakes the main thread's poll; write() is safe in
// a signal handler and from any thread.
std::atomic<unsigned int> g_fixEvents{0};
std::atomic<unsigned int> g_movingEvents{0};
volatile std::sig_atomic_t g_stopSignal = 0;
int g_wake[2] = {-1, -1};

void Wake() {
    const int saved = errno;
    const char byte = 1;
    (void)!write(g_wake[1], &byte, 1);  // a full pipe already wakes the reader
    errno = saved;
}

int OnFix(void*) {
    g_fixEvents.fetch_add(1);
    Wake();
    return 0;
}

int OnMoving(void*) {
    g_movingEvents.fetch_add(1);
    Wake();
    return 0;
}

void OnStopSignal(int) {
    g_stopSignal = 1;
    Wake();
}

struct Options {
    bool demo = false;
    std::string demoFile;
    int port = -1;
    unsigned int baud = 4800;
    double duration = -1;
    std::string gpx;
    bool anyTalker = false;
};

void Usage(std::FILE* out) {
    std::fputs(
        "usage: kivgpsmon [options]\n"
        "A terminal GPS monitor on the GPS service: starts the service (and with it the\n"
        "daemon KivGPS) and shows UTC time, position, fix, speed, course, altitude,\n"
        "dilutions and the satellites in view on every fix and moving event.\n"
        "\n"
        "  --demo              replay the demo drive instead of a receiver\n"
        "  --demo-file PATH    replay the NMEA file PATH (implies --demo)\n"
        "  --port N --baud B   use the receiver on serial port COM<N> at B baud (default\n"
        "                      4800); its device is KIV_COM<N>, else /dev/ttyS<N-1>\n"
        "  --duration SECONDS  end after SECONDS (default: until q or Ctrl-C)\n"
        "  --gpx FILE          write the received track to FILE as GPX 1.1\n"
        "  --any-talker        accept the sentences of multi-constellation receivers\n"
        "                      (GN, GL, GA, GB, BD, GQ) as well as GP\n"
        "  --help              this text\n"
        "\n"
        "Without --demo or --port the daemon keeps the receiver it is set to. On a\n"
        "terminal the screen is redrawn in place; otherwise one line is printed per\n"
        "fix. The daemon ends when its last client ends.\n",
        out);
}

[[noreturn]] void BadUsage(const std::string& message) {
    std::fprintf(stderr, "kivgpsmon: %s (see --help)\n", message.c_str());
    std::exit(2);
}

bool ParseNumber(const char* text, double& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtod(text, &end);
    return end != text && *end == '\0' && errno == 0 && value >= 0;
}

Options ParseOptions(int argc, char** argv) {
    Options o;
    bool baudGiven = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> const char* {
            if (i + 1 >= argc) {
                BadUsage(arg + " needs a value");
            }
            return argv[++i];
        };
        double number = 0;
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            std::exit(0);
        } else if (arg == "--demo") {
            o.demo = true;
        } else if (arg == "--demo-file") {
            o.demo = true;
            o.demoFile = value();
        } else if (arg == "--port") {
            if (!ParseNumber(value(), number) || number < 1 || number > 255 ||
                number != static_cast<int>(number)) {
                BadUsage("--port takes a port number from 1 to 255");
            }
            o.port = static_cast<int>(number);
        } else if (arg == "--baud") {
            if (!ParseNumber(value(), number) || number < 1 || number > 4e6 ||
                number != static_cast<unsigned int>(number)) {
                BadUsage("--baud takes a positive whole number");
            }
            o.baud = static_cast<unsigned int>(number);
            baudGiven = true;
        } else if (arg == "--duration") {
            if (!ParseNumber(value(), o.duration)) {
                BadUsage("--duration takes a number of seconds");
            }
        } else if (arg == "--any-talker") {
            o.anyTalker = true;
        } else if (arg == "--gpx") {
            o.gpx = value();
        } else {
            BadUsage("unknown argument '" + arg + "'");
        }
    }
    if (o.demo && o.port >= 0) {
        BadUsage("--demo and --port exclude each other");
    }
    if (baudGiven && o.port < 0) {
        BadUsage("--baud needs --port");
    }
    return o;
}

fs::path ExecutableDirectory() {
    std::error_code ec;
    return fs::read_symlink("/proc/self/exe", ec).parent_path();
}

// The demo drive: given on the command line, else where the build tree has
// it (bin/ of a build directory under the source tree), else installed.
std::optional<fs::path> FindDemoFile(const std::string& given) {
    std::vector<fs::path> candidates;
    if (!given.empty()) {
        candidates.emplace_back(given);
    } else {
        const fs::path bin = ExecutableDirectory();
        candidates.push_back(bin / "../../../data/demo/drive.nmea");
        candidates.push_back(bin / KIV_BINDIR_TO_DATADIR / "kiv/demo/drive.nmea");
        candidates.push_back(fs::path(KIV_INSTALL_DATADIR) / "kiv/demo/drive.nmea");
    }
    for (const auto& path : candidates) {
        std::error_code ec;
        if (fs::is_regular_file(path, ec)) {
            return fs::canonical(path, ec);
        }
    }
    return std::nullopt;
}

using kiv::tools::KeyboardMode;

bool WriteOut(const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
           std::fflush(stdout) == 0;
}

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
    // A closed output pipe ends the monitor through a failed write, so that
    // it still gives up its client count and stops the daemon.
    signal(SIGPIPE, SIG_IGN);
}

// The monitor proper, from the started service to the end; returns the
// exit status.
class Monitor {
public:
    Monitor(kiv::gps::MGPSService& service, const Options& options, Status status)
        : m_service(service), m_options(options), m_status(std::move(status)) {
        m_terminal = isatty(STDOUT_FILENO) != 0;
    }

    int Run(GpxTrack& gpx) {
        std::optional<Clock::time_point> deadline;
        if (m_options.duration >= 0) {
            deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                          std::chrono::duration<double>(m_options.duration));
        }
        KeyboardMode keyboard;
        bool watchKeys = keyboard.Active();
        if (m_terminal && !WriteOut("\x1b[2J\x1b[?25l" + FormatScreen(nullptr, m_status))) {
            return 1;
        }
        if (!m_terminal) {
            std::fprintf(stderr, "kivgpsmon: %s\n", m_status.source.c_str());
        }
        std::optional<Clock::time_point> readAt;
        unsigned int seenFix = 0;
        unsigned int seenMoving = 0;
        int status = 0;
        while (g_stopSignal == 0) {
            const auto now = Clock::now();
            if (deadline && now >= *deadline) {
                break;
            }
            if (!readAt && (g_fixEvents.load() != seenFix || g_movingEvents.load() != seenMoving)) {
                readAt = now + kSettle;
            }
            if (readAt && now >= *readAt) {
                readAt.reset();
                seenFix = g_fixEvents.load();
                seenMoving = g_movingEvents.load();
                if (!Update(gpx)) {
                    status = 1;
                    break;
                }
                continue;
            }
            if (!WaitForSomething(now, deadline, readAt, watchKeys)) {
                break;  // q pressed
            }
        }
        if (m_terminal) {
            WriteOut("\x1b[?25h");
        }
        return status;
    }

private:
    // Waits for a callback, a key, a signal or the next due time; false
    // when the user asked to quit.
    bool WaitForSomething(Clock::time_point now, std::optional<Clock::time_point> deadline,
                          std::optional<Clock::time_point> readAt, bool& watchKeys) {
        std::optional<Clock::time_point> until = readAt;
        if (deadline && (!until || *deadline < *until)) {
            until = deadline;
        }
        int timeoutMs = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - now);
            timeoutMs = static_cast<int>(std::max<long long>(0, left.count()));
        }
        pollfd fds[2] = {{g_wake[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        if (poll(fds, watchKeys ? 2 : 1, timeoutMs) <= 0) {
            return true;  // time-out, or a signal (checked by the caller)
        }
        if ((fds[0].revents & POLLIN) != 0) {
            char drain[64];
            while (read(g_wake[0], drain, sizeof drain) > 0) {
            }
        }
        if (watchKeys && fds[1].revents != 0) {
            char keys[16];
            const ssize_t n = read(STDIN_FILENO, keys, sizeof keys);
            if (n <= 0) {
                watchKeys = false;  // the keyboard is gone; the monitor goes on
            }
            for (ssize_t i = 0; i < n; ++i) {
                if (keys[i] == 'q' || keys[i] == 'Q') {
                    return false;
                }
            }
        }
        return true;
    }

    // Reads the service and shows the reading; false when the output or the
    // track cannot be written.
    bool Update(GpxTrack& gpx) {
        m_last = std::make_unique<kivgpsmon::Reading>(kivgpsmon::TakeReading(m_service));
        if (!gpx.Add(*m_last)) {
            std::fprintf(stderr, "kivgpsmon: cannot write %s: %s\n", m_options.gpx.c_str(),
                         std::strerror(errno));
            return false;
        }
        m_status.fixEvents = g_fixEvents.load();
        m_status.movingEvents = g_movingEvents.load();
        m_status.gpxPoints = gpx.Points();
        if (m_terminal) {
            return WriteOut(FormatScreen(m_last.get(), m_status));
        }
        // One line per fix: a reading that repeats the last one (a fix and a
        // moving event of one sentence) is not printed again.
        std::string line = FormatLine(*m_last);
        if (line == m_lastLine) {
            return true;
        }
        m_lastLine = line;
        return WriteOut(line);
    }

    kiv::gps::MGPSService& m_service;
    const Options& m_options;
    Status m_status;
    bool m_terminal = false;
    std::unique_ptr<kivgpsmon::Reading> m_last;
    std::string m_lastLine;
};

}  // namespace

int main(int argc, char** argv) {
    using kiv::text::FromUtf8;
    const Options options = ParseOptions(argc, argv);

    Status status;
    std::optional<fs::path> demoFile;
    if (options.demo) {
        demoFile = FindDemoFile(options.demoFile);
        if (!demoFile) {
            std::fprintf(stderr, "kivgpsmon: demo drive not found%s%s\n",
                         options.demoFile.empty() ? "" : ": ", options.demoFile.c_str());
            return 1;
        }
        status.source = "demo drive " + demoFile->string();
    } else if (options.port >= 0) {
        status.source = "receiver on COM" + std::to_string(options.port) + " at " +
                        std::to_string(options.baud) + " baud";
    } else {
        status.source = "the daemon's receiver";
    }

    GpxTrack gpx;
    if (!options.gpx.empty()) {
        if (!gpx.Open(options.gpx)) {
            std::fprintf(stderr, "kivgpsmon: cannot write %s: %s\n", options.gpx.c_str(),
                         std::strerror(errno));
            return 1;
        }
        status.gpxPath = options.gpx;
    }

    if (pipe2(g_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("kivgpsmon: pipe");
        return 1;
    }
    InstallSignalHandlers();

    int result = 0;
    {
        // The service's destructor gives up this client's count, and the
        // last client's stops the daemon: it must run however the monitor
        // ends, so nothing below leaves this block by exit().
        kiv::gps::MGPSService service;
        if (demoFile) {
            service.SetDemoFile(FromUtf8(demoFile->string()).c_str());
        } else if (options.port >= 0) {
            service.SetComPort(static_cast<unsigned int>(options.port), options.baud);
            service.SetDemoFile(L"");
        }
        if (options.anyTalker) {
            service.SetAnyTalker(true);
        }
        service.SetFixCallback(OnFix);
        service.SetMovingCallback(OnMoving);
        const unsigned int started = service.StartService();
        if (started != 0) {
            wchar_t message[260] = {};
            service.GetRegMsg(L"ERR_MSG", message);
            std::string text = kiv::text::ToUtf8(message);
            while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
                text.pop_back();
            }
            std::fprintf(stderr, "kivgpsmon: the GPS service did not start (0x%08X): %s\n", started,
                         text.c_str());
            result = 1;
        } else if (g_stopSignal == 0) {
            Monitor monitor(service, options, status);
            result = monitor.Run(gpx);
        }
    }
    if (gpx.IsOpen()) {
        std::fprintf(stderr, "kivgpsmon: %zu track points written to %s\n", gpx.Points(),
                     options.gpx.c_str());
    }
    return result;
}
