// The daemon side end to end in one process: the parser on the real
// registry and named events, and the connection on a pseudo-terminal that
// stands in for the receiver.
#include <kiv/gps/MGPSConnect.h>
#include <kiv/gps/MNmeaParser.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "GpsRegistry.h"
#include "NmeaSimulator.h"
#include "foundation/Text.h"
#include "gps/MGPSCommPort.h"
#include "platform/RegistryStore.h"
#include "platform/Waitable.h"
#include "support/HelperProcess.h"
#include "support/KivTestEnvironment.h"

using kiv::gps::MGPSConnect;
using kiv::platform::RegistryStore;
using kiv::test::Eventually;
using kiv::test::GpsDword;
using kiv::test::GpsString;

namespace {

const std::string kRmc =
    kiv::sim::WithChecksum("GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W") +
    "\r\n";

// Points COM<n> at a pseudo-terminal for the length of a test.
class PortOnPty {
public:
    explicit PortOnPty(unsigned int n) : m_variable("KIV_COM" + std::to_string(n)) {
        setenv(m_variable.c_str(), pty.SlavePath().c_str(), 1);
    }
    ~PortOnPty() { unsetenv(m_variable.c_str()); }
    kiv::test::PseudoTerminal pty;

private:
    std::string m_variable;
};

}  // namespace

TEST(MNmeaParser, ValuesReachTheRegistryAndAWaitingProcessSeesBothEvents) {
    const std::string seen = kiv::test::TempPath("events.txt");
    kiv::test::HelperProcess waiter(kiv::test::HelperPath("kiv_gps_event_waiter"), {seen});
    ASSERT_TRUE(waiter.AwaitReady());
    kiv::gps::MNmeaParser parser;
    parser.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(kRmc.data()),
                                static_cast<unsigned int>(kRmc.size()));
    EXPECT_EQ(GpsDword(L"LAT_DEG"), 48u);
    EXPECT_EQ(GpsDword(L"LONG_MIN"), 31u);
    EXPECT_EQ(GpsDword(L"IS_ACTIVE"), 10u);
    EXPECT_EQ(GpsString(L"UTCDate"), L"230394");
    EXPECT_EQ(GpsString(L"SPEED"), L"41");
    EXPECT_EQ(waiter.Wait(), 0) << "the waiting process saw both events";
    EXPECT_EQ(kiv::test::ReadFileBytes(seen), "FIX\nMOVING\n");
}

TEST(MNmeaParser, EveryFreshFixRequestIsAnsweredOnceWhileTheFixLasts) {
    // The parser keeps the request value it read until the registry says it
    // changed; each request written meanwhile must still be seen.
    const auto fix = kiv::platform::Event::Create(L"KIV_GPS_EVENT_FIX",
                                                  kiv::platform::EventReset::Automatic, false);
    kiv::gps::MNmeaParser parser;
    auto feed = [&](int second) {
        const std::string rmc = kiv::sim::WithChecksum("GPRMC,1235" + std::to_string(10 + second) +
                                                       ",A,4807.038,N,01131.000,E,0,0,230394,,") +
                                "\r\n";
        parser.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(rmc.data()),
                                    static_cast<unsigned int>(rmc.size()));
        return kiv::platform::WaitFor(fix, 0) == 0;
    };
    EXPECT_TRUE(feed(0)) << "the first fix";
    EXPECT_FALSE(feed(1));
    for (int request = 0; request < 3; ++request) {
        kiv::test::SetGps(L"KIV_GPS_EVENT_RESETFIX", 1u);
        EXPECT_TRUE(feed(2 + 2 * request)) << "request " << request;
        EXPECT_EQ(GpsDword(L"KIV_GPS_EVENT_RESETFIX"), 0u);
        EXPECT_FALSE(feed(3 + 2 * request)) << "answered once";
    }
}

TEST(MNmeaParser, AChunkOfManySentencesLeavesTheValuesThatOneAtATimeLeaves) {
    // The sentences of one read share a registry batch; the values written
    // must be those of feeding the same sentences one by one, in order.
    std::vector<std::string> lines;
    {
        std::istringstream in(kiv::test::ReadFileBytes(KIV_DEMO_DRIVE));
        for (std::string line; lines.size() < 300 && std::getline(in, line);) {
            lines.push_back(line + "\n");
        }
    }
    ASSERT_EQ(lines.size(), 300u);
    auto values = [] {
        HKEY key = nullptr;
        std::map<std::wstring, std::string> out;
        EXPECT_EQ(RegistryStore::OpenKey(HKEY_CURRENT_USER, kiv::test::kGpsKeyPath, &key), 0u);
        for (unsigned int i = 0;; ++i) {
            wchar_t name[256];
            unsigned int chars = 256;
            char data[4096];
            unsigned int size = sizeof data;
            if (RegistryStore::EnumValue(key, i, name, &chars, nullptr, data, &size) != 0) {
                break;
            }
            out[name] = std::string(data, size);
        }
        RegistryStore::CloseKey(key);
        return out;
    };
    auto feed = [](kiv::gps::MNmeaParser& parser, const std::string& bytes) {
        parser.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(bytes.data()),
                                    static_cast<unsigned int>(bytes.size()));
    };
    setenv("KIV_REGISTRY", kiv::test::TempPath("chunked.db").c_str(), 1);
    {
        kiv::gps::MNmeaParser parser;
        std::string chunk;
        for (const std::string& line : lines) {
            chunk += line;
        }
        feed(parser, chunk);
    }
    const auto chunked = values();
    setenv("KIV_REGISTRY", kiv::test::TempPath("single.db").c_str(), 1);
    {
        kiv::gps::MNmeaParser parser;
        for (const std::string& line : lines) {
            feed(parser, line);
        }
    }
    const auto single = values();
    EXPECT_GT(single.size(), 20u);
    EXPECT_EQ(chunked, single);
}

TEST(MGPSCommPort, DeviceNamesFollowThePortNumber) {
    EXPECT_EQ(kiv::gps::MGPSCommPort::DeviceName(3), L"COM3:");
    EXPECT_EQ(kiv::gps::MGPSCommPort::DeviceName(9), L"COM9:");
    EXPECT_EQ(kiv::gps::MGPSCommPort::DeviceName(12), L"\\\\.\\COM12");
}

TEST(MGPSConnect, SentencesOnTheSerialPortReachTheRegistryAndCommandsReachTheReceiver) {
    PortOnPty port(5);
    MGPSConnect connect;
    connect.SetComPort(5, 4800);
    ASSERT_TRUE(connect.BeginProc());
    EXPECT_EQ(GpsString(L"INIT_FLAG"), L"1");
    EXPECT_EQ(GpsString(L"ERR_MSG"), L"");
    // Split mid-sentence, as a receiver's bytes arrive.
    ASSERT_TRUE(port.pty.Write(kRmc.substr(0, 20)));
    ASSERT_TRUE(port.pty.Write(kRmc.substr(20)));
    EXPECT_TRUE(Eventually([] { return GpsDword(L"LAT_MSEC") == 280u; }));

    connect.WriteCommand(L"$PSRF100,1,4800,8,1,0*0E\r\n");
    EXPECT_EQ(port.pty.Read(26, 10000), "$PSRF100,1,4800,8,1,0*0E\r\n");
    connect.EndProc();
    connect.WriteCommand(L"after the end");
    EXPECT_EQ(port.pty.Read(1, 200), "") << "nothing is sent once the port is closed";
    EXPECT_FALSE(connect.BeginProc()) << "an ended connection cannot begin again";
}

// The debugger note of a command write comes only when the write had to
// wait for the receiver to take the bytes.
TEST(MGPSConnect, OnlyAWriteThatWaitsLeavesADebugNote) {
    const std::string notes = kiv::test::TempPath("notes.txt");
    setenv("KIV_DEBUG_OUTPUT", notes.c_str(), 1);
    PortOnPty port(4);
    MGPSConnect connect;
    connect.SetComPort(4, 4800);
    ASSERT_TRUE(connect.BeginProc());
    connect.WriteCommand(L"$PSRF100,1,4800,8,1,0*0E\r\n");
    EXPECT_EQ(port.pty.Read(26, 10000), "$PSRF100,1,4800,8,1,0*0E\r\n");
    EXPECT_EQ(kiv::test::ReadFileBytes(notes), "") << "the write went out at once";

    // More than the terminal holds: the write waits until the test reads.
    const std::wstring big(64 * 1024, L'x');
    std::string received;
    std::thread reader([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        received = port.pty.Read(big.size(), 20000);
    });
    connect.WriteCommand(big.c_str());
    reader.join();
    connect.EndProc();
    unsetenv("KIV_DEBUG_OUTPUT");
    const std::string text = kiv::test::ReadFileBytes(notes);
    EXPECT_TRUE(text == "\n65536 bytes written" ||
                text.rfind("\nProbable Write Timeout: Total of ", 0) == 0)
        << text;
}

TEST(MGPSConnect, HighPortsKeepTheDriversLineSettings) {
    PortOnPty port(20);
    {
        const int fd = open(port.pty.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios tio{};
        ASSERT_EQ(tcgetattr(fd, &tio), 0);
        cfsetospeed(&tio, B2400);
        cfsetispeed(&tio, B2400);
        ASSERT_EQ(tcsetattr(fd, TCSANOW, &tio), 0);
        close(fd);
    }
    MGPSConnect connect;
    connect.SetComPort(20, 4800);
    ASSERT_TRUE(connect.BeginProc());
    const int probe = open(port.pty.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios tio{};
    ASSERT_EQ(tcgetattr(probe, &tio), 0);
    close(probe);
    EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B2400));
}

TEST(MGPSConnect, FailedStartsReportTheStoredPortAndRate) {
    setenv("KIV_COM6", "/nonexistent/tty", 1);
    MGPSConnect serial;
    serial.SetComPort(6, 9600);
    EXPECT_FALSE(serial.BeginProc());
    EXPECT_EQ(GpsString(L"ERR_MSG"),
              L"The GPS service connect comport fail port=6,baudrate=9600\n");
    EXPECT_EQ(GpsString(L"INIT_FLAG"), L"1");
    unsetenv("KIV_COM6");

    kiv::test::SetGps(L"INIT_FLAG", L"0");
    MGPSConnect demo;
    demo.SetComPort(3, 4800);
    demo.SetDemoFile(L"/nonexistent/drive.nmea");
    EXPECT_FALSE(demo.BeginProc());
    EXPECT_EQ(GpsString(L"ERR_MSG"), L"The GPS service connect comport fail port=3,baudrate=4800\n")
        << "the stored port and rate, not the demo mode's zeros";
    EXPECT_EQ(GpsString(L"INIT_FLAG"), L"1");
}

TEST(MGPSConnect, DemoFileReplaysAndEndsPromptlyDespitePacing) {
    MGPSConnect connect;
    connect.SetDemoFile(kiv::text::FromUtf8(KIV_DEMO_DRIVE).c_str());
    ASSERT_TRUE(connect.BeginProc());
    EXPECT_EQ(GpsString(L"ERR_MSG"), L"");
    EXPECT_TRUE(Eventually([] { return GpsString(L"UTCTime") == L"083001.000"; }))
        << "the second fix follows the first after its pause";
    // The rest of the drive would take minutes; EndProc cuts the pacing
    // short, and nothing is parsed after it.
    connect.EndProc();
    const std::wstring last = GpsString(L"UTCTime");
    EXPECT_NE(last, L"083320.000") << "the last fix of the drive";
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    EXPECT_EQ(GpsString(L"UTCTime"), last);
}
