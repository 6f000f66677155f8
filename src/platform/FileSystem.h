// The file system under the file filters and the file manager: status and
// attributes of a path, directory listings, and the primitive changes the
// file manager composes (create, remove, rename, copy one file's data).
//
// Paths are the file system's own (UTF-8). Results are Win32 error values
// (ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED ...), the errors
// a caller of the device would get for the same failure.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct WIN32_FIND_DATAW;

namespace kiv::platform {

enum class FileKind : std::uint8_t { Unknown, File, Directory, Link, Other };

/// What the file manager needs to know of one path. Times are file times
/// (100 ns since 1601, UTC).
struct FileStatus {
    FileKind kind = FileKind::Unknown;
    unsigned int permissions = 0;  ///< the permission bits (07777)
    std::uint64_t size = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t creationTime = 0;
    std::uint64_t lastAccessTime = 0;
    std::uint64_t lastWriteTime = 0;
    std::uint32_t accessNanoseconds = 0;  ///< sub-100 ns parts, kept on copies
    std::uint32_t writeNanoseconds = 0;
};

struct DirectoryEntry {
    std::string name;
    FileKind kind = FileKind::Unknown;  ///< Unknown when the listing does not say
};

/// The status of `path`; a symbolic link is described itself, not followed.
unsigned int ReadStatus(const std::string& path, FileStatus& status);

/// The attributes of `path` (FILE_ATTRIBUTE_ bits), or INVALID_FILE_ATTRIBUTES
/// when it cannot be read. A link to a directory carries both the reparse
/// point and the directory bits.
unsigned int ReadAttributes(const std::string& path);

/// Fills `data` for `path` (not following a link); `name` goes into
/// cFileName, cut to 259 characters.
unsigned int ReadFindData(const std::string& path, const std::wstring& name,
                          WIN32_FIND_DATAW& data);

/// The entries of a directory, without "." and "..", in no particular order.
unsigned int ListDirectory(const std::string& path, std::vector<DirectoryEntry>& entries);

/// Creates one directory; ERROR_ALREADY_EXISTS when the name is taken.
unsigned int MakeDirectory(const std::string& path, unsigned int permissions);
unsigned int RemoveDirectory(const std::string& path);
/// Removes a file or a symbolic link.
unsigned int RemoveFile(const std::string& path);
/// Renames `from` to `to`. Without `replace`, an existing `to` gives
/// ERROR_ALREADY_EXISTS; across file systems, ERROR_NOT_SAME_DEVICE.
unsigned int Rename(const std::string& from, const std::string& to, bool replace);

/// Makes `path` a symbolic link with the same target as `source`, and the
/// same times.
unsigned int CopyLink(const std::string& source, const std::string& path);

/// Called after each piece of a file's data is copied with the bytes of the
/// piece; false cancels the copy.
using CopyProgress = std::function<bool(std::uint64_t bytes)>;

/// Copies the data of the regular file `source` into the new file `path`
/// (which must not exist) with the source's permissions and times. On
/// failure or cancel (ERROR_CANCELLED) `path` is removed again.
unsigned int CopyFileData(const std::string& source, const FileStatus& status,
                          const std::string& path, const CopyProgress& progress);

/// Sets the permissions and times of a directory to those of `status`.
unsigned int CopyDirectoryStatus(const std::string& path, const FileStatus& status);

/// The absolute path of an existing `path` with every link resolved; empty
/// when it cannot be resolved.
std::string CanonicalPath(const std::string& path);

/// The process id, for temporary names.
unsigned int ProcessId();

}  // namespace kiv::platform
