#include "files/MFileManagerImpl.h"

#include <kiv/platform/Win32Types.h>

#include <algorithm>
#include <atomic>
#include <cwctype>
#include <string_view>

#include "foundation/Text.h"

namespace kiv::system {
namespace {

using platform::FileKind;
using platform::FileStatus;

// ---- paths ----

std::string Trimmed(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string Join(const std::string& directory, std::string_view name) {
    std::string path = directory;
    if (path.empty() || path.back() != '/') {
        path.push_back('/');
    }
    path.append(name);
    return path;
}

std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BaseOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A name beside `target` that no other copy uses, for the data in flight.
std::string TemporaryBeside(const std::string& target) {
    static std::atomic<unsigned int> counter{0};
    return Join(ParentOf(target), ".~kiv" + std::to_string(platform::ProcessId()) + "-" +
                                      std::to_string(counter.fetch_add(1)) + ".tmp");
}

// ---- names ----

wchar_t LowerWide(wchar_t c) {
    return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
}

// '*' matches any run of characters, '?' exactly one; the pattern is lower
// case already and `lower` folds the name's characters.
template <class Char, class Lower>
bool WildcardMatch(std::wstring_view pattern, std::basic_string_view<Char> name, Lower lower) {
    std::size_t p = 0;
    std::size_t n = 0;
    std::size_t star = std::wstring_view::npos;
    std::size_t resume = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == L'*') {
            star = p++;
            resume = n;
        } else if (p < pattern.size() && (pattern[p] == L'?' || pattern[p] == lower(name[n]))) {
            ++p;
            ++n;
        } else if (star != std::wstring_view::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == L'*') {
        ++p;
    }
    return p == pattern.size();
}

class NamePattern {
public:
    explicit NamePattern(const wchar_t* pattern) {
        if (pattern != nullptr) {
            for (const wchar_t* c = pattern; *c != L'\0'; ++c) {
                m_pattern.push_back(LowerWide(*c));
            }
        }
        // "*.*" is the device's way of saying every name, dotted or not.
        m_all = m_pattern.empty() || m_pattern == L"*" || m_pattern == L"*.*";
    }

    bool Matches(std::string_view name) const {
        if (m_all) {
            return true;
        }
        const bool ascii = std::all_of(name.begin(), name.end(),
                                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
        if (ascii) {
            return WildcardMatch(m_pattern, name, [](char c) {
                return static_cast<wchar_t>((c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c);
            });
        }
        const std::wstring wide = text::FromUtf8(name);
        return WildcardMatch(std::wstring_view(m_pattern), std::wstring_view(wide), LowerWide);
    }

private:
    std::wstring m_pattern;
    bool m_all = true;
};

// ---- listing and scanning ----

// The entries of `directory` sorted by name, each with a known kind.
unsigned int SortedEntries(const std::string& directory,
                           std::vector<platform::DirectoryEntry>& entries) {
    if (const unsigned int error = platform::ListDirectory(directory, entries);
        error != ERROR_SUCCESS) {
        return error;
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    for (auto& entry : entries) {
        if (entry.kind == FileKind::Unknown) {
            FileStatus status;
            if (platform::ReadStatus(Join(directory, entry.name), status) == ERROR_SUCCESS) {
                entry.kind = status.kind;
            }
        }
    }
    return ERROR_SUCCESS;
}

struct Search {
    const NamePattern& pattern;
    bool recursive;
    IFileFilter* filter;
    std::vector<std::wstring>& found;

    // A subdirectory that cannot be listed is passed over; the top one is
    // the caller's error.
    unsigned int Run(const std::string& directory, const std::wstring& wideDirectory) {
        std::vector<platform::DirectoryEntry> entries;
        if (const unsigned int error = SortedEntries(directory, entries); error != ERROR_SUCCESS) {
            return error;
        }
        for (const auto& entry : entries) {
            if (entry.kind == FileKind::Directory) {
                if (recursive) {
                    Run(Join(directory, entry.name), Join(wideDirectory, entry.name));
                }
            } else if (pattern.Matches(entry.name)) {
                Keep(directory, wideDirectory, entry.name);
            }
        }
        return ERROR_SUCCESS;
    }

    static std::wstring Join(const std::wstring& directory, const std::string& name) {
        std::wstring path = directory;
        if (path.empty() || path.back() != L'/') {
            path.push_back(L'/');
        }
        return path + text::FromUtf8(name);
    }
    static std::string Join(const std::string& directory, const std::string& name) {
        return kiv::system::Join(directory, name);
    }

    void Keep(const std::string& directory, const std::wstring& wideDirectory,
              const std::string& name) {
        std::wstring path = Join(wideDirectory, name);
        if (filter != nullptr) {
            WIN32_FIND_DATAW data;
            const std::wstring wideName = text::FromUtf8(name);
            if (platform::ReadFindData(Join(directory, name), wideName, data) != ERROR_SUCCESS ||
                filter->IsMatching(path.c_str(), &data) != 1) {
                return;
            }
        }
        found.push_back(std::move(path));
    }
};

struct TreeEntry {
    std::string relative;
    FileStatus status;
};

// Every entry under `root` in the order a copy creates them (a directory
// before its contents, names in byte order), with the totals.
unsigned int ScanTree(const std::string& root, const std::string& relative,
                      std::vector<TreeEntry>& tree, MFileProgress& totals) {
    std::vector<platform::DirectoryEntry> entries;
    const std::string directory = relative.empty() ? root : Join(root, relative);
    if (const unsigned int error = SortedEntries(directory, entries); error != ERROR_SUCCESS) {
        return error;
    }
    for (const auto& entry : entries) {
        TreeEntry item{relative.empty() ? entry.name : Join(relative, entry.name), {}};
        if (const unsigned int error = platform::ReadStatus(Join(root, item.relative), item.status);
            error != ERROR_SUCCESS) {
            return error;
        }
        const bool isDirectory = item.status.kind == FileKind::Directory;
        if (!isDirectory) {
            ++totals.filesTotal;
            if (item.status.kind == FileKind::File) {
                totals.bytesTotal += item.status.size;
            }
        }
        // The scan below grows `tree`; it gets its own copy of the name.
        const std::string subdirectory = isDirectory ? item.relative : std::string();
        tree.push_back(std::move(item));
        if (isDirectory) {
            if (const unsigned int error = ScanTree(root, subdirectory, tree, totals);
                error != ERROR_SUCCESS) {
                return error;
            }
        }
    }
    return ERROR_SUCCESS;
}

// Reports to the caller's callback and keeps the latest counts for the
// outcome.
class Reporter {
public:
    Reporter(MFileProgressCallback callback, void* context, MFileProgress* outcome)
        : m_callback(callback), m_context(context), m_outcome(outcome) {
        Publish();
    }
    MFileProgress& counts() { return m_counts; }
    // False when the caller cancels.
    bool Report() {
        Publish();
        return m_callback == nullptr || m_callback(&m_counts, m_context) != 0;
    }
    void Publish() {
        if (m_outcome != nullptr) {
            *m_outcome = m_counts;
        }
    }

private:
    MFileProgressCallback m_callback;
    void* m_context;
    MFileProgress* m_outcome;
    MFileProgress m_counts = {0, 0, 0, 0};
};

// Copies one non-directory; a regular file goes through a temporary name,
// so that the target name shows only complete data.
unsigned int CopyEntry(const std::string& source, const FileStatus& status,
                       const std::string& target, bool replace,
                       const platform::CopyProgress& progress) {
    if (status.kind == FileKind::Link && !replace) {
        return platform::CopyLink(source, target);
    }
    if (status.kind != FileKind::File && status.kind != FileKind::Link) {
        return ERROR_NOT_SUPPORTED;
    }
    const std::string temporary = TemporaryBeside(target);
    const unsigned int copied = status.kind == FileKind::Link
                                    ? platform::CopyLink(source, temporary)
                                    : platform::CopyFileData(source, status, temporary, progress);
    if (copied != ERROR_SUCCESS) {
        return copied;
    }
    if (const unsigned int error = platform::Rename(temporary, target, replace);
        error != ERROR_SUCCESS) {
        platform::RemoveFile(temporary);
        return error;
    }
    return ERROR_SUCCESS;
}

// True when `target` (which need not exist) would lie in or at `source`.
bool IsInside(const std::string& source, const std::string& target) {
    const std::string from = platform::CanonicalPath(source);
    const std::string parent = platform::CanonicalPath(ParentOf(target));
    if (from.empty() || parent.empty()) {
        return false;
    }
    const std::string to = Join(parent, BaseOf(target));
    return to == from || to.starts_with(from == "/" ? from : from + "/");
}

unsigned int Prepare(const wchar_t* path, std::string& narrow) {
    if (path == nullptr || *path == L'\0') {
        return ERROR_INVALID_PARAMETER;
    }
    narrow = Trimmed(text::ToUtf8(path));
    return ERROR_SUCCESS;
}

// Converts both paths of a two-path operation, the source first.
unsigned int PreparePair(const wchar_t* source, const wchar_t* target, std::string& from,
                         std::string& to) {
    const unsigned int error = Prepare(source, from);
    return error != ERROR_SUCCESS ? error : Prepare(target, to);
}

// As PreparePair, then reads what the source is.
unsigned int PrepareSource(const wchar_t* source, const wchar_t* target, std::string& from,
                           std::string& to, FileStatus& status) {
    const unsigned int error = PreparePair(source, target, from, to);
    return error != ERROR_SUCCESS ? error : platform::ReadStatus(from, status);
}

bool Exists(const std::string& path) {
    FileStatus status;
    return platform::ReadStatus(path, status) == ERROR_SUCCESS;
}

// Checks a tree operation's source and target before anything is done.
unsigned int CheckTreeTarget(const std::string& source, const std::string& target) {
    FileStatus status;
    if (const unsigned int error = platform::ReadStatus(source, status); error != ERROR_SUCCESS) {
        return error == ERROR_FILE_NOT_FOUND ? ERROR_PATH_NOT_FOUND : error;
    }
    if (status.kind != FileKind::Directory) {
        return ERROR_DIRECTORY;
    }
    if (Exists(target)) {
        return ERROR_ALREADY_EXISTS;
    }
    FileStatus parent;
    if (platform::ReadStatus(ParentOf(target), parent) != ERROR_SUCCESS ||
        parent.kind != FileKind::Directory) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (IsInside(source, target)) {
        return ERROR_INVALID_PARAMETER;
    }
    return ERROR_SUCCESS;
}

unsigned int CopyTreeChecked(const std::string& source, const std::string& target,
                             Reporter& reporter) {
    FileStatus rootStatus;
    std::vector<TreeEntry> tree;
    if (unsigned int error = platform::ReadStatus(source, rootStatus);
        error != ERROR_SUCCESS ||
        (error = ScanTree(source, "", tree, reporter.counts())) != ERROR_SUCCESS) {
        reporter.Publish();
        return error;
    }
    if (!reporter.Report()) {
        return ERROR_CANCELLED;
    }
    // Directories are made owner-writable first and get their own
    // permissions and times once their contents are in.
    if (const unsigned int error = platform::MakeDirectory(target, 0700); error != ERROR_SUCCESS) {
        return error;
    }
    MFileProgress& counts = reporter.counts();
    bool cancelled = false;
    const platform::CopyProgress onPiece = [&](std::uint64_t bytes) {
        counts.bytesDone += bytes;
        cancelled = !reporter.Report();
        return !cancelled;
    };
    std::vector<const TreeEntry*> directories;
    for (const TreeEntry& entry : tree) {
        const std::string to = Join(target, entry.relative);
        if (entry.status.kind == FileKind::Directory) {
            if (const unsigned int error = platform::MakeDirectory(to, 0700);
                error != ERROR_SUCCESS) {
                return error;
            }
            directories.push_back(&entry);
            continue;
        }
        const std::uint64_t bytesBefore = counts.bytesDone;
        const unsigned int error =
            CopyEntry(Join(source, entry.relative), entry.status, to, false, onPiece);
        if (error != ERROR_SUCCESS) {
            // A file that is not complete is not counted.
            counts.bytesDone = bytesBefore;
            reporter.Publish();
            return cancelled ? ERROR_CANCELLED : error;
        }
        ++counts.filesDone;
        if (!reporter.Report()) {
            return ERROR_CANCELLED;
        }
    }
    for (auto it = directories.rbegin(); it != directories.rend(); ++it) {
        platform::CopyDirectoryStatus(Join(target, (*it)->relative), (*it)->status);
    }
    return platform::CopyDirectoryStatus(target, rootStatus);
}

unsigned int DeleteTreeChecked(const std::string& root, Reporter& reporter) {
    std::vector<TreeEntry> tree;
    if (const unsigned int error = ScanTree(root, "", tree, reporter.counts());
        error != ERROR_SUCCESS) {
        reporter.Publish();
        return error;
    }
    if (!reporter.Report()) {
        return ERROR_CANCELLED;
    }
    MFileProgress& counts = reporter.counts();
    for (const TreeEntry& entry : tree) {
        if (entry.status.kind == FileKind::Directory) {
            continue;
        }
        if (const unsigned int error = platform::RemoveFile(Join(root, entry.relative));
            error != ERROR_SUCCESS) {
            reporter.Publish();
            return error;
        }
        ++counts.filesDone;
        if (entry.status.kind == FileKind::File) {
            counts.bytesDone += entry.status.size;
        }
        if (!reporter.Report()) {
            return ERROR_CANCELLED;
        }
    }
    for (auto it = tree.rbegin(); it != tree.rend(); ++it) {
        if (it->status.kind == FileKind::Directory) {
            if (const unsigned int error = platform::RemoveDirectory(Join(root, it->relative));
                error != ERROR_SUCCESS) {
                return error;
            }
        }
    }
    return platform::RemoveDirectory(root);
}

}  // namespace

unsigned int MFileManagerImpl::FindFiles(const wchar_t* directory, const wchar_t* pattern,
                                         unsigned char recursive, IFileFilter* filter,
                                         std::vector<std::wstring>& found) {
    std::string narrow;
    if (const unsigned int error = Prepare(directory, narrow); error != ERROR_SUCCESS) {
        return error;
    }
    FileStatus status;
    if (const unsigned int error = platform::ReadStatus(narrow, status); error != ERROR_SUCCESS) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (status.kind != FileKind::Directory) {
        return ERROR_DIRECTORY;
    }
    const NamePattern names(pattern);
    Search search{names, recursive != 0, filter, found};
    std::wstring wide = directory;
    while (wide.size() > 1 && wide.back() == L'/') {
        wide.pop_back();
    }
    return search.Run(narrow, wide);
}

unsigned int MFileManagerImpl::CopyFile(const wchar_t* source, const wchar_t* target,
                                        unsigned char failIfExists) {
    std::string from;
    std::string to;
    FileStatus status;
    if (const unsigned int error = PrepareSource(source, target, from, to, status);
        error != ERROR_SUCCESS) {
        return error;
    }
    if (status.kind == FileKind::Directory) {
        return ERROR_ACCESS_DENIED;
    }
    FileStatus existing;
    if (platform::ReadStatus(to, existing) == ERROR_SUCCESS) {
        if (failIfExists != 0) {
            return ERROR_FILE_EXISTS;
        }
        if (existing.kind == FileKind::Directory) {
            return ERROR_ACCESS_DENIED;
        }
    }
    const unsigned int error = CopyEntry(from, status, to, failIfExists == 0, nullptr);
    // The target appeared while the data was copied.
    return error == ERROR_ALREADY_EXISTS ? ERROR_FILE_EXISTS : error;
}

unsigned int MFileManagerImpl::MoveFile(const wchar_t* source, const wchar_t* target) {
    std::string from;
    std::string to;
    FileStatus status;
    if (const unsigned int error = PrepareSource(source, target, from, to, status);
        error != ERROR_SUCCESS) {
        return error;
    }
    if (status.kind == FileKind::Directory) {
        return MoveTree(source, target, nullptr, nullptr, nullptr);
    }
    const unsigned int renamed = platform::Rename(from, to, false);
    if (renamed != ERROR_NOT_SAME_DEVICE) {
        return renamed;
    }
    if (const unsigned int error = CopyEntry(from, status, to, false, nullptr);
        error != ERROR_SUCCESS) {
        return error;
    }
    if (const unsigned int error = platform::RemoveFile(from); error != ERROR_SUCCESS) {
        // The source stays; so must nothing else.
        platform::RemoveFile(to);
        return error;
    }
    return ERROR_SUCCESS;
}

unsigned int MFileManagerImpl::DeleteFile(const wchar_t* path) {
    std::string narrow;
    if (const unsigned int error = Prepare(path, narrow); error != ERROR_SUCCESS) {
        return error;
    }
    FileStatus status;
    if (const unsigned int error = platform::ReadStatus(narrow, status); error != ERROR_SUCCESS) {
        return error;
    }
    if (status.kind == FileKind::Directory) {
        return ERROR_ACCESS_DENIED;
    }
    return platform::RemoveFile(narrow);
}

unsigned int MFileManagerImpl::CreateDirectory(const wchar_t* path) {
    std::string narrow;
    if (const unsigned int error = Prepare(path, narrow); error != ERROR_SUCCESS) {
        return error;
    }
    if (Exists(narrow)) {
        return ERROR_ALREADY_EXISTS;
    }
    for (std::size_t slash = narrow.find('/', 1); slash != std::string::npos;
         slash = narrow.find('/', slash + 1)) {
        const std::string parent = narrow.substr(0, slash);
        const unsigned int error = platform::MakeDirectory(parent, 0777);
        if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS) {
            return error;
        }
    }
    return platform::MakeDirectory(narrow, 0777);
}

unsigned int MFileManagerImpl::CopyTree(const wchar_t* source, const wchar_t* target,
                                        MFileProgressCallback progress, void* context,
                                        MFileProgress* outcome) {
    Reporter reporter(progress, context, outcome);
    std::string from;
    std::string to;
    if (unsigned int error = PreparePair(source, target, from, to);
        error != ERROR_SUCCESS || (error = CheckTreeTarget(from, to)) != ERROR_SUCCESS) {
        return error;
    }
    return CopyTreeChecked(from, to, reporter);
}

unsigned int MFileManagerImpl::MoveTree(const wchar_t* source, const wchar_t* target,
                                        MFileProgressCallback progress, void* context,
                                        MFileProgress* outcome) {
    Reporter reporter(progress, context, outcome);
    std::string from;
    std::string to;
    if (unsigned int error = PreparePair(source, target, from, to);
        error != ERROR_SUCCESS || (error = CheckTreeTarget(from, to)) != ERROR_SUCCESS) {
        return error;
    }
    const unsigned int renamed = platform::Rename(from, to, false);
    if (renamed != ERROR_NOT_SAME_DEVICE) {
        return renamed;
    }
    if (const unsigned int error = CopyTreeChecked(from, to, reporter); error != ERROR_SUCCESS) {
        // Leave things as they were: the source whole, no part of a copy.
        Reporter quiet(nullptr, nullptr, nullptr);
        if (Exists(to)) {
            DeleteTreeChecked(to, quiet);
        }
        return error;
    }
    Reporter quiet(nullptr, nullptr, nullptr);
    return DeleteTreeChecked(from, quiet);
}

unsigned int MFileManagerImpl::DeleteTree(const wchar_t* path, MFileProgressCallback progress,
                                          void* context, MFileProgress* outcome) {
    Reporter reporter(progress, context, outcome);
    std::string root;
    if (const unsigned int error = Prepare(path, root); error != ERROR_SUCCESS) {
        return error;
    }
    FileStatus status;
    if (const unsigned int error = platform::ReadStatus(root, status); error != ERROR_SUCCESS) {
        return error == ERROR_FILE_NOT_FOUND ? ERROR_PATH_NOT_FOUND : error;
    }
    if (status.kind != FileKind::Directory) {
        return ERROR_DIRECTORY;
    }
    return DeleteTreeChecked(root, reporter);
}

}  // namespace kiv::system
