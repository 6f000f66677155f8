// Log files on file descriptors, behind handles that are never reused.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <mutex>
#include <unordered_map>

#include "foundation/Text.h"
#include "platform/LogFile.h"

namespace kiv::platform {
namespace {

class HandleTable {
public:
    int Add(int fd) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_next == INT_MAX) {
            return kInvalidLogFile;
        }
        const int handle = m_next++;
        m_files.emplace(handle, fd);
        return handle;
    }
    int Find(int handle) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_files.find(handle);
        return it == m_files.end() ? -1 : it->second;
    }
    int Remove(int handle) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_files.find(handle);
        if (it == m_files.end()) {
            return -1;
        }
        const int fd = it->second;
        m_files.erase(it);
        return fd;
    }

private:
    std::mutex m_mutex;
    int m_next = 1;
    std::unordered_map<int, int> m_files;
};

HandleTable& Handles() {
    static HandleTable table;
    return table;
}

}  // namespace

int OpenLogFile(const std::wstring& path, bool truncate) {
    const int flags = O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | (truncate ? O_TRUNC : 0);
    const int fd = open(text::ToUtf8(path).c_str(), flags, 0644);
    if (fd < 0) {
        return kInvalidLogFile;
    }
    const int handle = Handles().Add(fd);
    if (handle == kInvalidLogFile) {
        close(fd);
    }
    return handle;
}

void CloseLogFile(int handle) {
    const int fd = Handles().Remove(handle);
    if (fd >= 0) {
        close(fd);
    }
}

bool LogFileSize(int handle, unsigned long long& size) {
    const int fd = Handles().Find(handle);
    struct stat st {};
    if (fd < 0 || fstat(fd, &st) != 0) {
        return false;
    }
    size = static_cast<unsigned long long>(st.st_size);
    return true;
}

bool AppendToLogFile(int handle, const void* data, std::size_t size) {
    const int fd = Handles().Find(handle);
    if (fd < 0) {
        return false;
    }
    const auto* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::wstring ExecutablePath() {
    char buffer[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof buffer) {
        return {};
    }
    return text::FromUtf8(std::string_view(buffer, static_cast<std::size_t>(n)));
}

}  // namespace kiv::platform
