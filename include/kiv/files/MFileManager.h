// Searches directories and copies, moves and deletes files and directory
// trees, with the errors a caller of the device would get.
//
// Paths are wide and reach the file system as MFile's do. Results are Win32
// error values: ERROR_SUCCESS (0), ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
// ERROR_ACCESS_DENIED, ERROR_ALREADY_EXISTS, ERROR_FILE_EXISTS,
// ERROR_DISK_FULL, ERROR_CANCELLED ...; 0xFF when the object has no
// implementation. Nothing throws. Copies share one implementation.
//
// Copies keep permissions and modification times, copy symbolic links as
// links, and give a file its final name only once all of it is written.
// Symbolic links are never followed, so a search or a tree operation ends
// on any tree.
#pragma once

#include <kiv/files/IFileFilter.h>
#include <kiv/platform/KivApi.h>

#include <string>
#include <vector>

namespace kiv::system {

/// How far a tree operation got. Files count everything but directories
/// (symbolic links included); bytes count the data of regular files.
struct MFileProgress {
    unsigned long long filesDone;
    unsigned long long filesTotal;
    unsigned long long bytesDone;
    unsigned long long bytesTotal;
};

/// Called during a tree operation, on the caller's thread; returning 0
/// cancels the operation, which then ends with ERROR_CANCELLED.
typedef unsigned char (*MFileProgressCallback)(const MFileProgress* progress, void* context);

class MFileManagerImpl;

class KIV_API MFileManager {
public:
    MFileManager();
    MFileManager(const MFileManager& other);
    MFileManager& operator=(const MFileManager& other);
    ~MFileManager();

    /// Appends to `found` the paths of the files (not directories) in
    /// `directory` whose names match `pattern` ('*', '?', case ignored; null
    /// or "*.*" match all) and that `filter`, if given, keeps. With
    /// `recursive`, subdirectories are searched too. The order is stable:
    /// names in byte order, each subdirectory's files where it would sort.
    unsigned int FindFiles(const wchar_t* directory, const wchar_t* pattern,
                           unsigned char recursive, IFileFilter* filter,
                           std::vector<std::wstring>& found);

    /// Copies one file (a link as a link). With `failIfExists`, an existing
    /// target gives ERROR_FILE_EXISTS; otherwise a file is replaced.
    unsigned int CopyFile(const wchar_t* source, const wchar_t* target, unsigned char failIfExists);
    /// Renames a file or a directory; across file systems, copies and then
    /// deletes the source. An existing target gives ERROR_ALREADY_EXISTS.
    unsigned int MoveFile(const wchar_t* source, const wchar_t* target);
    /// Deletes a file or a link; a directory gives ERROR_ACCESS_DENIED.
    unsigned int DeleteFile(const wchar_t* path);
    /// Creates a directory and any missing parents; ERROR_ALREADY_EXISTS if
    /// `path` exists.
    unsigned int CreateDirectory(const wchar_t* path);

    /// Copies the tree `source` to the new directory `target`. Refused with
    /// ERROR_INVALID_PARAMETER when `target` lies inside `source`. On failure
    /// or cancel, what was copied stays (complete files only) and `outcome`
    /// says how much that was.
    unsigned int CopyTree(const wchar_t* source, const wchar_t* target,
                          MFileProgressCallback progress = nullptr, void* context = nullptr,
                          MFileProgress* outcome = nullptr);
    /// Moves a tree: a rename (no progress, no counts), or across file
    /// systems a copy (with progress) and then the deletion of the source. A
    /// failed or cancelled copy is removed again; the source stays as it was.
    unsigned int MoveTree(const wchar_t* source, const wchar_t* target,
                          MFileProgressCallback progress = nullptr, void* context = nullptr,
                          MFileProgress* outcome = nullptr);
    /// Deletes a tree. On failure or cancel `outcome` says what is left.
    unsigned int DeleteTree(const wchar_t* path, MFileProgressCallback progress = nullptr,
                            void* context = nullptr, MFileProgress* outcome = nullptr);

private:
    MFileManagerImpl* m_impl;
};

}  // namespace kiv::system
