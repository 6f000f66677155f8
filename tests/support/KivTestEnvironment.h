// Isolation of test processes.
//
// Every test program links the common main (TestMain.cpp). Before each test
// it gives the process a fresh KIV_NAMESPACE, a fresh registry file
// (KIV_REGISTRY) and a fresh device root directory (KIV_DEVICE_ROOT), all
// under a private temporary directory that is removed after the test. Child
// processes started by a test inherit the three variables, so cooperating
// processes of one test share one namespace while tests running in parallel
// see nothing of each other.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kiv::test {

/// The private temporary directory of the running test (exists during a test).
const std::string& TestRoot();

/// The KIV_NAMESPACE token of the running test.
const std::string& TestNamespace();

/// A path inside the test root; the file itself is not created.
std::string TempPath(const std::string& name);

/// The full path of a helper program built beside the test programs.
std::string HelperPath(const std::string& program);

/// Starts `program` (a path) with `args` and waits for it; returns its exit
/// status (0..255), or 128 + signal number if a signal ended it, or -1 if it
/// could not be started.
int RunProcess(const std::string& program, const std::vector<std::string>& args);

/// The file descriptor on which a started program may report readiness.
inline constexpr int kReadyFd = 3;

/// A process started by a test, with a pipe on file descriptor 3 on which it
/// may report that it is ready. The destructor kills it (SIGKILL) and reaps
/// it if it still runs, so no test leaves a process behind.
class ChildProcess {
public:
    ChildProcess() = default;
    /// Starts `program` (a path) with `args`, inheriting the environment, and
    /// the standard output too unless `output` names a file to write it to.
    ChildProcess(const std::string& program, const std::vector<std::string>& args,
                 const std::string& output = {});
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;
    ~ChildProcess();

    bool Started() const { return m_pid > 0; }
    int Pid() const { return m_pid; }
    /// Sends `signal` to the process if it was not reaped yet.
    void Signal(int signal);
    /// SIGKILL, if the process was not reaped yet.
    void Kill();
    /// Waits up to `timeoutMs` for the readiness byte; false if the process
    /// ended or stayed silent.
    bool AwaitReady(int timeoutMs = 30000);
    /// Waits until the process has ended but leaves it a zombie (not reaped).
    bool AwaitEndUnreaped();
    /// Waits up to `timeoutMs` (-1 forever) for the end. Returns the status as
    /// RunProcess does, or -2 if it still runs at the timeout.
    int Wait(int timeoutMs = -1);

private:
    int m_pid = -1;
    int m_ready = -1;
    int m_status = -1;
    bool m_reaped = false;
};

/// A pseudo-terminal pair standing in for a device on a serial port: the
/// code under test opens SlavePath(); the test talks through the master.
class PseudoTerminal {
public:
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal&) = delete;
    PseudoTerminal& operator=(const PseudoTerminal&) = delete;

    bool IsOpen() const { return m_master >= 0; }
    const std::string& SlavePath() const { return m_slave; }
    /// Writes all of `bytes` to the master side.
    bool Write(const std::string& bytes);
    /// Reads from the master until `count` bytes arrived or `timeoutMs` passed.
    std::string Read(std::size_t count, int timeoutMs);

private:
    int m_master = -1;
    std::string m_slave;
};

/// Polls `done` every 2 ms for up to `timeoutMs`; true once it holds.
bool Eventually(const std::function<bool()>& done, int timeoutMs = 20000);

/// Waits up to `timeoutMs` for `path` to exist.
bool WaitForFile(const std::string& path, int timeoutMs);

/// Copies an executable into the test root under `name` and returns its
/// path, so that a test can run a program under a name no other test uses.
std::string CopyExecutable(const std::string& program, const std::string& name);

/// Reads a whole file as bytes; empty if it cannot be read.
std::string ReadFileBytes(const std::string& path);

/// Writes `bytes` to `path`, replacing the file; false on failure.
bool WriteFileBytes(const std::string& path, const std::string& bytes);

namespace detail {
/// Called by the common main around each test.
void BeginTest();
void EndTest();
}  // namespace detail

}  // namespace kiv::test
