// The GPS daemon as a process of its own.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "GpsRegistry.h"
#include "NmeaSimulator.h"
#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"

using kiv::test::Eventually;
using kiv::test::GpsDword;
using kiv::test::GpsString;
using kiv::test::SetGps;

namespace {

std::string Daemon() {
    return kiv::test::HelperPath("KivGPS");
}

}  // namespace

TEST(KivGPS, ReplaysTheDemoFileAndEndsOnSigterm) {
    SetGps(L"DEMO_FILE", kiv::text::FromUtf8(KIV_DEMO_DRIVE).c_str());
    SetGps(L"INIT_FLAG", L"0");
    kiv::test::ChildProcess daemon(Daemon(), {});
    ASSERT_TRUE(daemon.Started());
    EXPECT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    EXPECT_EQ(GpsString(L"ERR_MSG"), L"");
    EXPECT_TRUE(Eventually([] { return GpsDword(L"IS_ACTIVE") == 10u; }));
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait(20000), 0) << "a clean end";
}

TEST(KivGPS, SendsCommandsToTheReceiverAndClearsThem) {
    kiv::test::PseudoTerminal pty;
    setenv("KIV_COM2", pty.SlavePath().c_str(), 1);
    SetGps(L"COMPORT", 2u);
    SetGps(L"BAUDRATE", 9600u);
    SetGps(L"INIT_FLAG", L"0");
    kiv::test::ChildProcess daemon(Daemon(), {});
    unsetenv("KIV_COM2");
    ASSERT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    ASSERT_EQ(GpsString(L"ERR_MSG"), L"");
    SetGps(L"COMMAND", L"$PSRF103,00,00,01,01*25\r\n");
    EXPECT_EQ(pty.Read(25, 20000), "$PSRF103,00,00,01,01*25\r\n");
    EXPECT_TRUE(Eventually([] { return GpsString(L"COMMAND") == L""; }));
    const std::string rmc =
        kiv::sim::WithChecksum("GPRMC,101010,A,5130.000,N,00007.500,W,0,0,010126,,") + "\r\n";
    ASSERT_TRUE(pty.Write(rmc));
    EXPECT_TRUE(Eventually([] { return GpsDword(L"LAT_DEG") == 51u; }));
    EXPECT_EQ(GpsDword(L"IS_EAST"), 0u);
}

TEST(KivGPS, RestartsTheConnectionWhenTheSettingsChange) {
    SetGps(L"DEMO_FILE", L"/nonexistent/drive.nmea");
    SetGps(L"COMPORT", 7u);
    SetGps(L"BAUDRATE", 4800u);
    SetGps(L"INIT_FLAG", L"0");
    kiv::test::ChildProcess daemon(Daemon(), {});
    ASSERT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    EXPECT_EQ(GpsString(L"ERR_MSG"),
              L"The GPS service connect comport fail port=7,baudrate=4800\n");
    SetGps(L"INIT_FLAG", L"0");
    SetGps(L"DEMO_FILE", kiv::text::FromUtf8(KIV_DEMO_DRIVE).c_str());
    EXPECT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    EXPECT_EQ(GpsString(L"ERR_MSG"), L"");
    EXPECT_TRUE(Eventually([] { return GpsString(L"UTCDate") == L"140526"; }));
}

TEST(KivGPS, ALogSettingGivenWhileRunningSwitchesTheSentenceLogOn) {
    SetGps(L"DEMO_FILE", kiv::text::FromUtf8(KIV_DEMO_DRIVE).c_str());
    SetGps(L"FILE_PATH", L"");
    SetGps(L"INIT_FLAG", L"0");
    kiv::test::ChildProcess daemon(Daemon(), {});
    ASSERT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    const std::string log = std::string(std::getenv("KIV_DEVICE_ROOT")) + "/NMEA.Log";
    EXPECT_TRUE(Eventually([] { return GpsDword(L"IS_ACTIVE") == 10u; }));
    EXPECT_FALSE(std::filesystem::exists(log));
    SetGps(L"FILE_PATH", L"on");
    EXPECT_TRUE(Eventually([&] { return kiv::test::ReadFileBytes(log).find("$GP") == 0; }));
}

TEST(KivGPS, RunsOncePerNamespace) {
    SetGps(L"DEMO_FILE", kiv::text::FromUtf8(KIV_DEMO_DRIVE).c_str());
    kiv::test::ChildProcess first(Daemon(), {});
    ASSERT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    EXPECT_EQ(kiv::test::RunProcess(Daemon(), {}), 3) << "the second one leaves at once";
    first.Signal(SIGINT);
    EXPECT_EQ(first.Wait(20000), 0);
    // Once the first has gone, a new one may start.
    kiv::test::ChildProcess next(Daemon(), {});
    EXPECT_EQ(next.Wait(1500), -2) << "still running";
    EXPECT_EQ(kiv::test::RunProcess(Daemon(), {"--version"}), 0);
    EXPECT_EQ(kiv::test::RunProcess(Daemon(), {"--bogus"}), 2);
}
