#include "platform/posix/SharedMappingPosix.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/Text.h"
#include "platform/DebugOutput.h"

namespace kiv::platform::posix {
namespace {

void Refuse(const std::string& name, const char* why) {
    OutputDebugText(text::FromUtf8("Shared object " + name + " refused: " + why + "\n"));
}

}  // namespace

int OpenOwnedSharedObject(const std::string& name, std::size_t size) {
    // Two tries: an object that vanishes between the exclusive create and
    // the open is created again.
    for (int attempt = 0; attempt < 2; ++attempt) {
        int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd >= 0) {
            return fd;
        }
        if (errno != EEXIST) {
            return -1;
        }
        fd = shm_open(name.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0);
        if (fd < 0) {
            if (errno == ENOENT) {
                continue;
            }
            if (errno == EACCES) {
                Refuse(name, "not accessible to this user");
            }
            return -1;
        }
        struct stat st {};
        const char* why = nullptr;
        if (fstat(fd, &st) != 0) {
            why = "cannot be examined";
        } else if (!S_ISREG(st.st_mode)) {
            why = "not a plain object";
        } else if (st.st_uid != geteuid()) {
            why = "owned by another user";
        } else if ((st.st_mode & 077) != 0) {
            why = "open to group or others";
        } else if (st.st_size != 0 && st.st_size != static_cast<off_t>(size)) {
            why = "of an unexpected size";
        }
        if (why == nullptr) {
            return fd;
        }
        close(fd);
        Refuse(name, why);
        return -1;
    }
    return -1;
}

void* MapSharedObject(const std::string& name, std::size_t size,
                      const std::function<bool(const void*)>& isReady,
                      const std::function<bool(void*)>& initialise) {
    const int fd = OpenOwnedSharedObject(name, size);
    if (fd < 0) {
        return nullptr;
    }
    void* result = nullptr;
    int rc;
    do {
        rc = flock(fd, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
    struct stat st {};
    if (rc == 0 && fstat(fd, &st) == 0) {
        const auto wanted = static_cast<off_t>(size);
        if ((st.st_size == 0 && ftruncate(fd, wanted) == 0) || st.st_size == wanted) {
            void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (p != MAP_FAILED) {
                if (isReady(p) || initialise(p)) {
                    result = p;
                } else {
                    munmap(p, size);
                }
            }
        }
        flock(fd, LOCK_UN);
    }
    close(fd);
    return result;
}

void UnmapSharedObject(void* base, std::size_t size) {
    if (base != nullptr) {
        munmap(base, size);
    }
}

}  // namespace kiv::platform::posix
