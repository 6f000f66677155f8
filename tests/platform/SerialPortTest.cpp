#include "platform/SerialPort.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "platform/posix/SerialLinePosix.h"
#include "platform/posix/SerialSpeedPosix.h"
#include "support/KivTestEnvironment.h"

using kiv::platform::SerialPort;

namespace {

class SerialPortOnPty : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pty.IsOpen());
        setenv("KIV_COM7", pty.SlavePath().c_str(), 1);
        port = SerialPort::Open(7);
        ASSERT_NE(port, nullptr);
    }
    void TearDown() override { unsetenv("KIV_COM7"); }
    kiv::test::PseudoTerminal pty;
    std::unique_ptr<SerialPort> port;
};

}  // namespace

TEST(SerialPort, DevicePathComesFromTheEnvironmentElseTtySAndAMissingDeviceDoesNotOpen) {
    unsetenv("KIV_COM3");
    EXPECT_EQ(SerialPort::DevicePath(3), "/dev/ttyS2");
    EXPECT_EQ(SerialPort::DevicePath(12), "/dev/ttyS11");
    setenv("KIV_COM3", "/nonexistent/tty", 1);
    EXPECT_EQ(SerialPort::DevicePath(3), "/nonexistent/tty");
    EXPECT_EQ(SerialPort::Open(3), nullptr);
    unsetenv("KIV_COM3");
}

TEST_F(SerialPortOnPty, BytesFromTheDeviceAreCountedAndRead) {
    char buffer[64];
    EXPECT_EQ(port->Read(buffer, sizeof buffer, 0), 0) << "nothing waiting: the poll times out";
    ASSERT_TRUE(pty.Write("$GPRMC,1\r\n"));
    EXPECT_TRUE(kiv::test::Eventually([&] { return port->BytesWaiting() == 10; }));
    EXPECT_EQ(port->Read(buffer, 4, 1000), 4);
    EXPECT_EQ(std::string(buffer, 4), "$GPR");
    EXPECT_EQ(port->Read(buffer, sizeof buffer, 1000), 6);
    EXPECT_EQ(std::string(buffer, 6), "MC,1\r\n") << "raw mode: CR LF pass unchanged";
}

TEST_F(SerialPortOnPty, WritesReachTheDeviceUnchanged) {
    const std::string command = "$PSRF103,00,01,00,01*25\r\n";
    EXPECT_EQ(port->Write(command.data(), static_cast<int>(command.size()), 1000),
              static_cast<int>(command.size()));
    EXPECT_EQ(pty.Read(command.size(), 2000), command);
}

TEST_F(SerialPortOnPty, StandardAndArbitraryRatesAreSet) {
    // The settings are read back through a second descriptor of the same terminal.
    const int probe = open(pty.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(probe, 0);
    ASSERT_TRUE(port->Configure(4800, 8, 0, 0));
    termios tio{};
    ASSERT_EQ(tcgetattr(probe, &tio), 0);
    EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B4800));
    EXPECT_EQ(tio.c_cflag & CSTOPB, 0u);
    ASSERT_TRUE(port->Configure(128000, 7, 2, 2)) << "a rate without a constant";
    EXPECT_EQ(kiv::platform::CurrentSpeed(probe), 128000u);
    ASSERT_EQ(tcgetattr(probe, &tio), 0);
    // A pseudo-terminal always keeps 8 data bits without parity; the stop
    // bits are what it lets a test see of the line settings.
    EXPECT_NE(tio.c_cflag & CSTOPB, 0u);
    close(probe);
    EXPECT_FALSE(port->Configure(0, 8, 0, 0));
}

// A pseudo-terminal forces 8 data bits without parity, so the settings an
// open gives a port are checked on the terminal structure itself.
TEST(SerialPort, OpeningMakesTheLineRawButKeepsDataBitsParityAndStopBits) {
    termios tio{};
    tio.c_cflag = CS7 | PARENB | PARODD | CSTOPB;
    tio.c_iflag = ICRNL | IXON | ISTRIP;
    tio.c_oflag = OPOST;
    tio.c_lflag = ICANON | ECHO | ISIG;
    tio.c_cc[VMIN] = 1;
    kiv::platform::MakeRawKeepingLine(tio);
    EXPECT_EQ(tio.c_cflag & CSIZE, static_cast<tcflag_t>(CS7));
    EXPECT_EQ(tio.c_cflag & (PARENB | PARODD | CSTOPB),
              static_cast<tcflag_t>(PARENB | PARODD | CSTOPB));
    EXPECT_NE(tio.c_cflag & CREAD, 0u);
    EXPECT_EQ(tio.c_iflag, 0u);
    EXPECT_EQ(tio.c_oflag & OPOST, 0u);
    EXPECT_EQ(tio.c_lflag, 0u);
    EXPECT_EQ(tio.c_cc[VMIN], 0);
}

TEST_F(SerialPortOnPty, PurgeDropsPendingInput) {
    ASSERT_TRUE(pty.Write("stale bytes"));
    ASSERT_TRUE(kiv::test::Eventually([&] { return port->BytesWaiting() == 11; }));
    EXPECT_TRUE(port->Purge());
    EXPECT_EQ(port->BytesWaiting(), 0);
}

TEST_F(SerialPortOnPty, ExclusiveOpenRefusesASecondUser) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "root is exempt from exclusive terminal mode";
    }
    EXPECT_EQ(SerialPort::Open(7), nullptr);
}
