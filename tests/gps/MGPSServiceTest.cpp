// The GPS from receiver to application, with real processes: a client
// starts the service, the daemon KivGPS is launched beside the shared
// library, and a pseudo-terminal stands in for the receiver.
#include <kiv/gps/MGPSService.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "GpsRegistry.h"
#include "NmeaSimulator.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

using kiv::gps::MGPSService;
using kiv::test::Eventually;
using kiv::test::GpsDaemonRuns;
using kiv::test::GpsDword;
using kiv::test::GpsString;

namespace {

std::atomic<int> g_fixes{0};
std::atomic<int> g_moves{0};
int OnFix(void*) {
    return ++g_fixes;
}
int OnMoving(void*) {
    return ++g_moves;
}

std::string Sentence(const char* body) {
    return kiv::sim::WithChecksum(body) + "\r\n";
}

// The daemon ends soon after it is killed; the lock goes with it.
bool DaemonStops() {
    return Eventually([] { return !GpsDaemonRuns(); });
}

class ServiceOnPty : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pty.IsOpen());
        setenv("KIV_COM3", pty.SlavePath().c_str(), 1);
        g_fixes = 0;
        g_moves = 0;
    }
    void TearDown() override { unsetenv("KIV_COM3"); }
    kiv::test::PseudoTerminal pty;
};

}  // namespace

TEST_F(ServiceOnPty, SentencesOnTheReceiverReachTheCallbacksAndTheReaders) {
    auto service = std::make_unique<MGPSService>();
    service->SetFixCallback(OnFix);
    service->SetMovingCallback(OnMoving);
    ASSERT_EQ(service->SetComPort(3, 4800), 0u);
    ASSERT_EQ(service->StartService(), 0u);
    EXPECT_EQ(GpsDword(L"AP_CNT"), 1u);
    EXPECT_EQ(GpsString(L"INIT_FLAG"), L"1");

    ASSERT_TRUE(
        pty.Write(Sentence("GPGSA,A,3,05,12,,,,,,,,,,,2.5,1.3,2.1") +
                  Sentence("GPGSV,1,1,02,05,45,120,38,12,10,300,") +
                  Sentence("GPRMC,123519.250,A,4807.038,N,01131.000,W,10.0,084.4,230394,,") +
                  Sentence("GPGGA,123519.250,4807.038,N,01131.000,W,1,08,0.9,545.4,M,46.9,M,,")));
    EXPECT_TRUE(Eventually([] { return g_fixes.load() >= 1 && g_moves.load() >= 1; }));
    EXPECT_TRUE(Eventually([] { return GpsString(L"ALTITUDE") == L"545.4"; }));

    kiv::gps::MGPSPosition position;
    ASSERT_EQ(service->GetGPSPosition(&position), 0u);
    EXPECT_EQ(position.m_activeState, 10u);
    EXPECT_EQ(position.m_latMilliseconds, 280);
    EXPECT_EQ(position.m_east, 0);
    EXPECT_EQ(position.m_speed, 18.0f);
    EXPECT_FLOAT_EQ(position.m_pdop, 2.5f);
    EXPECT_EQ(position.m_usedSatellites, (std::vector<std::string>{"05", "12"}));

    kiv::gps::MGPSDateTime when;
    ASSERT_EQ(service->GetGPSDateTime(&when), 0u);
    EXPECT_EQ(when.m_year, 2094) << "2000 + yy, whatever the century";
    EXPECT_EQ(when.m_day, 23);
    EXPECT_EQ(when.m_second, 19);
    EXPECT_EQ(when.m_millisecond, 250);

    std::vector<kiv::gps::MSatellite*> satellites;
    ASSERT_EQ(service->GetSatellitesInView(satellites), 0u);
    ASSERT_EQ(satellites.size(), 2u);
    EXPECT_EQ(std::wstring(satellites[0]->m_number), L"12") << "a message's groups, last first";
    EXPECT_EQ(satellites[1]->m_elevation, 45u);
    EXPECT_EQ(satellites[1]->m_signalToNoise, 38u);
    for (auto* s : satellites) {
        delete s;
    }

    service->WriteCommand(L"$PSRF101*00\r\n");
    EXPECT_EQ(pty.Read(13, 20000), "$PSRF101*00\r\n");

    service.reset();
    EXPECT_EQ(GpsDword(L"AP_CNT"), 0u);
    EXPECT_TRUE(DaemonStops()) << "the last client stopped the daemon";
}

TEST_F(ServiceOnPty, TheAnyTalkerSettingReachesTheDaemonForAMultiConstellationReceiver) {
    auto service = std::make_unique<MGPSService>();
    ASSERT_EQ(service->SetComPort(3, 4800), 0u);
    ASSERT_EQ(service->SetAnyTalker(true), 0u);
    EXPECT_EQ(GpsDword(L"ANY_TALKER"), 1u);
    ASSERT_EQ(service->StartService(), 0u);
    ASSERT_TRUE(pty.Write(Sentence("GPGSV,1,1,01,05,45,120,38") +
                          Sentence("GLGSV,1,1,01,70,20,200,30") +
                          Sentence("GNRMC,101010,A,5130.000,N,00007.500,E,0,0,010126,,,A,S")));
    EXPECT_TRUE(Eventually([] { return GpsDword(L"LAT_DEG") == 51u; }));
    kiv::gps::MGPSPosition position;
    ASSERT_EQ(service->GetGPSPosition(&position), 0u);
    EXPECT_EQ(position.m_activeState, 10u);
    std::vector<kiv::gps::MSatellite*> satellites;
    service->GetSatellitesInView(satellites);
    ASSERT_EQ(satellites.size(), 2u);
    EXPECT_EQ(std::wstring(satellites[0]->m_number), L"05");
    EXPECT_EQ(std::wstring(satellites[1]->m_number), L"70");
    for (auto* s : satellites) {
        delete s;
    }
    // Switched off, the daemon restarts its connection and takes GP only.
    kiv::test::SetGps(L"INIT_FLAG", L"0");
    ASSERT_EQ(service->SetAnyTalker(false), 0u);
    ASSERT_TRUE(Eventually([] { return GpsString(L"INIT_FLAG") == L"1"; }));
    ASSERT_TRUE(pty.Write(Sentence("GPRMC,101012,A,5230.000,N,00007.500,E,0,0,010126,,") +
                          Sentence("GNRMC,101013,A,4000.000,N,00007.500,E,0,0,010126,,,A,S") +
                          Sentence("GPGGA,101014,5230.000,N,00007.500,E,1,08,0.9,77.7,M,,,,")));
    EXPECT_TRUE(Eventually([] { return GpsString(L"ALTITUDE") == L"77.7"; }));
    EXPECT_EQ(GpsDword(L"LAT_DEG"), 52u);
    service.reset();
    EXPECT_TRUE(DaemonStops());
}

TEST_F(ServiceOnPty, TheDaemonLastsUntilTheLastClientEnds) {
    const std::string result = kiv::test::TempPath("first.txt");
    const std::string quit = kiv::test::TempPath("quit");
    {
        MGPSService setup;
        setup.SetComPort(3, 4800);
    }
    kiv::test::HelperProcess first(kiv::test::HelperPath("kiv_gps_client"), {result, quit});
    ASSERT_TRUE(first.AwaitReady());
    EXPECT_EQ(kiv::test::ReadFileBytes(result), "00000000\n");
    EXPECT_EQ(GpsDword(L"AP_CNT"), 1u);
    {
        MGPSService second;
        ASSERT_EQ(second.StartService(), 0u) << "the running daemon is used";
        EXPECT_EQ(GpsDword(L"AP_CNT"), 2u);
        EXPECT_EQ(GpsDword(L"KIV_GPS_EVENT_RESETFIX"), 1u) << "asks for a fresh fix event";
        ASSERT_TRUE(kiv::test::WriteFileBytes(quit, "x"));
        EXPECT_EQ(first.Wait(), 0);
        EXPECT_EQ(GpsDword(L"AP_CNT"), 1u);
        EXPECT_TRUE(GpsDaemonRuns()) << "one client is left";
    }
    EXPECT_EQ(GpsDword(L"AP_CNT"), 0u);
    EXPECT_TRUE(DaemonStops());
}

TEST_F(ServiceOnPty, ClientsStartingAndStoppingAtOnceShareOneDaemon) {
    {
        MGPSService setup;
        setup.SetComPort(3, 4800);
    }
    constexpr int kClients = 4;
    for (int round = 0; round < 3; ++round) {
        const std::string tag = std::to_string(round);
        const std::string go = kiv::test::TempPath("go" + tag);
        const std::string quit = kiv::test::TempPath("quit" + tag);
        std::vector<std::string> results;
        std::vector<std::unique_ptr<kiv::test::HelperProcess>> clients;
        for (int i = 0; i < kClients; ++i) {
            results.push_back(kiv::test::TempPath("result" + tag + "_" + std::to_string(i)));
            clients.push_back(std::make_unique<kiv::test::HelperProcess>(
                kiv::test::HelperPath("kiv_gps_client"),
                std::vector<std::string>{results.back(), quit, go}));
        }
        ASSERT_TRUE(kiv::test::WriteFileBytes(go, "x"));
        for (int i = 0; i < kClients; ++i) {
            ASSERT_TRUE(clients[i]->AwaitReady()) << "round " << round;
            EXPECT_EQ(kiv::test::ReadFileBytes(results[i]), "00000000\n")
                << "round " << round << ", client " << i;
        }
        EXPECT_EQ(GpsDword(L"AP_CNT"), static_cast<unsigned int>(kClients)) << "round " << round;
        EXPECT_TRUE(GpsDaemonRuns());

        ASSERT_TRUE(kiv::test::WriteFileBytes(quit, "x"));
        for (auto& client : clients) {
            EXPECT_EQ(client->Wait(), 0);
        }
        // The last client's stop returns only once the daemon is gone, so
        // the next round's clients launch a new one.
        EXPECT_EQ(GpsDword(L"AP_CNT"), 0u) << "round " << round;
        EXPECT_FALSE(GpsDaemonRuns()) << "round " << round;
    }
}

TEST_F(ServiceOnPty, ADaemonThatCannotOpenItsPortReportsAStartError) {
    setenv("KIV_COM9", "/nonexistent/tty", 1);
    MGPSService service;
    service.SetComPort(9, 4800);
    EXPECT_EQ(service.StartService(), 0x07000003u);
    EXPECT_EQ(GpsString(L"ERR_MSG"),
              L"The GPS service connect comport fail port=9,baudrate=4800\n");
    unsetenv("KIV_COM9");
}

TEST(MGPSService, AMissingDaemonExecutableIsALaunchError) {
    // A copy of the library in a folder without the daemon, loaded in place
    // of the built one.
    const std::string lonely = kiv::test::TempPath("lib");
    std::filesystem::create_directory(lonely);
    const std::string library = kiv::test::HelperPath("libKivFramework.so.1");
    std::filesystem::copy_file(std::filesystem::canonical(library),
                               lonely + "/libKivFramework.so.1");
    setenv("LD_LIBRARY_PATH", lonely.c_str(), 1);
    const std::string result = kiv::test::TempPath("result.txt");
    const std::string quit = kiv::test::TempPath("quit");
    ASSERT_TRUE(kiv::test::WriteFileBytes(quit, "x"));
    const int status =
        kiv::test::RunProcess(kiv::test::HelperPath("kiv_gps_client"), {result, quit});
    unsetenv("LD_LIBRARY_PATH");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(kiv::test::ReadFileBytes(result), "07000002\n");
    EXPECT_EQ(GpsString(L"ERR_MSG"), L"KivGPS exe file launch fail!!\n");
}

TEST(MGPSService, SatellitesInViewAreAtMostTwelveAndAnEmptyTextGivesNone) {
    MGPSService service;
    kiv::test::SetGps(L"SIV_INFO", L"");
    std::vector<kiv::gps::MSatellite*> satellites;
    EXPECT_EQ(service.GetSatellitesInView(satellites), 0u);
    EXPECT_TRUE(satellites.empty());
    std::wstring sixteen;
    for (int n = 1; n <= 16; ++n) {
        sixteen += std::to_wstring(n) + L"," + std::to_wstring(n + 20) + L",100,30,;";
    }
    kiv::test::SetGps(L"SIV_INFO", sixteen.c_str());
    EXPECT_EQ(service.GetSatellitesInView(satellites), 0u);
    ASSERT_EQ(satellites.size(), 12u) << "the first twelve groups";
    EXPECT_EQ(std::wstring(satellites[0]->m_number), L"1");
    EXPECT_EQ(std::wstring(satellites[11]->m_number), L"12");
    for (auto* s : satellites) {
        delete s;
    }
    satellites.clear();
    // With every constellation accepted, the whole union is read.
    ASSERT_EQ(service.SetAnyTalker(true), 0u);
    EXPECT_EQ(service.GetSatellitesInView(satellites), 0u);
    ASSERT_EQ(satellites.size(), 16u);
    EXPECT_EQ(std::wstring(satellites[15]->m_number), L"16");
    for (auto* s : satellites) {
        delete s;
    }
    kiv::test::SetGps(L"UTCDate", L"010126");
    kiv::test::SetGps(L"UTCTime", L"101010");
    kiv::gps::MGPSDateTime when;
    when.m_millisecond = 777;
    EXPECT_EQ(service.GetGPSDateTime(&when), 0u);
    EXPECT_EQ(when.m_year, 2026);
    EXPECT_EQ(when.m_millisecond, 777) << "a time without fraction leaves the milliseconds";
}
