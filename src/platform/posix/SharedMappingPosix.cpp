#include "platform/posix/SharedMappingPosix.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kiv::platform::posix {

void* MapSharedObject(const std::string& name, std::size_t size,
                      const std::function<bool(const void*)>& isReady,
                      const std::function<bool(void*)>& initialise) {
    const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
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
