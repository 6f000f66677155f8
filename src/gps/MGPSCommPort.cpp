#include "gps/MGPSCommPort.h"

#include <kiv/files/MFile.h>

#include <chrono>
#include <cstdio>
#include <string_view>

#include "foundation/Text.h"
#include "gps/MNmeaParserImpl.h"
#include "platform/DebugOutput.h"
#include "platform/SerialPort.h"
#include "platform/TraceFile.h"

namespace kiv::gps {
namespace {

constexpr int kReadSize = 1024;
constexpr int kReadTimeoutMs = 1000;
constexpr int kWriteTimeoutMs = 1000;
constexpr unsigned int kShortReadPauseMs = 30;

}  // namespace

MGPSCommPort::MGPSCommPort() = default;

MGPSCommPort::~MGPSCommPort() {
    Close();
}

void MGPSCommPort::SetPort(unsigned int port, unsigned int baudRate) {
    m_port = static_cast<unsigned char>(port);
    m_baudRate = baudRate;
}

std::wstring MGPSCommPort::DeviceName(unsigned int port) {
    wchar_t name[32];
    std::swprintf(name, 32, port < 10 ? L"COM%d:" : L"\\\\.\\COM%d", static_cast<int>(port));
    return name;
}

bool MGPSCommPort::Open() {
    if (m_port != 0) {
        m_log.InformationPrintf(L"MGPSCommPort::Open %ls", DeviceName(m_port).c_str());
        m_serial = platform::SerialPort::Open(m_port);
        if (!m_serial) {
            return false;
        }
        if (m_baudRate != 0) {
            m_serial->Purge();
            // Only ports 1 to 15 get their line configured; others keep the
            // driver's settings, and that counts as success.
            if (m_port >= 1 && m_port <= 15 &&
                !m_serial->Configure(m_baudRate, m_dataBits, m_parity, m_stopBits)) {
                m_serial.reset();
                return false;
            }
        }
    } else {
        if (m_demoFile.empty()) {
            return false;
        }
        if (m_replay[0] == 0) {
            m_replay[0] = 10;
        }
        m_demo.reset();
        const std::wstring path = text::FromUtf8(m_demoFile);
        m_demo = std::make_unique<system::MFile>(path.c_str(), L"rb");
        if (m_demo->IsOpen() == 0) {
            m_demo.reset();
            return false;
        }
    }
    m_running = true;
    m_loops = 0;
    m_reader = std::thread([this] { ReaderThread(); });
    return true;
}

bool MGPSCommPort::Pause(unsigned int ms) {
    std::unique_lock lock(m_lock);
    return !m_wake.wait_for(lock, std::chrono::milliseconds(ms), [this] { return !m_running; });
}

void MGPSCommPort::ReaderThread() {
    MNmeaParserImpl parser;
    parser.Core().SetLogFile(m_logFile.c_str());
    parser.Core().SetDemoMode(m_port == 0);
    parser.Core().SetAnyTalker(m_anyTalker);
    // Demo pacing ends early when the port closes, so Close never waits for
    // a whole recording's worth of pauses.
    parser.Output().SetSleeper([this](unsigned int ms) { Pause(ms); });
    // For latency measurements only: with KIV_GPS_READ_TRACE set, each read
    // that returned data is recorded as "<steady-clock ns when it returned>
    // <bytes> <steady-clock ns when its bytes were parsed> <CPU ns the reader
    // thread spent parsing them>", written after the bytes are parsed so that
    // the record does not delay the events.
    const auto trace = platform::TraceFile::FromEnvironment("KIV_GPS_READ_TRACE");
    unsigned char buffer[kReadSize + 10];
    while (m_running) {
        const int n = Read(buffer, kReadSize);
        const auto returned = trace ? std::chrono::steady_clock::now().time_since_epoch()
                                    : std::chrono::steady_clock::duration::zero();
        const long long cpuBefore = trace ? platform::TraceFile::ThreadCpuNs() : 0;
        const int count = n > 0 ? n : 0;
        buffer[count] = 0;
        parser.Process(buffer, static_cast<unsigned int>(count));
        if (trace && count > 0) {
            const auto parsed = std::chrono::steady_clock::now().time_since_epoch();
            const long long cpu = platform::TraceFile::ThreadCpuNs() - cpuBefore;
            const auto ns = [](std::chrono::steady_clock::duration d) {
                return static_cast<long long>(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(d).count());
            };
            char record[64];
            const int length = std::snprintf(record, sizeof record, "%lld %d %lld %lld\n",
                                             ns(returned), count, ns(parsed), cpu);
            trace->Append(std::string_view(record, static_cast<std::size_t>(length)));
        }
        ++m_loops;
        if (!m_running) {
            break;
        }
        if (count < 100) {
            Pause(kShortReadPauseMs);
        }
    }
    m_loops = -1;
}

int MGPSCommPort::Read(unsigned char* buffer, int size) {
    if (!m_running && !m_serial && !m_demo) {
        return -1;
    }
    if (m_port == 0) {
        // End of file is no event of its own: the reader keeps polling.
        return m_demo ? static_cast<int>(m_demo->Read(buffer, 1, static_cast<unsigned int>(size)))
                      : 0;
    }
    if (!m_serial) {
        return 0;
    }
    const int waiting = m_serial->BytesWaiting();
    const int request = waiting > 0 && waiting < size ? waiting : size;
    const int n = m_serial->Read(buffer, request, kReadTimeoutMs);
    return n > 0 ? n : 0;
}

int MGPSCommPort::Write(const std::string& text) {
    if (!m_running && !m_serial && !m_demo) {
        return -1;
    }
    if (m_port == 0) {
        return 1;  // a recording takes no commands
    }
    if (!m_serial) {
        return 0;
    }
    const int length = static_cast<int>(text.size());
    bool pending = false;
    const int written = m_serial->Write(text.data(), length, kWriteTimeoutMs, &pending);
    if (written < 0) {
        return 0;
    }
    // Only a write that had to wait for the driver leaves a note.
    if (!pending) {
        return 1;
    }
    wchar_t note[96];
    if (written != length) {
        std::swprintf(note, 96, L"\nProbable Write Timeout: Total of %ld bytes sent",
                      static_cast<long>(written));
    } else {
        std::swprintf(note, 96, L"\n%ld bytes written", static_cast<long>(written));
    }
    platform::OutputDebugText(note);
    return 1;
}

int MGPSCommPort::Close() {
    if (!m_running && !m_serial && !m_demo) {
        return 0;
    }
    {
        std::lock_guard lock(m_lock);
        m_running = false;
    }
    m_wake.notify_all();
    // The reader never blocks longer than its read time-out, so it is always
    // found gone; a thread is never killed.
    if (m_reader.joinable()) {
        m_reader.join();
    }
    if (m_port != 0) {
        if (m_serial) {
            m_serial->ClearDtr();
            m_serial.reset();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        m_demo.reset();
    }
    return 1;
}

}  // namespace kiv::gps
