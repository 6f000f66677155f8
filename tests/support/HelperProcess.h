// A helper program started by a test, with a pipe on which it reports that
// it is ready (it writes a byte to file descriptor 3).
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

extern char** environ;

namespace kiv::test {

/// The file descriptor on which a helper program reports readiness.
inline constexpr int kReadyFd = 3;

/// In a helper program: tells the test that it is ready.
inline void ReportReady() {
    const char byte = 'r';
    (void)!write(kReadyFd, &byte, 1);
}

class HelperProcess {
public:
    /// Starts `program` with `args`; the environment is inherited, and the
    /// standard output too unless `output` names a file to write it to.
    HelperProcess(const std::string& program, const std::vector<std::string>& args,
                  const std::string& output = {}) {
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
        if (posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
            m_pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
    }
    HelperProcess(const HelperProcess&) = delete;
    HelperProcess& operator=(const HelperProcess&) = delete;
    /// Kills and reaps the process if it still runs.
    ~HelperProcess() {
        if (m_pid > 0 && !m_reaped) {
            kill(m_pid, SIGKILL);
            Wait();
        }
        if (m_ready >= 0) {
            close(m_ready);
        }
    }

    int Pid() const { return m_pid; }

    /// Waits up to `timeoutMs` for the readiness byte; false if the process
    /// ended or stayed silent.
    bool AwaitReady(int timeoutMs = 30000) {
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

    void Kill() {
        if (m_pid > 0 && !m_reaped) {
            kill(m_pid, SIGKILL);
        }
    }

    /// Waits until the process has ended but leaves it a zombie (not reaped).
    bool AwaitEndUnreaped() {
        siginfo_t info{};
        int rc;
        do {
            rc = waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT);
        } while (rc != 0 && errno == EINTR);
        return rc == 0;
    }

    /// Waits for the end and reaps the process: its exit status (0..255),
    /// 128 + the signal that ended it, or -1. With a timeout (ms), -2 when
    /// the process still runs at its end.
    int Wait(int timeoutMs = -1) {
        if (m_pid <= 0) {
            return -1;
        }
        if (!m_reaped) {
            int status = 0;
            int rc;
            for (int waited = 0;; waited += 5) {
                rc = waitpid(m_pid, &status, timeoutMs < 0 ? 0 : WNOHANG);
                if (rc < 0 && errno == EINTR) {
                    continue;
                }
                if (rc != 0 || waited >= timeoutMs) {
                    break;
                }
                usleep(5000);
            }
            if (rc == 0) {
                return -2;
            }
            m_reaped = true;
            m_status = rc < 0                ? -1
                       : WIFEXITED(status)   ? WEXITSTATUS(status)
                       : WIFSIGNALED(status) ? 128 + WTERMSIG(status)
                                             : -1;
        }
        return m_status;
    }

private:
    pid_t m_pid = -1;
    int m_ready = -1;
    int m_status = -1;
    bool m_reaped = false;
};

}  // namespace kiv::test
