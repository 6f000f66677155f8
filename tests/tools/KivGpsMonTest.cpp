// The GPS monitor as a user runs it: a real process, with the daemon it
// starts through the service, its output redirected (so one line per fix)
// and the track it writes checked with xmllint.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
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

// The number of track points of a GPX 1.1 file, after checking that xmllint
// parses it and that every point sits in gpx/trk/trkseg with lat, lon, ele
// and time; `lat` and `lon` are those of the first point.
std::size_t ReadGpx(const std::string& file, double& lat, double& lon) {
    EXPECT_EQ(kiv::test::RunProcess("/bin/sh", {"-c", "xmllint --noout \"$1\"", "sh", file}), 0)
        << ReadFileBytes(file);
    auto element = [](const char* name) { return std::string("*[local-name()='") + name + "']"; };
    const std::string placed =
        "/*[local-name()='gpx' and namespace-uri()='http://www.topografix.com/GPX/1/1' and "
        "@version='1.1']/" +
        element("trk") + "/" + element("trkseg") + "/" + element("trkpt") + "[@lat and @lon and " +
        element("ele") + " and " + element("time") + "]";
    const std::string count = Xpath(file, "count(" + placed + ")");
    EXPECT_EQ(count, Xpath(file, "count(//" + element("trkpt") + ")"));
    lat = std::atof(Xpath(file, "string((" + placed + ")[1]/@lat)").c_str());
    lon = std::atof(Xpath(file, "string((" + placed + ")[1]/@lon)").c_str());
    return static_cast<std::size_t>(std::atoi(count.c_str()));
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
    double lat = 0;
    double lon = 0;
    EXPECT_GE(ReadGpx(gpx, lat, lon), 2u);
    EXPECT_NEAR(lat, 48.135, 1e-3) << "the start of the drive, 4808.1 N";
    EXPECT_NEAR(lon, 11.565, 1e-3);
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
    double lat = 0;
    double lon = 0;
    EXPECT_GE(ReadGpx(gpx, lat, lon), 3u);
    EXPECT_TRUE(lat <= -(48 + 7.0 / 60) && lat >= -(48 + 8.25 / 60)) << lat << ": a fix sent";
    EXPECT_NEAR(lon, -(11 + 31.0 / 60), 1e-6) << "western";
}
