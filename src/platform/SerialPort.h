// A serial port of the system, by its device number (COM1 is 1).
#pragma once

#include <memory>
#include <string>

namespace kiv::platform {

class SerialPort {
public:
    /// The device path of port `number`: the environment variable
    /// KIV_COM<number> when set, else /dev/ttyS<number - 1>.
    static std::string DevicePath(unsigned int number);

    /// Opens the device of port `number` for reading and writing, exclusively
    /// and without making it the controlling terminal, in raw mode. Null if it
    /// cannot be opened.
    static std::unique_ptr<SerialPort> Open(unsigned int number);

    /// Closes the device (after clearing DTR, if ClearDtr was not called).
    ~SerialPort();
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    /// Sets the line: any positive baud rate (rates without a standard
    /// constant too), 5..8 data bits, parity 0 none, 1 odd, 2 even, 3 mark,
    /// 4 space, stop bits 0 one, 1 one and a half (taken as two), 2 two.
    bool Configure(unsigned int baud, unsigned int dataBits, unsigned int parity,
                   unsigned int stopBits);
    /// Drops all pending input and output.
    bool Purge();
    /// The number of bytes waiting to be read, or -1 if it cannot be told.
    int BytesWaiting();
    /// Waits up to `timeoutMs` for input, then reads what is there, at most
    /// `size` bytes. Returns the count, 0 on timeout, -1 on error.
    int Read(void* buffer, int size, int timeoutMs);
    /// Writes all of `data`, waiting up to `timeoutMs` for room. Returns the
    /// bytes written, -1 on error. `*waited` (if given) tells whether the
    /// driver did not take everything at once and the write had to wait.
    int Write(const void* data, int size, int timeoutMs, bool* waited = nullptr);
    /// Drops the DTR line.
    void ClearDtr();

private:
    explicit SerialPort(int fd) : m_fd(fd) {}
    int m_fd;
};

}  // namespace kiv::platform
