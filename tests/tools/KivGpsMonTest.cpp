// The GPS monitor as a user runs it: a real process, with the daemon it
// starts through the service, its output redirected (so one line per fix)
// and the track it writes checked with xmllint.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "NmeaSimulator.h"
#include "gps/GpsRegistry.h"
#include "platform/InstanceLock.h"
#include "support/KivTestEnvironment.h"

namespace {

using kiv::test::Eventually;
using kiv::test::ReadFileBytes;
using kiv::test::TempPath;

struct TrackPoint {
    double lat = 0;
    double lon = 0;
    std::string ele;
    std::string time;
};

struct Fix {
    double lat = 0;
    double lon = 0;
};

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

// Starts the monitor with standard input from /dev/null and standard output
// into a file, neither of them a terminal.
kiv::test::ChildProcess StartMonitor(const std::vector<std::string>& args) {
    std::vector<std::string> shell = {"-c",
                                      "exec \"$@\" </dev/null >" + Quoted(TempPath("out.txt")) +
                                          " 2>" + Quoted(TempPath("err.txt")),
                                      "sh", kiv::test::HelperPath("kivgpsmon")};
    shell.insert(shell.end(), args.begin(), args.end());
    return kiv::test::ChildProcess("/bin/sh", shell);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool HaveXmllint() {
    return kiv::test::RunProcess("/bin/sh", {"-c", "command -v xmllint >/dev/null"}) == 0;
}

std::string Xpath(const std::string& file, const std::string& expression) {
    const std::string out = TempPath("xpath.txt");
    kiv::test::RunProcess("/bin/sh", {"-c", "xmllint --xpath \"$1\" \"$2\" >\"$3\" 2>&1", "sh",
                                      expression, file, out});
    return ReadFileBytes(out);
}

std::string Element(const std::string& name) {
    return "*[local-name()='" + name + "']";
}

// The track points of a GPX 1.1 file, after checking that xmllint parses it
// and that every point sits in gpx/trk/trkseg with lat, lon, ele and time.
std::vector<TrackPoint> ReadGpx(const std::string& file) {
    EXPECT_EQ(kiv::test::RunProcess("/bin/sh", {"-c", "xmllint --noout \"$1\"", "sh", file}), 0)
        << ReadFileBytes(file);
    const std::string root =
        "/*[local-name()='gpx' and namespace-uri()='http://www.topografix.com/GPX/1/1' "
        "and @version='1.1']";
    const std::string placed = root + "/" + Element("trk") + "/" + Element("trkseg") + "/" +
                               Element("trkpt") + "[@lat and @lon and " + Element("ele") + " and " +
                               Element("time") + "]";
    const std::string all = "//" + Element("trkpt");
    EXPECT_EQ(Xpath(file, "count(" + placed + ")"), Xpath(file, "count(" + all + ")"));

    // In document order: lat="..", lon="..", <ele>..</ele>, <time>..</time>.
    std::vector<TrackPoint> points;
    const std::string listing =
        Xpath(file, placed + "/@lat | " + placed + "/@lon | " + placed + "/" + Element("ele") +
                        " | " + placed + "/" + Element("time"));
    for (const std::string& line : Lines(listing)) {
        const auto quote = line.find('"');
        const auto open = line.find('>');
        const auto close = line.find("</");
        if (line.find("lat=") != std::string::npos && quote != std::string::npos) {
            points.emplace_back();
            points.back().lat = std::atof(line.c_str() + quote + 1);
        } else if (points.empty()) {
            continue;
        } else if (line.find("lon=") != std::string::npos && quote != std::string::npos) {
            points.back().lon = std::atof(line.c_str() + quote + 1);
        } else if (line.find("<ele>") != std::string::npos && close != std::string::npos) {
            points.back().ele = line.substr(open + 1, close - open - 1);
        } else if (line.find("<time>") != std::string::npos && close != std::string::npos) {
            points.back().time = line.substr(open + 1, close - open - 1);
        }
    }
    return points;
}

// "2026-05-14T08:30:01.000Z" as RMC writes it: date ddmmyy, time hhmmss.sss.
std::string RmcKey(const std::string& isoTime) {
    if (isoTime.size() != 24) {
        return {};
    }
    return isoTime.substr(8, 2) + isoTime.substr(5, 2) + isoTime.substr(2, 2) + " " +
           isoTime.substr(11, 2) + isoTime.substr(14, 2) + isoTime.substr(17, 6);
}

double NmeaDegrees(const std::string& value, const std::string& hemisphere) {
    const double raw = std::atof(value.c_str());
    const double degrees = std::floor(raw / 100) + std::fmod(raw, 100) / 60;
    return hemisphere == "S" || hemisphere == "W" ? -degrees : degrees;
}

// The positions of the valid RMC sentences of the demo drive, by date and time.
std::map<std::string, Fix> DriveFixes() {
    std::map<std::string, Fix> fixes;
    std::ifstream in(KIV_DEMO_DRIVE);
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> f;
        std::stringstream fields(line);
        for (std::string field; std::getline(fields, field, ',');) {
            f.push_back(field);
        }
        if (f.size() > 9 && f[0] == "$GPRMC" && f[2] == "A") {
            fixes[f[9] + " " + f[1]] = {NmeaDegrees(f[3], f[4]), NmeaDegrees(f[5], f[6])};
        }
    }
    return fixes;
}

// The points follow `fixes`: each is one of them, at its time, in order.
void ExpectPointsOnFixes(const std::vector<TrackPoint>& points,
                         const std::map<std::string, Fix>& fixes) {
    std::string last;
    for (const TrackPoint& p : points) {
        const std::string key = RmcKey(p.time);
        const auto fix = fixes.find(key);
        ASSERT_TRUE(fix != fixes.end()) << "no fix sent at " << p.time;
        EXPECT_NEAR(p.lat, fix->second.lat, 1e-6) << p.time;
        EXPECT_NEAR(p.lon, fix->second.lon, 1e-6) << p.time;
        EXPECT_GT(p.time, last) << "times rise";
        char* end = nullptr;
        std::strtod(p.ele.c_str(), &end);
        EXPECT_TRUE(!p.ele.empty() && *end == '\0') << "ele '" << p.ele << "'";
        last = p.time;
    }
}

// A monitor that fails may leave its daemon behind; it goes with the test.
class KivGpsMon : public ::testing::Test {
protected:
    void TearDown() override {
        const long daemon = kiv::platform::InstanceLock::Holder(L"KivGPS");
        if (daemon > 0) {
            kill(static_cast<pid_t>(daemon), SIGKILL);
        }
    }
};

}  // namespace

TEST_F(KivGpsMon, TheDemoEndsAfterItsDurationWithOneLinePerFixAndTheDriveInGpx) {
    const std::string gpx = TempPath("drive.gpx");
    auto monitor = StartMonitor({"--demo", "--duration", "4", "--gpx", gpx});
    ASSERT_TRUE(monitor.Started());
    ASSERT_EQ(monitor.Wait(90000), 0) << ReadFileBytes(TempPath("err.txt"));

    const auto lines = Lines(ReadFileBytes(TempPath("out.txt")));
    EXPECT_GE(lines.size(), 2u);
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        // The client clears IS_ACTIVE once the daemon answered; a fix the
        // daemon signalled just before that shows on the first line as none.
        if (i > 0) {
            EXPECT_NE(line.find("fix=10(valid)"), std::string::npos) << line;
        }
        EXPECT_NE(line.find("lat=N48\u00A1C8'"), std::string::npos) << "UTF-8 text: " << line;
        EXPECT_NE(line.find("lon=E11\u00A1C"), std::string::npos) << line;
    }
    EXPECT_EQ(kiv::test::GpsDword(L"AP_CNT"), 0u) << "the monitor gave up its client count";

    if (!HaveXmllint()) {
        GTEST_SKIP() << "xmllint is not installed (Debian package libxml2-utils)";
    }
    const auto points = ReadGpx(gpx);
    EXPECT_GE(points.size(), 2u);
    ExpectPointsOnFixes(points, DriveFixes());
}

// A receiver on a serial port instead of the demo; Ctrl-C ends the monitor
// cleanly: status 0, a complete track, and the daemon it started is gone.
TEST_F(KivGpsMon, OnAReceiverPortAnInterruptLeavesACompleteTrackAndNoDaemon) {
    kiv::test::PseudoTerminal receiver;
    ASSERT_TRUE(receiver.IsOpen());
    setenv("KIV_COM3", receiver.SlavePath().c_str(), 1);
    // A demo file left set by an earlier client must not win over the port.
    const std::string drive = KIV_DEMO_DRIVE;
    kiv::test::SetGps(L"DEMO_FILE", std::wstring(drive.begin(), drive.end()).c_str());

    const std::string gpx = TempPath("port.gpx");
    auto monitor = StartMonitor({"--port", "3", "--baud", "9600", "--gpx", gpx});
    unsetenv("KIV_COM3");
    ASSERT_TRUE(monitor.Started());
    ASSERT_TRUE(Eventually([] { return kiv::test::GpsString(L"INIT_FLAG") == L"1"; }));

    std::map<std::string, Fix> sent;
    auto points = [&gpx] {
        const std::string text = ReadFileBytes(gpx);
        std::size_t n = 0;
        for (auto at = text.find("<trkpt"); at != std::string::npos;
             at = text.find("<trkpt", at + 1)) {
            ++n;
        }
        return n;
    };
    for (int i = 0; i < 100 && points() < 3; ++i) {
        char rmc[96];
        char gga[96];
        const double minutes = 7.0 + 0.0125 * i;
        std::snprintf(rmc, sizeof rmc,
                      "GPRMC,1200%02d.500,A,48%07.4f,S,01131.0000,W,12.0,45.0,010226,,", i,
                      minutes);
        std::snprintf(gga, sizeof gga,
                      "GPGGA,1200%02d.500,48%07.4f,S,01131.0000,W,1,05,1.1,12.5,M,,,,", i, minutes);
        ASSERT_TRUE(receiver.Write(kiv::sim::WithChecksum(rmc) + "\r\n" +
                                   kiv::sim::WithChecksum(gga) + "\r\n"));
        char key[32];
        std::snprintf(key, sizeof key, "010226 1200%02d.500", i);
        sent[key] = {-(48 + minutes / 60), -(11 + 31.0 / 60)};
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    monitor.Signal(SIGINT);
    EXPECT_EQ(monitor.Wait(60000), 0) << ReadFileBytes(TempPath("err.txt"));
    EXPECT_GE(Lines(ReadFileBytes(TempPath("out.txt"))).size(), 3u);
    EXPECT_EQ(kiv::test::GpsDword(L"AP_CNT"), 0u);
    EXPECT_TRUE(Eventually([] { return !kiv::test::GpsDaemonRuns(); }))
        << "the last client stopped the daemon";

    if (!HaveXmllint()) {
        GTEST_SKIP() << "xmllint is not installed (Debian package libxml2-utils)";
    }
    const auto track = ReadGpx(gpx);
    EXPECT_GE(track.size(), 3u);
    ExpectPointsOnFixes(track, sent);
}
