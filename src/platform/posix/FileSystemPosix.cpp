#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kiv/platform/Win32Types.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/FileSystem.h"

namespace kiv::platform {
namespace {

// Seconds from 1601-01-01 to 1970-01-01.
constexpr std::int64_t kEpochDifference = 11644473600;
constexpr std::int64_t kTicksPerSecond = 10000000;
// A piece of file data between two progress reports.
constexpr std::size_t kCopyPiece = std::size_t{8} << 20;

std::uint64_t FileTimeOf(const struct statx_timestamp& t) {
    const std::int64_t ticks =
        (static_cast<std::int64_t>(t.tv_sec) + kEpochDifference) * kTicksPerSecond +
        t.tv_nsec / 100;
    // Times before 1601 cannot be represented; they read as the earliest.
    return ticks < 0 ? 0 : static_cast<std::uint64_t>(ticks);
}

struct timespec TimeSpecOf(std::uint64_t fileTime, std::uint32_t nanoseconds) {
    struct timespec ts = {};
    ts.tv_sec = static_cast<time_t>(static_cast<std::int64_t>(fileTime / kTicksPerSecond) -
                                    kEpochDifference);
    ts.tv_nsec = static_cast<long>(nanoseconds);
    return ts;
}

FileKind KindOf(unsigned int mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return FileKind::File;
        case S_IFDIR:
            return FileKind::Directory;
        case S_IFLNK:
            return FileKind::Link;
        default:
            return FileKind::Other;
    }
}

std::string ParentOf(const std::string& path) {
    std::string parent = path;
    while (parent.size() > 1 && parent.back() == '/') {
        parent.pop_back();
    }
    const std::size_t slash = parent.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : parent.substr(0, slash);
}

// The device tells a missing file (its directory exists) from a missing
// directory on the way to it.
unsigned int MissingError(const std::string& path) {
    struct stat st = {};
    const std::string parent = ParentOf(path);
    if (stat(parent.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        return ERROR_FILE_NOT_FOUND;
    }
    return ERROR_PATH_NOT_FOUND;
}

unsigned int ErrorOf(int error, const std::string& path) {
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return MissingError(path);
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EEXIST:
            return ERROR_ALREADY_EXISTS;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        case ENOSPC:
        case EDQUOT:
            return ERROR_DISK_FULL;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case ELOOP:
            return ERROR_CANT_RESOLVE_FILENAME;
        case EXDEV:
            return ERROR_NOT_SAME_DEVICE;
        case EBUSY:
        case ETXTBSY:
            return ERROR_SHARING_VIOLATION;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        default:
            return ERROR_GEN_FAILURE;
    }
}

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    int get() const { return m_fd; }
    // Closes now and reports the close's error (a write may fail only here).
    int Close() {
        const int result = close(m_fd);
        m_fd = -1;
        return result == 0 ? 0 : errno;
    }

private:
    int m_fd;
};

constexpr unsigned int kStatxMask = STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_INO | STATX_ATIME |
                                    STATX_MTIME | STATX_CTIME | STATX_BTIME;

void FillStatus(const struct statx& sx, FileStatus& status) {
    status.kind = KindOf(sx.stx_mode);
    status.permissions = sx.stx_mode & 07777u;
    status.size = sx.stx_size;
    status.device = (static_cast<std::uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
    status.inode = sx.stx_ino;
    status.lastAccessTime = FileTimeOf(sx.stx_atime);
    status.lastWriteTime = FileTimeOf(sx.stx_mtime);
    status.accessNanoseconds = sx.stx_atime.tv_nsec;
    status.writeNanoseconds = sx.stx_mtime.tv_nsec;
    if ((sx.stx_mask & STATX_BTIME) != 0) {
        status.creationTime = FileTimeOf(sx.stx_btime);
    } else {
        // No birth time kept: the earlier of the last write and the last
        // status change stands in, so that creation is never after writing.
        status.creationTime = std::min(FileTimeOf(sx.stx_mtime), FileTimeOf(sx.stx_ctime));
    }
}

int StatxOf(const std::string& path, bool follow, struct statx& sx) {
    const int flags = AT_STATX_SYNC_AS_STAT | (follow ? 0 : AT_SYMLINK_NOFOLLOW);
    return statx(AT_FDCWD, path.c_str(), flags, kStatxMask, &sx) == 0 ? 0 : errno;
}

std::string BaseName(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') {
        trimmed.pop_back();
    }
    const std::size_t slash = trimmed.rfind('/');
    return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

unsigned int AttributesOf(const FileStatus& status, const std::string& path) {
    unsigned int attributes = 0;
    if (status.kind == FileKind::Directory) {
        attributes |= FILE_ATTRIBUTE_DIRECTORY;
    }
    if (status.kind == FileKind::Link) {
        attributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    }
    if ((status.permissions & S_IWUSR) == 0 && status.kind != FileKind::Link) {
        attributes |= FILE_ATTRIBUTE_READONLY;
    }
    const std::string name = BaseName(path);
    if (name.size() > 1 && name[0] == '.' && name != "..") {
        attributes |= FILE_ATTRIBUTE_HIDDEN;
    }
    return attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
}

// Copies with the kernel where it can (also sharing extents on file systems
// that support it), and by reading and writing where it cannot.
int CopyData(int in, int out, const CopyProgress& progress, bool& cancelled) {
    bool kernelCopy = true;
    std::unique_ptr<char[]> buffer;
    for (;;) {
        ssize_t n = -1;
        if (kernelCopy) {
            n = copy_file_range(in, nullptr, out, nullptr, kCopyPiece, 0);
            if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL ||
                          errno == EOPNOTSUPP || errno == EBADF)) {
                kernelCopy = false;
                continue;
            }
        } else {
            if (!buffer) {
                buffer = std::make_unique<char[]>(1 << 20);
            }
            n = read(in, buffer.get(), 1 << 20);
            for (ssize_t written = 0; n > 0 && written < n;) {
                const ssize_t w =
                    write(out, buffer.get() + written, static_cast<std::size_t>(n - written));
                if (w < 0) {
                    if (errno == EINTR) {
                        continue;
                    }
                    return errno;
                }
                written += w;
            }
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        if (n == 0) {
            return 0;
        }
        if (progress && !progress(static_cast<std::uint64_t>(n))) {
            cancelled = true;
            return 0;
        }
    }
}

}  // namespace

unsigned int ReadStatus(const std::string& path, FileStatus& status) {
    struct statx sx = {};
    if (const int error = StatxOf(path, false, sx); error != 0) {
        return ErrorOf(error, path);
    }
    FillStatus(sx, status);
    return ERROR_SUCCESS;
}

unsigned int ReadAttributes(const std::string& path) {
    FileStatus status;
    if (ReadStatus(path, status) != ERROR_SUCCESS) {
        return INVALID_FILE_ATTRIBUTES;
    }
    unsigned int attributes = AttributesOf(status, path);
    if (status.kind == FileKind::Link) {
        struct stat target = {};
        if (stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode)) {
            attributes |= FILE_ATTRIBUTE_DIRECTORY;
        }
    }
    return attributes;
}

unsigned int ReadFindData(const std::string& path, const std::wstring& name,
                          WIN32_FIND_DATAW& data) {
    FileStatus status;
    if (const unsigned int error = ReadStatus(path, status); error != ERROR_SUCCESS) {
        return error;
    }
    std::memset(&data, 0, sizeof data);
    data.dwFileAttributes = AttributesOf(status, path);
    const auto split = [](std::uint64_t t, FILETIME& ft) {
        ft.dwLowDateTime = static_cast<unsigned int>(t);
        ft.dwHighDateTime = static_cast<unsigned int>(t >> 32);
    };
    split(status.creationTime, data.ftCreationTime);
    split(status.lastAccessTime, data.ftLastAccessTime);
    split(status.lastWriteTime, data.ftLastWriteTime);
    data.nFileSizeHigh = static_cast<unsigned int>(status.size >> 32);
    data.nFileSizeLow = static_cast<unsigned int>(status.size);
    const std::size_t length = std::min<std::size_t>(name.size(), MAX_PATH - 1);
    std::copy_n(name.begin(), length, data.cFileName);
    return ERROR_SUCCESS;
}

unsigned int ListDirectory(const std::string& path, std::vector<DirectoryEntry>& entries) {
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) {
        return ErrorOf(errno, path);
    }
    errno = 0;
    while (const struct dirent* entry = readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
            continue;
        }
        FileKind kind = FileKind::Unknown;
        switch (entry->d_type) {
            case DT_REG:
                kind = FileKind::File;
                break;
            case DT_DIR:
                kind = FileKind::Directory;
                break;
            case DT_LNK:
                kind = FileKind::Link;
                break;
            case DT_UNKNOWN:
                break;
            default:
                kind = FileKind::Other;
                break;
        }
        entries.push_back(DirectoryEntry{name, kind});
    }
    const int error = errno;
    closedir(dir);
    return ErrorOf(error, path);
}

unsigned int MakeDirectory(const std::string& path, unsigned int permissions) {
    return mkdir(path.c_str(), permissions) == 0 ? ERROR_SUCCESS : ErrorOf(errno, path);
}

unsigned int RemoveDirectory(const std::string& path) {
    return rmdir(path.c_str()) == 0 ? ERROR_SUCCESS : ErrorOf(errno, path);
}

unsigned int RemoveFile(const std::string& path) {
    return unlink(path.c_str()) == 0 ? ERROR_SUCCESS : ErrorOf(errno, path);
}

unsigned int Rename(const std::string& from, const std::string& to, bool replace) {
    const unsigned int flags = replace ? 0u : RENAME_NOREPLACE;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0) {
        return ERROR_SUCCESS;
    }
    const int error = errno;
    // A missing source is reported for the source, anything else for the
    // target's side.
    if (error == ENOENT && access(from.c_str(), F_OK) != 0) {
        return ErrorOf(error, from);
    }
    return ErrorOf(error, to);
}

unsigned int CopyLink(const std::string& source, const std::string& path) {
    std::string target(PATH_MAX, '\0');
    const ssize_t n = readlink(source.c_str(), target.data(), target.size());
    if (n < 0) {
        return ErrorOf(errno, source);
    }
    target.resize(static_cast<std::size_t>(n));
    if (symlink(target.c_str(), path.c_str()) != 0) {
        return ErrorOf(errno, path);
    }
    FileStatus status;
    if (ReadStatus(source, status) == ERROR_SUCCESS) {
        const struct timespec times[2] = {
            TimeSpecOf(status.lastAccessTime, status.accessNanoseconds),
            TimeSpecOf(status.lastWriteTime, status.writeNanoseconds)};
        utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
    return ERROR_SUCCESS;
}

unsigned int CopyFileData(const std::string& source, const FileStatus& status,
                          const std::string& path, const CopyProgress& progress) {
    Descriptor in(open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (in.get() < 0) {
        return ErrorOf(errno, source);
    }
    // Owner write access while the data goes in; the source's permissions
    // are set at the end.
    Descriptor out(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (out.get() < 0) {
        return ErrorOf(errno, path);
    }
    bool cancelled = false;
    int error = CopyData(in.get(), out.get(), progress, cancelled);
    if (error == 0 && !cancelled) {
        const struct timespec times[2] = {
            TimeSpecOf(status.lastAccessTime, status.accessNanoseconds),
            TimeSpecOf(status.lastWriteTime, status.writeNanoseconds)};
        if (fchmod(out.get(), status.permissions) != 0 || futimens(out.get(), times) != 0) {
            error = errno;
        }
    }
    if (const int closeError = out.Close(); error == 0) {
        error = closeError;
    }
    if (error != 0 || cancelled) {
        unlink(path.c_str());
        return cancelled ? ERROR_CANCELLED : ErrorOf(error, path);
    }
    return ERROR_SUCCESS;
}

unsigned int CopyDirectoryStatus(const std::string& path, const FileStatus& status) {
    if (chmod(path.c_str(), status.permissions) != 0) {
        return ErrorOf(errno, path);
    }
    const struct timespec times[2] = {TimeSpecOf(status.lastAccessTime, status.accessNanoseconds),
                                      TimeSpecOf(status.lastWriteTime, status.writeNanoseconds)};
    return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0 ? ERROR_SUCCESS : ErrorOf(errno, path);
}

std::string CanonicalPath(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) {
        return {};
    }
    std::string result = resolved;
    std::free(resolved);
    return result;
}

unsigned int ProcessId() {
    return static_cast<unsigned int>(getpid());
}

}  // namespace kiv::platform
