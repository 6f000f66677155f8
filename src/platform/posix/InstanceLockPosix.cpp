#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/InstanceLock.h"
#include "platform/Namespace.h"
#include "platform/posix/SharedMappingPosix.h"

namespace kiv::platform {

std::unique_ptr<InstanceLock> InstanceLock::TryAcquire(std::wstring_view name) {
    return Take(name, LOCK_EX | LOCK_NB);
}

std::unique_ptr<InstanceLock> InstanceLock::Acquire(std::wstring_view name) {
    return Take(name, LOCK_EX);
}

std::unique_ptr<InstanceLock> InstanceLock::Take(std::wstring_view name, int how) {
    const std::string object = SystemObjectName("lock", name);
    const long pid = static_cast<long>(getpid());
    const int fd = posix::OpenOwnedSharedObject(object, sizeof pid);
    if (fd < 0) {
        return nullptr;
    }
    // The object itself is never removed: removing it would let a second
    // process lock a fresh object while the first still holds the old one.
    int rc;
    do {
        rc = flock(fd, how);
    } while (rc != 0 && errno == EINTR && (how & LOCK_NB) == 0);
    if (rc != 0) {
        close(fd);
        return nullptr;
    }
    // Others learn who holds it from its content.
    if (ftruncate(fd, sizeof pid) != 0 || pwrite(fd, &pid, sizeof pid, 0) != sizeof pid) {
        close(fd);
        return nullptr;
    }
    return std::unique_ptr<InstanceLock>(new InstanceLock(fd));
}

long InstanceLock::Holder(std::wstring_view name) {
    const std::string object = SystemObjectName("lock", name);
    const int fd = shm_open(object.c_str(), O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {
        return 0;
    }
    long pid = 0;
    if (flock(fd, LOCK_SH | LOCK_NB) == 0) {
        flock(fd, LOCK_UN);  // nobody holds it
    } else if (pread(fd, &pid, sizeof pid, 0) != sizeof pid || pid <= 0) {
        pid = -1;
    }
    close(fd);
    return pid;
}

InstanceLock::~InstanceLock() {
    close(m_fd);
}

}  // namespace kiv::platform
