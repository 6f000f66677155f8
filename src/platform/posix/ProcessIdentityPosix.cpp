#include "platform/posix/ProcessIdentityPosix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434  // Linux 5.3, the same number on every architecture
#endif

namespace kiv::platform::posix {
namespace {

// Reads the state letter and the start time of `pid` from /proc/<pid>/stat.
// The command name (field 2) may hold spaces and parentheses, so fields are
// counted from the last ')'.
bool ReadProcessStat(std::int32_t pid, char* state, std::uint64_t* startTime) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char buffer[1024];
    ssize_t n;
    do {
        n = read(fd, buffer, sizeof buffer - 1);
    } while (n < 0 && errno == EINTR);
    close(fd);
    if (n <= 0) {
        return false;
    }
    buffer[n] = '\0';
    const char* p = std::strrchr(buffer, ')');
    if (p == nullptr) {
        return false;
    }
    ++p;
    // Field 3 is the state, field 22 the start time.
    for (int field = 3; field <= 22; ++field) {
        while (*p == ' ') {
            ++p;
        }
        if (*p == '\0') {
            return false;
        }
        if (field == 3) {
            *state = *p;
        } else if (field == 22) {
            char* end = nullptr;
            *startTime = std::strtoull(p, &end, 10);
            return end != p;
        }
        while (*p != ' ' && *p != '\0') {
            ++p;
        }
    }
    return false;
}

// True once the process a pidfd refers to has ended (a zombie included):
// the kernel makes the descriptor readable then.
bool HasEnded(int pidfd) {
    pollfd p{pidfd, POLLIN, 0};
    int rc;
    do {
        rc = poll(&p, 1, 0);
    } while (rc < 0 && errno == EINTR);
    return rc != 0;
}

// Processes found alive once through /proc, watched from then on through a
// pidfd, so that checking them again costs one poll and no file system
// access, and a reused pid cannot be mistaken for them. Few are watched at
// once (the oldest watch makes room); a watch found ended is closed. A
// forked child starts with no watches: the descriptors it inherited are
// left alone, as it may have closed or reused them.
class Watches {
public:
    // 1: the watched process `pid` is alive and `sameStart` accepts it;
    // 0: the process recorded is known to have ended; -1: not known here.
    template <typename SameStart>
    int Check(std::int32_t pid, SameStart sameStart) {
        std::lock_guard<std::mutex> guard(m_lock);
        Own();
        for (Watch& w : m_watches) {
            if (w.fd < 0 || w.pid != pid) {
                continue;
            }
            if (HasEnded(w.fd)) {
                Drop(w);
                return -1;  // the pid may have been given to another process
            }
            // The pid is still the watched process's: the one recorded is
            // alive if and only if it is that process.
            return sameStart(w.startTime) ? 1 : 0;
        }
        return -1;
    }

    // Watches `pid` (started at `startTime`) through `pidfd`, which it owns.
    void Add(std::int32_t pid, std::uint64_t startTime, int pidfd) {
        std::lock_guard<std::mutex> guard(m_lock);
        Own();
        Watch& w = m_watches[m_next];
        m_next = (m_next + 1) % kWatches;
        if (w.fd >= 0) {
            Drop(w);
        }
        w = {pid, startTime, pidfd};
    }

private:
    static constexpr int kWatches = 32;
    struct Watch {
        std::int32_t pid = 0;
        std::uint64_t startTime = 0;
        int fd = -1;
    };

    void Own() {
        const std::int32_t self = getpid();
        if (m_owner != self) {
            m_owner = self;
            for (Watch& w : m_watches) {
                w = Watch{};
            }
        }
    }
    static void Drop(Watch& w) {
        close(w.fd);
        w = Watch{};
    }

    std::mutex m_lock;
    std::int32_t m_owner = 0;
    int m_next = 0;
    Watch m_watches[kWatches];
};

Watches& TheWatches() {
    static Watches* watches = new Watches;  // kept to the end: checks may run at exit
    return *watches;
}

template <typename SameStart>
bool IsAlive(std::int32_t pid, SameStart sameStart) {
    if (pid <= 0) {
        return false;
    }
    if (const int known = TheWatches().Check(pid, sameStart); known >= 0) {
        return known == 1;
    }
    // The pidfd is taken before /proc is read: if the process it refers to
    // is still running after the read, the start time read is its own.
    const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    char state = 0;
    std::uint64_t started = 0;
    if (!ReadProcessStat(pid, &state, &started)) {
        if (pidfd >= 0) {
            close(pidfd);
        }
        // Without /proc only existence can be told: a reused pid then keeps
        // the dead process's records until the new process ends.
        return kill(pid, 0) == 0 || errno == EPERM;
    }
    // A zombie has released everything; a different start time is a new
    // process that reused the pid.
    const bool alive = state != 'Z' && state != 'X' && sameStart(started);
    if (pidfd >= 0) {
        if (state != 'Z' && state != 'X' && !HasEnded(pidfd)) {
            TheWatches().Add(pid, started, pidfd);
        } else {
            close(pidfd);
        }
    }
    return alive;
}

}  // namespace

ProcessIdentity CurrentProcessIdentity() {
    static std::mutex lock;
    static ProcessIdentity cached{0, 0};
    const std::int32_t pid = getpid();
    std::lock_guard<std::mutex> guard(lock);
    if (cached.pid != pid) {  // first call, or a forked child
        char state = 0;
        std::uint64_t started = 0;
        ReadProcessStat(pid, &state, &started);
        cached = {pid, started};
    }
    return cached;
}

bool ProcessIsAlive(std::int32_t pid, std::uint64_t startTime) {
    return IsAlive(pid, [startTime](std::uint64_t started) { return started == startTime; });
}

bool ProcessIsAliveLow32(std::int32_t pid, std::uint32_t startTimeLow) {
    return IsAlive(pid, [startTimeLow](std::uint64_t started) {
        return static_cast<std::uint32_t>(started) == startTimeLow;
    });
}

std::int32_t CurrentThreadId() {
    return static_cast<std::int32_t>(syscall(SYS_gettid));
}

}  // namespace kiv::platform::posix
