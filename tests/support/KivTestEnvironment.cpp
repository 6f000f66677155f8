#include "support/KivTestEnvironment.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>
#include <thread>

extern char** environ;

namespace kiv::test {
namespace {

std::string g_root;
std::string g_namespace;
std::atomic<unsigned> g_sequence{0};

std::string RandomHex(int digits) {
    std::random_device rd;
    std::ostringstream out;
    out << std::hex;
    for (int i = 0; i < digits; ++i) {
        out << (rd() & 0xF);
    }
    return out.str();
}

std::string BaseTempDir() {
    const char* tmp = std::getenv("TMPDIR");
    return (tmp != nullptr && *tmp != '\0') ? tmp : "/tmp";
}

// Removes what the library may have left in /dev/shm under the namespace of
// a finished test. Library objects are named "kiv.<namespace>.<kind>.<name>".
void RemoveSharedMemoryOf(const std::string& ns) {
    const std::string prefix = "kiv." + ns + ".";
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", ec)) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, prefix.size(), prefix) == 0) {
            std::filesystem::remove(entry.path(), ec);
        }
    }
}

}  // namespace

const std::string& TestRoot() {
    return g_root;
}

const std::string& TestNamespace() {
    return g_namespace;
}

std::string TempPath(const std::string& name) {
    return g_root + "/" + name;
}

std::string HelperPath(const std::string& program) {
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return (self.parent_path() / program).string();
}

int RunProcess(const std::string& program, const std::vector<std::string>& args) {
    return ChildProcess(program, args).Wait();
}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& args,
                           const std::string& output) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return;
    }
    m_ready = fds[0];
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], kReadyFd);
    if (!output.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    pid_t pid = 0;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) == 0) {
        m_pid = pid;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : m_pid(other.m_pid),
      m_ready(other.m_ready),
      m_status(other.m_status),
      m_reaped(other.m_reaped) {
    other.m_pid = -1;
    other.m_ready = -1;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    if (this != &other) {
        this->~ChildProcess();
        m_pid = other.m_pid;
        m_ready = other.m_ready;
        m_status = other.m_status;
        m_reaped = other.m_reaped;
        other.m_pid = -1;
        other.m_ready = -1;
    }
    return *this;
}

ChildProcess::~ChildProcess() {
    Kill();
    Wait(-1);
    if (m_ready >= 0) {
        close(m_ready);
    }
}

void ChildProcess::Signal(int signal) {
    if (m_pid > 0 && !m_reaped) {
        kill(m_pid, signal);
    }
}

void ChildProcess::Kill() {
    Signal(SIGKILL);
}

bool ChildProcess::AwaitReady(int timeoutMs) {
    if (m_pid <= 0) {
        return false;
    }
    pollfd p{m_ready, POLLIN, 0};
    int rc;
    do {
        rc = poll(&p, 1, timeoutMs);
    } while (rc < 0 && errno == EINTR);
    char byte = 0;
    return rc == 1 && read(m_ready, &byte, 1) == 1;
}

bool ChildProcess::AwaitEndUnreaped() {
    siginfo_t info{};
    int rc;
    do {
        rc = waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT);
    } while (rc != 0 && errno == EINTR);
    return rc == 0;
}

int ChildProcess::Wait(int timeoutMs) {
    if (m_pid <= 0) {
        return -1;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!m_reaped) {
        int status = 0;
        const pid_t r = waitpid(m_pid, &status, timeoutMs < 0 ? 0 : WNOHANG);
        if (r == m_pid) {
            m_reaped = true;
            m_status = WIFEXITED(status)     ? WEXITSTATUS(status)
                       : WIFSIGNALED(status) ? 128 + WTERMSIG(status)
                                             : -1;
            break;
        }
        if (r < 0 && errno != EINTR) {
            m_reaped = true;
            break;
        }
        if (timeoutMs >= 0) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return -2;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return m_status;
}

PseudoTerminal::PseudoTerminal() {
    const int fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    const char* name = nullptr;
    if (grantpt(fd) != 0 || unlockpt(fd) != 0 || (name = ptsname(fd)) == nullptr) {
        close(fd);
        return;
    }
    // The master side passes bytes through unchanged.
    termios tio{};
    if (tcgetattr(fd, &tio) == 0) {
        cfmakeraw(&tio);
        tcsetattr(fd, TCSANOW, &tio);
    }
    m_master = fd;
    m_slave = name;
}

PseudoTerminal::~PseudoTerminal() {
    if (m_master >= 0) {
        close(m_master);
    }
}

bool PseudoTerminal::Write(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(m_master, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

std::string PseudoTerminal::Read(std::size_t count, int timeoutMs) {
    std::string out;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (out.size() < count) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0) {
            break;
        }
        pollfd p{m_master, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) <= 0) {
            continue;
        }
        char buf[4096];
        const ssize_t n = read(m_master, buf, std::min(sizeof buf, count - out.size()));
        if (n > 0) {
            out.append(buf, static_cast<std::size_t>(n));
        } else if (n < 0 && errno != EINTR && errno != EAGAIN) {
            // EIO: nobody has the slave side open (yet, or any more).
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    return out;
}

bool Eventually(const std::function<bool()>& done, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool WaitForFile(const std::string& path, int timeoutMs) {
    return Eventually([&] { return std::filesystem::exists(path); }, timeoutMs);
}

std::string CopyExecutable(const std::string& program, const std::string& name) {
    const std::string target = TempPath(name);
    std::error_code ec;
    std::filesystem::copy_file(program, target, std::filesystem::copy_options::overwrite_existing,
                               ec);
    std::filesystem::permissions(target, std::filesystem::perms::owner_all, ec);
    return target;
}

std::string ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return {};
    }
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool WriteFileBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

namespace detail {

void BeginTest() {
    const unsigned seq = g_sequence.fetch_add(1);
    g_namespace = "t" + std::to_string(getpid()) + "x" + std::to_string(seq) + RandomHex(6);
    std::string templ = BaseTempDir() + "/kiv-test-" + g_namespace + "-XXXXXX";
    if (mkdtemp(templ.data()) == nullptr) {
        std::perror("kiv test: mkdtemp");
        std::abort();
    }
    g_root = templ;
    const std::string device = g_root + "/device";
    mkdir(device.c_str(), 0700);
    setenv("KIV_NAMESPACE", g_namespace.c_str(), 1);
    setenv("KIV_REGISTRY", (g_root + "/registry.db").c_str(), 1);
    setenv("KIV_DEVICE_ROOT", device.c_str(), 1);
}

void EndTest() {
    if (std::getenv("KIV_TEST_KEEP") == nullptr && !g_root.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(g_root, ec);
    }
    RemoveSharedMemoryOf(g_namespace);
    g_root.clear();
}

}  // namespace detail
}  // namespace kiv::test
