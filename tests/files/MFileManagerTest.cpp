#include <kiv/files/MFileExtensionFilter.h>
#include <kiv/files/MFileFilter.h>
#include <kiv/files/MFileManager.h>
#include <kiv/platform/Win32Types.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"

namespace fs = std::filesystem;
using kiv::system::MFileManager;
using kiv::system::MFileProgress;

namespace {

std::wstring Wide(const std::string& s) {
    return kiv::text::FromUtf8(s);
}

std::string Root(const std::string& name) {
    return kiv::test::TempPath(name);
}

void Write(const std::string& path, const std::string& bytes, mode_t mode = 0644) {
    fs::create_directories(fs::path(path).parent_path());
    ASSERT_TRUE(kiv::test::WriteFileBytes(path, bytes));
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

void SetModified(const std::string& path, time_t seconds, long nanoseconds) {
    const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

struct Node {
    char kind;            // 'f' file, 'd' directory, 'l' link
    std::string content;  // the data, or the link's target
    unsigned int mode;
    long long mtimeNs;
    bool operator==(const Node&) const = default;
};

// Everything under `root`, links not followed, keyed by relative path.
std::map<std::string, Node> Snapshot(const std::string& root) {
    std::map<std::string, Node> nodes;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
         ++it) {
        struct stat st = {};
        lstat(it->path().c_str(), &st);
        Node node{
            'f', {}, st.st_mode & 07777u, st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec};
        if (S_ISLNK(st.st_mode)) {
            node.kind = 'l';
            node.content = fs::read_symlink(it->path()).string();
        } else if (S_ISDIR(st.st_mode)) {
            node.kind = 'd';
        } else {
            node.content = kiv::test::ReadFileBytes(it->path());
        }
        nodes[it->path().lexically_relative(root).string()] = node;
    }
    return nodes;
}

// A small tree: files with set permissions and times, nested directories, a
// link back to the top (a loop) and a link to a file.
void MakeTree(const std::string& root) {
    Write(root + "/a.txt", "alpha", 0640);
    Write(root + "/B.TXT", "bravo");
    Write(root + "/c.log", std::string(5000, 'c'), 0600);
    Write(root + "/sub/d.txt", "delta");
    Write(root + "/sub/deeper/e.TxT", "echo", 0444);
    ASSERT_EQ(symlink("..", (root + "/sub/loop").c_str()), 0);
    ASSERT_EQ(symlink("a.txt", (root + "/alias").c_str()), 0);
    SetModified(root + "/a.txt", 1100000000, 123456789);
    SetModified(root + "/sub/deeper/e.TxT", 1200000000, 5);
    SetModified(root + "/sub/loop", 1300000000, 0);
    ASSERT_EQ(chmod((root + "/sub/deeper").c_str(), 0750), 0);
    SetModified(root + "/sub/deeper", 1000000000, 0);
}

std::vector<std::string> Relative(const std::vector<std::wstring>& found, const std::string& root) {
    std::vector<std::string> names;
    for (const auto& path : found) {
        names.push_back(fs::path(kiv::text::ToUtf8(path)).lexically_relative(root).string());
    }
    return names;
}

// Makes permission bits bind the superuser as well while it lives: drops
// the calling thread's effective overriding capabilities, and raises them
// again at the end.
class PermissionsApply {
public:
    PermissionsApply() {
        capget(&m_header, m_saved);
        __user_cap_data_struct reduced[2] = {m_saved[0], m_saved[1]};
        reduced[0].effective &=
            ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH) | (1u << CAP_FOWNER));
        m_ok = capset(&m_header, reduced) == 0;
    }
    ~PermissionsApply() { capset(&m_header, m_saved); }
    bool ok() const { return m_ok; }

private:
    static int capget(__user_cap_header_struct* h, __user_cap_data_struct* d) {
        return static_cast<int>(syscall(SYS_capget, h, d));
    }
    static int capset(__user_cap_header_struct* h, const __user_cap_data_struct* d) {
        return static_cast<int>(syscall(SYS_capset, h, d));
    }
    __user_cap_header_struct m_header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_saved[2] = {};
    bool m_ok = false;
};

// Records what a search showed the filter, and keeps names with a small "t".
class RecordingFilter : public kiv::system::IFileFilter {
public:
    unsigned char IsMatching(const wchar_t* path, void* findData) override {
        const auto* data = static_cast<const WIN32_FIND_DATAW*>(findData);
        seen[kiv::text::ToUtf8(data->cFileName)] = {kiv::text::ToUtf8(path), data->nFileSizeLow,
                                                    data->dwFileAttributes};
        return std::wstring(data->cFileName).find(L't') != std::wstring::npos ? 1 : 0;
    }
    struct Seen {
        std::string path;
        unsigned int size;
        unsigned int attributes;
    };
    std::map<std::string, Seen> seen;
};

}  // namespace

TEST(MFileManager, FindFilesMatchesPatternsWithoutCaseInStableOrderAndEndsOnLinkLoops) {
    const std::string root = Root("tree");
    MakeTree(root);
    MFileManager manager;
    std::vector<std::wstring> found;

    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), L"*.txt", 0, nullptr, found), ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root), (std::vector<std::string>{"B.TXT", "a.txt"}));

    found.clear();
    ASSERT_EQ(manager.FindFiles(Wide(root + "/").c_str(), L"*.TXT", 1, nullptr, found),
              ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root),
              (std::vector<std::string>{"B.TXT", "a.txt", "sub/d.txt", "sub/deeper/e.TxT"}));
    EXPECT_EQ(found.front(), Wide(root + "/B.TXT"));

    found.clear();
    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), L"?.l*g", 1, nullptr, found), ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root), (std::vector<std::string>{"c.log"}));

    // Links are found as files and never entered.
    found.clear();
    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), L"*.*", 1, nullptr, found), ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root),
              (std::vector<std::string>{"B.TXT", "a.txt", "alias", "c.log", "sub/d.txt",
                                        "sub/deeper/e.TxT", "sub/loop"}));

    found.clear();
    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), nullptr, 0, nullptr, found), ERROR_SUCCESS);
    EXPECT_EQ(found.size(), 4u);

    found.clear();
    EXPECT_EQ(manager.FindFiles(Wide(root + "/none").c_str(), L"*", 0, nullptr, found),
              ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(manager.FindFiles(Wide(root + "/a.txt").c_str(), L"*", 0, nullptr, found),
              ERROR_DIRECTORY);
    EXPECT_EQ(manager.FindFiles(nullptr, L"*", 0, nullptr, found), ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(found.empty());
}

TEST(MFileManager, FindFilesAsksTheFilterAboutEveryMatchWithItsFindData) {
    const std::string root = Root("tree");
    MakeTree(root);
    MFileManager manager;
    std::vector<std::wstring> found;

    RecordingFilter recording;
    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), L"*", 1, &recording, found), ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root), (std::vector<std::string>{"a.txt", "sub/d.txt"}));
    ASSERT_EQ(recording.seen.size(), 7u);
    EXPECT_EQ(recording.seen["c.log"].size, 5000u);
    EXPECT_EQ(recording.seen["c.log"].path, root + "/c.log");
    EXPECT_EQ(recording.seen["e.TxT"].attributes, FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(recording.seen["alias"].attributes, FILE_ATTRIBUTE_REPARSE_POINT);

    std::vector<std::string> logs = {"LOG"};
    kiv::system::MFileExtensionFilter byExtension(logs);
    found.clear();
    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), L"*", 1, &byExtension, found), ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root), (std::vector<std::string>{"c.log"}));

    // The plain filter drops the link to a directory and keeps everything else.
    kiv::system::MFileFilter plain;
    found.clear();
    ASSERT_EQ(manager.FindFiles(Wide(root).c_str(), L"*", 1, &plain, found), ERROR_SUCCESS);
    EXPECT_EQ(Relative(found, root), (std::vector<std::string>{"B.TXT", "a.txt", "alias", "c.log",
                                                               "sub/d.txt", "sub/deeper/e.TxT"}));
}

TEST(MFileManager, CopyFileKeepsDataPermissionsTimesAndLinksAndReportsDeviceErrors) {
    const std::string root = Root("tree");
    MakeTree(root);
    const std::string out = Root("out");
    fs::create_directory(out);
    MFileManager manager;

    ASSERT_EQ(manager.CopyFile(Wide(root + "/a.txt").c_str(), Wide(out + "/a.txt").c_str(), 1),
              ERROR_SUCCESS);
    ASSERT_EQ(manager.CopyFile(Wide(root + "/alias").c_str(), Wide(out + "/alias").c_str(), 1),
              ERROR_SUCCESS);
    const auto copied = Snapshot(out);
    const auto original = Snapshot(root);
    ASSERT_EQ(copied.size(), 2u);  // no temporary file left beside them
    EXPECT_EQ(copied.at("a.txt"), original.at("a.txt"));
    EXPECT_EQ(copied.at("alias").content, "a.txt");

    // An existing target: refused and untouched, or replaced.
    Write(out + "/b.txt", "old");
    EXPECT_EQ(manager.CopyFile(Wide(root + "/B.TXT").c_str(), Wide(out + "/b.txt").c_str(), 1),
              ERROR_FILE_EXISTS);
    EXPECT_EQ(kiv::test::ReadFileBytes(out + "/b.txt"), "old");
    EXPECT_EQ(manager.CopyFile(Wide(root + "/B.TXT").c_str(), Wide(out + "/b.txt").c_str(), 0),
              ERROR_SUCCESS);
    EXPECT_EQ(kiv::test::ReadFileBytes(out + "/b.txt"), "bravo");
    EXPECT_EQ(manager.CopyFile(Wide(root + "/B.TXT").c_str(), Wide(root + "/sub").c_str(), 0),
              ERROR_ACCESS_DENIED);

    EXPECT_EQ(manager.CopyFile(Wide(root + "/none").c_str(), Wide(out + "/x").c_str(), 0),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(manager.CopyFile(Wide(root + "/no/a").c_str(), Wide(out + "/x").c_str(), 0),
              ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(manager.CopyFile(Wide(root + "/a.txt").c_str(), Wide(out + "/no/x").c_str(), 0),
              ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(manager.CopyFile(Wide(root + "/sub").c_str(), Wide(out + "/x").c_str(), 0),
              ERROR_ACCESS_DENIED);

    const std::string locked = Root("locked");
    fs::create_directory(locked);
    Write(locked + "/keep.txt", "keep");
    ASSERT_EQ(chmod(locked.c_str(), 0555), 0);
    {
        PermissionsApply permissions;
        ASSERT_TRUE(permissions.ok());
        EXPECT_EQ(
            manager.CopyFile(Wide(root + "/a.txt").c_str(), Wide(locked + "/a.txt").c_str(), 0),
            ERROR_ACCESS_DENIED);
        EXPECT_EQ(manager.DeleteFile(Wide(locked + "/keep.txt").c_str()), ERROR_ACCESS_DENIED);
        EXPECT_EQ(
            manager.MoveFile(Wide(locked + "/keep.txt").c_str(), Wide(out + "/keep.txt").c_str()),
            ERROR_ACCESS_DENIED);
        EXPECT_EQ(manager.CreateDirectory(Wide(locked + "/new/deeper").c_str()),
                  ERROR_ACCESS_DENIED);
    }
    chmod(locked.c_str(), 0755);
    EXPECT_EQ(kiv::test::ReadFileBytes(locked + "/keep.txt"), "keep");
}

TEST(MFileManager, AFullFileSystemGivesDiskFullAndLeavesNoPartialFile) {
    const std::string source = Root("one.bin");
    Write(source, std::string(1u << 20, 'x'));
    const std::string small = Root("small");
    fs::create_directory(small);
    // A 64 KiB file system in a mount namespace of a child process, so that
    // nothing of it outlives the child.
    const pid_t pid = fork();
    if (pid == 0) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("kivtest", small.c_str(), "tmpfs", 0, "size=64k") != 0) {
            _exit(77);
        }
        MFileManager manager;
        const unsigned int error =
            manager.CopyFile(Wide(source).c_str(), Wide(small + "/copy.bin").c_str(), 1);
        _exit(error != ERROR_DISK_FULL ? 1 : (fs::is_empty(small) ? 0 : 2));
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no private mount namespace for a small file system (needs privilege)";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: not ERROR_DISK_FULL; 2: something was left behind";
}

TEST(MFileManager, MoveDeleteAndCreateDirectoryOnFiles) {
    const std::string root = Root("tree");
    MakeTree(root);
    MFileManager manager;

    EXPECT_EQ(manager.MoveFile(Wide(root + "/a.txt").c_str(), Wide(root + "/B.TXT").c_str()),
              ERROR_ALREADY_EXISTS);
    EXPECT_EQ(kiv::test::ReadFileBytes(root + "/B.TXT"), "bravo");
    const auto before = Snapshot(root).at("a.txt");
    ASSERT_EQ(
        manager.MoveFile(Wide(root + "/a.txt").c_str(), Wide(root + "/sub/moved.txt").c_str()),
        ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(root + "/a.txt"));
    EXPECT_EQ(Snapshot(root).at("sub/moved.txt"), before);
    EXPECT_EQ(manager.MoveFile(Wide(root + "/a.txt").c_str(), Wide(root + "/x").c_str()),
              ERROR_FILE_NOT_FOUND);

    EXPECT_EQ(manager.DeleteFile(Wide(root + "/sub").c_str()), ERROR_ACCESS_DENIED);
    EXPECT_EQ(manager.DeleteFile(Wide(root + "/sub/loop").c_str()), ERROR_SUCCESS);
    EXPECT_TRUE(fs::exists(root + "/sub/d.txt"));
    EXPECT_EQ(manager.DeleteFile(Wide(root + "/sub/d.txt").c_str()), ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(root + "/sub/d.txt"));
    EXPECT_EQ(manager.DeleteFile(Wide(root + "/sub/d.txt").c_str()), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(manager.DeleteFile(Wide(root + "/gone/d.txt").c_str()), ERROR_PATH_NOT_FOUND);

    ASSERT_EQ(manager.CreateDirectory(Wide(root + "/n1/n2/n3").c_str()), ERROR_SUCCESS);
    EXPECT_TRUE(fs::is_directory(root + "/n1/n2/n3"));
    EXPECT_EQ(manager.CreateDirectory(Wide(root + "/n1/n2").c_str()), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(manager.CreateDirectory(Wide(root + "/B.TXT").c_str()), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(manager.CreateDirectory(Wide(root + "/B.TXT/x").c_str()), ERROR_PATH_NOT_FOUND);
}

TEST(MFileManager, CopyTreeReproducesTheTreeAndCountsWhatItDid) {
    const std::string root = Root("tree");
    MakeTree(root);
    MFileManager manager;
    std::vector<MFileProgress> reports;
    auto record = [](const MFileProgress* p, void* context) -> unsigned char {
        static_cast<std::vector<MFileProgress>*>(context)->push_back(*p);
        return 1;
    };
    MFileProgress outcome = {};
    ASSERT_EQ(manager.CopyTree(Wide(root).c_str(), Wide(Root("copy")).c_str(), record, &reports,
                               &outcome),
              ERROR_SUCCESS);
    EXPECT_EQ(Snapshot(Root("copy")), Snapshot(root));
    // Five files and two links; 5 + 5 + 5000 + 5 + 4 bytes.
    EXPECT_EQ(outcome.filesTotal, 7u);
    EXPECT_EQ(outcome.filesDone, 7u);
    EXPECT_EQ(outcome.bytesTotal, 5019u);
    EXPECT_EQ(outcome.bytesDone, 5019u);
    ASSERT_GE(reports.size(), 8u);
    EXPECT_EQ(reports.front().filesDone, 0u);
    for (std::size_t i = 1; i < reports.size(); ++i) {
        EXPECT_GE(reports[i].filesDone, reports[i - 1].filesDone);
        EXPECT_GE(reports[i].bytesDone, reports[i - 1].bytesDone);
    }

    EXPECT_EQ(manager.CopyTree(Wide(root).c_str(), Wide(Root("copy")).c_str()),
              ERROR_ALREADY_EXISTS);
    EXPECT_EQ(manager.CopyTree(Wide(root).c_str(), Wide(root + "/sub/inside").c_str()),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(
        manager.CopyTree(Wide(root + "/sub/loop").c_str(), Wide(root + "/sub/loop/x").c_str()),
        ERROR_DIRECTORY);
    EXPECT_FALSE(fs::exists(root + "/sub/inside"));
    EXPECT_EQ(manager.CopyTree(Wide(root + "/none").c_str(), Wide(Root("c2")).c_str()),
              ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(manager.CopyTree(Wide(root + "/a.txt").c_str(), Wide(Root("c2")).c_str()),
              ERROR_DIRECTORY);
}

TEST(MFileManager, ACancelledTreeCopyLeavesOnlyCompleteFilesAndTheSourceIntact) {
    const std::string root = Root("tree");
    MakeTree(root);
    // Larger than one piece of a copy, so the cancel lands inside it.
    Write(root + "/big.bin", std::string(20u << 20, 'b'));
    const auto source = Snapshot(root);
    MFileManager manager;
    auto cancelInBig = [](const MFileProgress* p, void*) -> unsigned char {
        return p->bytesDone > 0 && p->filesDone >= 2 ? 0 : 1;
    };
    MFileProgress outcome = {};
    const std::string copy = Root("copy");
    EXPECT_EQ(
        manager.CopyTree(Wide(root).c_str(), Wide(copy).c_str(), cancelInBig, nullptr, &outcome),
        ERROR_CANCELLED);
    EXPECT_EQ(Snapshot(root), source);
    EXPECT_LT(outcome.filesDone, outcome.filesTotal);
    EXPECT_EQ(outcome.filesTotal, 8u);
    const auto partial = Snapshot(copy);
    std::size_t files = 0;
    for (const auto& [path, node] : partial) {
        ASSERT_TRUE(source.count(path)) << path;  // nothing but final names
        if (node.kind != 'd') {
            EXPECT_EQ(node.content, source.at(path).content) << path;
            ++files;
        }
    }
    EXPECT_EQ(files, outcome.filesDone);
    EXPECT_FALSE(fs::exists(copy + "/big.bin"));

    // A move that is cancelled is a rename here and cannot be; a delete can.
    auto cancelAfterOne = [](const MFileProgress* p, void*) -> unsigned char {
        return p->filesDone >= 1 ? 0 : 1;
    };
    EXPECT_EQ(manager.DeleteTree(Wide(copy).c_str(), cancelAfterOne, nullptr, &outcome),
              ERROR_CANCELLED);
    EXPECT_EQ(outcome.filesDone, 1u);
    EXPECT_EQ(Snapshot(copy).size() + 1, partial.size());
}

TEST(MFileManager, DeleteTreeRemovesLinksNotTheirTargetsAndStopsAtAReadOnlyDirectory) {
    const std::string root = Root("tree");
    MakeTree(root);
    Write(Root("outside/keep.txt"), "keep");
    ASSERT_EQ(symlink(Root("outside").c_str(), (root + "/sub/out").c_str()), 0);
    MFileManager manager;
    MFileProgress outcome = {};

    {
        ASSERT_EQ(chmod((root + "/sub/deeper").c_str(), 0555), 0);
        PermissionsApply permissions;
        ASSERT_TRUE(permissions.ok());
        EXPECT_EQ(manager.DeleteTree(Wide(root).c_str(), nullptr, nullptr, &outcome),
                  ERROR_ACCESS_DENIED);
        EXPECT_LT(outcome.filesDone, outcome.filesTotal);
        EXPECT_TRUE(fs::exists(root + "/sub/deeper/e.TxT"));
    }
    ASSERT_EQ(chmod((root + "/sub/deeper").c_str(), 0755), 0);
    ASSERT_EQ(manager.DeleteTree(Wide(root).c_str(), nullptr, nullptr, &outcome), ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(root));
    EXPECT_EQ(outcome.filesDone, outcome.filesTotal);
    EXPECT_EQ(kiv::test::ReadFileBytes(Root("outside/keep.txt")), "keep");
    EXPECT_EQ(manager.DeleteTree(Wide(root).c_str()), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(manager.DeleteTree(Wide(Root("outside/keep.txt")).c_str()), ERROR_DIRECTORY);
}

TEST(MFileManager, MoveTreeWithinAFileSystemRenames) {
    const std::string root = Root("tree");
    MakeTree(root);
    const auto source = Snapshot(root);
    fs::create_directory(Root("taken"));
    MFileManager manager;
    EXPECT_EQ(manager.MoveTree(Wide(root).c_str(), Wide(Root("taken")).c_str()),
              ERROR_ALREADY_EXISTS);
    EXPECT_EQ(manager.MoveTree(Wide(root).c_str(), Wide(root + "/sub/x").c_str()),
              ERROR_INVALID_PARAMETER);
    struct stat before = {};
    ASSERT_EQ(lstat((root + "/c.log").c_str(), &before), 0);
    ASSERT_EQ(manager.MoveTree(Wide(root).c_str(), Wide(Root("moved")).c_str()), ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(root));
    EXPECT_EQ(Snapshot(Root("moved")), source);
    struct stat after = {};
    ASSERT_EQ(lstat(Root("moved/c.log").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);  // renamed, not copied
}

TEST(MFileManager, MovesAcrossFileSystemsCopyThenDeleteAndUndoAFailedCopy) {
    struct stat temp = {};
    struct stat shm = {};
    if (stat("/dev/shm", &shm) != 0 || stat(kiv::test::TestRoot().c_str(), &temp) != 0 ||
        temp.st_dev == shm.st_dev) {
        GTEST_SKIP()
            << "no second file system: /dev/shm is missing or on the temporary directory's";
    }
    const std::string other = "/dev/shm/kiv-files-" + kiv::test::TestNamespace();
    fs::remove_all(other);
    ASSERT_TRUE(fs::create_directory(other));
    const std::string root = Root("tree");
    MakeTree(root);
    const auto source = Snapshot(root);
    MFileManager manager;

    auto cancelAtSecond = [](const MFileProgress* p, void*) -> unsigned char {
        return p->filesDone >= 2 ? 0 : 1;
    };
    MFileProgress outcome = {};
    EXPECT_EQ(manager.MoveTree(Wide(root).c_str(), Wide(other + "/t").c_str(), cancelAtSecond,
                               nullptr, &outcome),
              ERROR_CANCELLED);
    EXPECT_EQ(outcome.filesDone, 2u);
    EXPECT_FALSE(fs::exists(other + "/t"));
    EXPECT_EQ(Snapshot(root), source);

    ASSERT_EQ(manager.MoveTree(Wide(root).c_str(), Wide(other + "/t").c_str(), nullptr, nullptr,
                               &outcome),
              ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(root));
    EXPECT_EQ(Snapshot(other + "/t"), source);
    EXPECT_EQ(outcome.filesDone, 7u);

    ASSERT_EQ(manager.MoveFile(Wide(other + "/t/a.txt").c_str(), Wide(Root("a.txt")).c_str()),
              ERROR_SUCCESS);
    EXPECT_FALSE(fs::exists(other + "/t/a.txt"));
    EXPECT_EQ(Snapshot(kiv::test::TestRoot()).at("a.txt"), source.at("a.txt"));
    fs::remove_all(other);
}
