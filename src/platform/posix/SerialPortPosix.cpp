#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>

#include "platform/SerialPort.h"
#include "platform/posix/SerialLinePosix.h"
#include "platform/posix/SerialSpeedPosix.h"

namespace kiv::platform {
namespace {

speed_t StandardSpeed(unsigned int baud) {
    switch (baud) {
        case 50:
            return B50;
        case 75:
            return B75;
        case 110:
            return B110;
        case 134:
            return B134;
        case 150:
            return B150;
        case 200:
            return B200;
        case 300:
            return B300;
        case 600:
            return B600;
        case 1200:
            return B1200;
        case 1800:
            return B1800;
        case 2400:
            return B2400;
        case 4800:
            return B4800;
        case 9600:
            return B9600;
        case 19200:
            return B19200;
        case 38400:
            return B38400;
        case 57600:
            return B57600;
        case 115200:
            return B115200;
        case 230400:
            return B230400;
        case 460800:
            return B460800;
        case 500000:
            return B500000;
        case 576000:
            return B576000;
        case 921600:
            return B921600;
        case 1000000:
            return B1000000;
        default:
            return 0;
    }
}

int RemainingMs(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

void MakeRawKeepingLine(termios& tio) {
    tio.c_iflag &= ~static_cast<tcflag_t>(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR |
                                          ICRNL | IXON | IXOFF);
    tio.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    tio.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    tio.c_cflag |= CLOCAL | CREAD;
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
}

std::string SerialPort::DevicePath(unsigned int number) {
    const std::string variable = "KIV_COM" + std::to_string(number);
    if (const char* path = std::getenv(variable.c_str()); path != nullptr && *path != '\0') {
        return path;
    }
    return "/dev/ttyS" + std::to_string(number == 0 ? 0 : number - 1);
}

std::unique_ptr<SerialPort> SerialPort::Open(unsigned int number) {
    const std::string path = DevicePath(number);
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    // The device is opened without sharing, as on the device.
    termios tio{};
    if (ioctl(fd, TIOCEXCL) != 0 || tcgetattr(fd, &tio) != 0) {
        close(fd);
        return nullptr;
    }
    MakeRawKeepingLine(tio);
    if (tcsetattr(fd, TCSANOW, &tio) != 0) {
        close(fd);
        return nullptr;
    }
    return std::unique_ptr<SerialPort>(new SerialPort(fd));
}

SerialPort::~SerialPort() {
    if (m_fd >= 0) {
        ioctl(m_fd, TIOCNXCL);
        close(m_fd);
    }
}

bool SerialPort::Configure(unsigned int baud, unsigned int dataBits, unsigned int parity,
                           unsigned int stopBits) {
    termios tio{};
    if (baud == 0 || tcgetattr(m_fd, &tio) != 0) {
        return false;
    }
    tio.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CMSPAR | CSTOPB);
    switch (dataBits) {
        case 5:
            tio.c_cflag |= CS5;
            break;
        case 6:
            tio.c_cflag |= CS6;
            break;
        case 7:
            tio.c_cflag |= CS7;
            break;
        default:
            tio.c_cflag |= CS8;
            break;
    }
    switch (parity) {
        case 1:
            tio.c_cflag |= PARENB | PARODD;
            break;
        case 2:
            tio.c_cflag |= PARENB;
            break;
        case 3:
            tio.c_cflag |= PARENB | PARODD | CMSPAR;
            break;
        case 4:
            tio.c_cflag |= PARENB | CMSPAR;
            break;
        default:
            break;
    }
    if (stopBits != 0) {
        tio.c_cflag |= CSTOPB;
    }
    const speed_t speed = StandardSpeed(baud);
    if (speed != 0) {
        cfsetispeed(&tio, speed);
        cfsetospeed(&tio, speed);
        return tcsetattr(m_fd, TCSANOW, &tio) == 0;
    }
    // A rate without a constant: the line settings first, then the rate
    // itself through the kernel's arbitrary-rate interface.
    return tcsetattr(m_fd, TCSANOW, &tio) == 0 && SetArbitrarySpeed(m_fd, baud);
}

bool SerialPort::Purge() {
    return tcflush(m_fd, TCIOFLUSH) == 0;
}

int SerialPort::BytesWaiting() {
    int count = 0;
    return ioctl(m_fd, FIONREAD, &count) == 0 ? count : -1;
}

int SerialPort::Read(void* buffer, int size, int timeoutMs) {
    if (size <= 0) {
        return 0;
    }
    pollfd p{m_fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = poll(&p, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) {
        return ready == 0 ? 0 : -1;
    }
    ssize_t n = 0;
    do {
        n = read(m_fd, buffer, static_cast<std::size_t>(size));
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        return (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
    }
    return static_cast<int>(n);
}

int SerialPort::Write(const void* data, int size, int timeoutMs, bool* waited) {
    if (waited != nullptr) {
        *waited = false;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    const auto* bytes = static_cast<const char*>(data);
    int done = 0;
    while (done < size) {
        const ssize_t n = write(m_fd, bytes + done, static_cast<std::size_t>(size - done));
        if (n > 0) {
            done += static_cast<int>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            return done > 0 ? done : -1;
        }
        if (waited != nullptr) {
            *waited = true;
        }
        pollfd p{m_fd, POLLOUT, 0};
        if (poll(&p, 1, RemainingMs(deadline)) <= 0) {
            break;  // the write time-out: report what went out
        }
    }
    return done;
}

void SerialPort::ClearDtr() {
    int bits = TIOCM_DTR;
    ioctl(m_fd, TIOCMBIC, &bits);
}

}  // namespace kiv::platform
