#include "platform/posix/ProcessIdentityPosix.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

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

template <typename SameStart>
bool IsAlive(std::int32_t pid, SameStart sameStart) {
    if (pid <= 0) {
        return false;
    }
    char state = 0;
    std::uint64_t started = 0;
    if (!ReadProcessStat(pid, &state, &started)) {
        // Without /proc only existence can be told: a reused pid then keeps
        // the dead process's records until the new process ends.
        return kill(pid, 0) == 0 || errno == EPERM;
    }
    // A zombie has released everything; a different start time is a new
    // process that reused the pid.
    return state != 'Z' && state != 'X' && sameStart(started);
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
