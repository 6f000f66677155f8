// The receiver's port as the GPS connection drives it: a serial port, or in
// demo mode a recorded file, with the reader thread that feeds the parser.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <kiv/foundation/MDebugLog.h>

namespace kiv::platform {
class SerialPort;
}
namespace kiv::system {
class MFile;
}

namespace kiv::gps {

class MGPSCommPort {
public:
    MGPSCommPort();
    /// Closes the port and ends the reader if they are still running.
    ~MGPSCommPort();
    MGPSCommPort(const MGPSCommPort&) = delete;
    MGPSCommPort& operator=(const MGPSCommPort&) = delete;

    void SetPort(unsigned int port, unsigned int baudRate);
    void SetLogFile(const std::wstring& setting) { m_logFile = setting; }
    /// Whether the parser of the next Open accepts the other talkers too.
    void SetAnyTalker(bool on) { m_anyTalker = on; }
    void SetDemoFile(const std::string& path) { m_demoFile = path.substr(0, 256); }

    /// Opens the port (or the demo file) and starts the reader. True when
    /// running afterwards.
    bool Open();
    /// Stops the reader and closes the port: 1, or 0 if it was not open.
    int Close();
    /// Reads what is waiting (or waits up to the read time-out for data).
    /// Returns the bytes read, 0 on time-out, error or end of a demo file, -1
    /// if the port is not open.
    int Read(unsigned char* buffer, int size);
    /// Writes the whole text: 1, 0 on failure, -1 if the port is not open. In
    /// demo mode nothing is written and the result is 1.
    int Write(const std::string& text);

    bool IsRunning() const { return m_running.load(); }
    /// The device name formatted as the device does ("COM3:", "\\.\COM12").
    static std::wstring DeviceName(unsigned int port);
    /// Iterations of the reader loop, -1 once it has ended.
    long ReaderLoops() const { return m_loops.load(); }

private:
    void ReaderThread();
    /// Waits `ms` or until Close; false when the port is closing.
    bool Pause(unsigned int ms);

    unsigned char m_port = 1;  ///< 0: demo-file mode
    unsigned int m_baudRate = 9600;
    unsigned char m_dataBits = 8;
    unsigned char m_parity = 0;
    unsigned char m_stopBits = 0;
    std::atomic<bool> m_running{false};
    std::unique_ptr<platform::SerialPort> m_serial;
    std::unique_ptr<system::MFile> m_demo;
    std::string m_demoFile;
    bool m_anyTalker = false;
    int m_replay[2] = {200, 5};  // replay settings kept for a configuration screen
    std::wstring m_logFile;
    std::thread m_reader;
    std::mutex m_lock;
    std::condition_variable m_wake;
    std::atomic<long> m_loops{0};
    log::MDebugLog m_log;
};

}  // namespace kiv::gps
