// kivgps-sim: a GPS receiver simulator. It drives the built-in demo route and
// writes the NMEA stream a receiver would send: to a file as fast as it can,
// or in real time to a pseudo-terminal or an existing device, so that it
// stands in for a receiver on a serial port.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "NmeaSimulator.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

void Usage(std::FILE* out) {
    std::fputs(
        "usage: kivgps-sim [options]\n"
        "Writes the NMEA stream of a simulated drive (RMC, GGA, GSA, GSV).\n"
        "\n"
        "  --out FILE       write the whole drive to FILE, as fast as possible\n"
        "  --pty            open a pseudo-terminal, print its device path, send in real time\n"
        "  --device PATH    send in real time to an existing terminal or file\n"
        "  --rate HZ        fixes per second (default 1)\n"
        "  --speedup X      run X times faster than real time (default 1)\n"
        "  --duration S     stop after S seconds of drive (default: the whole drive)\n"
        "  --start TIME     UTC of the first fix, YYYY-MM-DDTHH:MM:SSZ (default "
        "2026-05-14T08:30:00Z)\n"
        "  --loop           start the drive over when it ends (real-time modes)\n"
        "  --talker XX      talker of RMC, GGA and GSA (default GP); any other, such as\n"
        "                   GN, adds the system ids and GLONASS satellites of a\n"
        "                   multi-constellation receiver\n"
        "  --help           this text\n",
        out);
}

bool ParseUtc(const char* text, std::int64_t& seconds) {
    std::tm tm{};
    if (strptime(text, "%Y-%m-%dT%H:%M:%SZ", &tm) == nullptr) {
        return false;
    }
    seconds = static_cast<std::int64_t>(timegm(&tm));
    return true;
}

bool WriteAll(int fd, const std::string& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

int OpenPty(std::string& slavePath) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        return -1;
    }
    const char* name = ptsname(master);
    if (name == nullptr) {
        close(master);
        return -1;
    }
    slavePath = name;
    return master;
}

}  // namespace

int main(int argc, char** argv) {
    std::string out;
    std::string device;
    bool pty = false;
    bool loop = false;
    std::string talker = "GP";
    double rate = 1;
    double speedup = 1;
    double duration = -1;
    std::int64_t start = 0;
    ParseUtc("2026-05-14T08:30:00Z", start);

    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](const char* what) -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "kivgps-sim: %s needs a value\n", what);
                std::exit(2);
            }
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return 0;
        } else if (arg == "--out") {
            out = value("--out");
        } else if (arg == "--device") {
            device = value("--device");
        } else if (arg == "--pty") {
            pty = true;
        } else if (arg == "--loop") {
            loop = true;
        } else if (arg == "--rate") {
            rate = std::atof(value("--rate"));
        } else if (arg == "--speedup") {
            speedup = std::atof(value("--speedup"));
        } else if (arg == "--duration") {
            duration = std::atof(value("--duration"));
        } else if (arg == "--talker") {
            talker = value("--talker");
            if (talker.size() != 2 || !std::isupper(static_cast<unsigned char>(talker[0])) ||
                !std::isupper(static_cast<unsigned char>(talker[1]))) {
                std::fprintf(stderr, "kivgps-sim: --talker takes two upper-case letters\n");
                return 2;
            }
        } else if (arg == "--start") {
            if (!ParseUtc(value("--start"), start)) {
                std::fprintf(stderr, "kivgps-sim: --start wants YYYY-MM-DDTHH:MM:SSZ\n");
                return 2;
            }
        } else {
            std::fprintf(stderr, "kivgps-sim: unknown argument '%s'\n", arg.c_str());
            Usage(stderr);
            return 2;
        }
    }
    if ((out.empty() ? 0 : 1) + (device.empty() ? 0 : 1) + (pty ? 1 : 0) != 1) {
        std::fprintf(stderr, "kivgps-sim: give exactly one of --out, --pty, --device\n");
        return 2;
    }
    if (!(rate > 0 && rate <= 50) || !(speedup > 0)) {
        std::fprintf(stderr, "kivgps-sim: --rate must be in (0, 50] and --speedup above 0\n");
        return 2;
    }

    int fd = -1;
    std::string slave;
    if (!out.empty()) {
        fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    } else if (!device.empty()) {
        fd = open(device.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    } else {
        fd = OpenPty(slave);
    }
    if (fd < 0) {
        std::fprintf(
            stderr, "kivgps-sim: cannot open %s: %s\n",
            out.empty() ? (device.empty() ? "a pseudo-terminal" : device.c_str()) : out.c_str(),
            std::strerror(errno));
        return 1;
    }
    if (pty) {
        std::printf("%s\n", slave.c_str());
        std::fflush(stdout);
    }
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
    std::signal(SIGPIPE, SIG_IGN);

    const bool realTime = out.empty();
    const double dt = 1 / rate;
    const auto period = std::chrono::duration<double>(dt / speedup);
    auto next = std::chrono::steady_clock::now();
    double driven = 0;
    std::int64_t lapStart = start;
    do {
        kiv::sim::DriveSimulator drive(kiv::sim::DemoRoute(), lapStart);
        drive.SetTalker(talker);
        while (!g_stop && !drive.State().finished && (duration < 0 || driven < duration)) {
            if (!WriteAll(fd, drive.Sentences())) {
                if (pty && errno == EIO) {
                    // Nobody has the terminal open yet: wait for a reader.
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                    continue;
                }
                std::fprintf(stderr, "kivgps-sim: write failed: %s\n", std::strerror(errno));
                close(fd);
                return 1;
            }
            drive.Step(dt);
            driven += dt;
            if (realTime) {
                next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
                std::this_thread::sleep_until(next);
            }
        }
        lapStart += static_cast<std::int64_t>(drive.State().time) + 1;
    } while (loop && realTime && !g_stop && (duration < 0 || driven < duration));
    close(fd);
    return 0;
}
