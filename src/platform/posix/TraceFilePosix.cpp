#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/TraceFile.h"

namespace kiv::platform {

std::unique_ptr<TraceFile> TraceFile::FromEnvironment(const char* variable) {
    const char* path = std::getenv(variable);
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) {
        return nullptr;
    }
    return std::unique_ptr<TraceFile>(new TraceFile(fd));
}

TraceFile::~TraceFile() {
    close(m_fd);
}

void TraceFile::Append(std::string_view record) {
    [[maybe_unused]] const ssize_t n = write(m_fd, record.data(), record.size());
}

long long TraceFile::ThreadCpuNs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<long long>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

}  // namespace kiv::platform
