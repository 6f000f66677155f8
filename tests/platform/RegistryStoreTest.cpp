#include <sqlite3.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/RegistryStore.h"
#include "support/KivTestEnvironment.h"

using kiv::platform::RegistryBatch;
using kiv::platform::RegistrySnapshot;
using kiv::platform::RegistryStore;

namespace {

// An open key that closes itself.
struct Key {
    HKEY h = nullptr;
    ~Key() {
        if (h != nullptr) {
            RegistryStore::CloseKey(h);
        }
    }
};

unsigned int Make(Key& key, const wchar_t* path) {
    return RegistryStore::CreateKey(HKEY_CURRENT_USER, path, nullptr, &key.h, nullptr);
}

unsigned int SetDword(HKEY key, const wchar_t* name, unsigned int v) {
    return RegistryStore::SetValue(key, name, REG_DWORD, &v, sizeof v);
}

unsigned int GetDword(HKEY key, const wchar_t* name, unsigned int& v) {
    unsigned int size = sizeof v;
    return RegistryStore::QueryValue(key, name, nullptr, &v, &size);
}

// The stored bytes of a value, read with SQLite directly.
std::string StoredBytes(const std::string& path, const char* valueName) {
    sqlite3* db = nullptr;
    std::string bytes;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* s = nullptr;
        sqlite3_prepare_v2(db, "SELECT data FROM vals WHERE name = ?1", -1, &s, nullptr);
        sqlite3_bind_text(s, 1, valueName, -1, SQLITE_STATIC);
        if (sqlite3_step(s) == SQLITE_ROW) {
            bytes.assign(static_cast<const char*>(sqlite3_column_blob(s, 0)),
                         static_cast<std::size_t>(sqlite3_column_bytes(s, 0)));
        }
        sqlite3_finalize(s);
    }
    sqlite3_close(db);
    return bytes;
}

}  // namespace

TEST(RegistryStore, StringsAreStoredAsUtf16LeWithTheirTerminator) {
    Key key;
    ASSERT_EQ(Make(key, L"Software\\KivTest"), 0u);
    const wchar_t text[] = L"A\u00e9\U0001F600";
    ASSERT_EQ(RegistryStore::SetValue(key.h, L"Text", REG_SZ, text, sizeof text), 0u);
    ASSERT_EQ(RegistryStore::SetValue(key.h, L"Empty", REG_SZ, L"", sizeof(wchar_t)), 0u);
    const std::string path = RegistryStore::Path();
    EXPECT_EQ(StoredBytes(path, "Text"), std::string("A\0\xe9\0\x3d\xd8\x00\xde\0\0", 10));
    EXPECT_EQ(StoredBytes(path, "Empty"), std::string("\0\0", 2));
}

TEST(RegistryStore, AFileThatIsNotAStoreGivesCorruptOnEveryCallAndIsLeftAsItWas) {
    const std::string path = RegistryStore::Path();
    const std::string garbage(8192, '\x5a');
    ASSERT_TRUE(kiv::test::WriteFileBytes(path, garbage));
    Key key;
    EXPECT_EQ(Make(key, L"Software\\KivTest"), ERROR_REGISTRY_CORRUPT);
    EXPECT_EQ(RegistryStore::OpenKey(HKEY_CURRENT_USER, L"Software", &key.h),
              ERROR_REGISTRY_CORRUPT);
    unsigned int v = 0;
    EXPECT_EQ(GetDword(HKEY_LOCAL_MACHINE, L"x", v), ERROR_REGISTRY_CORRUPT);
    EXPECT_EQ(SetDword(HKEY_LOCAL_MACHINE, L"x", 1), ERROR_REGISTRY_CORRUPT);
    EXPECT_EQ(kiv::test::ReadFileBytes(path), garbage);

    // Another program's database.
    ASSERT_TRUE(kiv::test::WriteFileBytes(path, ""));
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE notes(x); INSERT INTO notes VALUES (1);", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);
    const std::string before = kiv::test::ReadFileBytes(path);
    EXPECT_EQ(Make(key, L"Software"), ERROR_REGISTRY_CORRUPT);
    EXPECT_EQ(kiv::test::ReadFileBytes(path), before);
}

TEST(RegistryStore, TheFileFollowsTheEnvironmentAndOpenKeysKeepTheirFile) {
    setenv("KIV_REGISTRY", kiv::test::TempPath("no/such/dir/registry.db").c_str(), 1);
    Key key;
    EXPECT_EQ(Make(key, L"Software"), ERROR_REGISTRY_IO_FAILED);
    unsigned int v = 0;
    EXPECT_EQ(GetDword(HKEY_CURRENT_USER, L"x", v), ERROR_REGISTRY_IO_FAILED);

    const std::string first = kiv::test::TempPath("first.db");
    setenv("KIV_REGISTRY", first.c_str(), 1);
    Key inFirst;
    ASSERT_EQ(Make(inFirst, L"Software\\KivTest"), 0u);
    ASSERT_EQ(SetDword(inFirst.h, L"v", 1), 0u);
    setenv("KIV_REGISTRY", kiv::test::TempPath("second.db").c_str(), 1);
    Key inSecond;
    EXPECT_EQ(RegistryStore::OpenKey(HKEY_CURRENT_USER, L"Software\\KivTest", &inSecond.h),
              ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(SetDword(inFirst.h, L"v", 2), 0u);  // still the first file
    setenv("KIV_REGISTRY", first.c_str(), 1);
    ASSERT_EQ(RegistryStore::OpenKey(HKEY_CURRENT_USER, L"Software\\KivTest", &inSecond.h), 0u);
    EXPECT_EQ(GetDword(inSecond.h, L"v", v), 0u);
    EXPECT_EQ(v, 2u);

    // Without the variable: a private directory under the state home.
    unsetenv("KIV_REGISTRY");
    const std::string state = kiv::test::TempPath("state");
    setenv("XDG_STATE_HOME", state.c_str(), 1);
    const std::string path = RegistryStore::Path();
    unsetenv("XDG_STATE_HOME");
    EXPECT_EQ(path, state + "/kiv/registry.db");
    struct stat st {};
    ASSERT_EQ(stat((state + "/kiv").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST(RegistryStore, HandlesAreNeverRootsNorReusedAndClosedOnesAreBad) {
    std::vector<HKEY> seen;
    for (int i = 0; i < 3; ++i) {
        HKEY h = nullptr;
        ASSERT_EQ(RegistryStore::CreateKey(HKEY_CURRENT_USER, L"Software", nullptr, &h, nullptr),
                  0u);
        for (HKEY root : {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS}) {
            EXPECT_NE(h, root);
        }
        for (HKEY old : seen) {
            EXPECT_NE(h, old);
        }
        seen.push_back(h);
        EXPECT_EQ(RegistryStore::CloseKey(h), 0u);
        EXPECT_EQ(RegistryStore::CloseKey(h), ERROR_INVALID_HANDLE);
        unsigned int v = 0;
        EXPECT_EQ(GetDword(h, L"x", v), ERROR_INVALID_HANDLE);
    }
    EXPECT_EQ(RegistryStore::CloseKey(HKEY_CURRENT_USER), 0u);
    EXPECT_EQ(SetDword(HKEY_CURRENT_USER, L"RootValue", 1), 0u);  // the root is still usable
}

TEST(RegistryStore, BatchIsInvisibleToOtherThreadsUntilTheOutermostScopeCommits) {
    Key key;
    ASSERT_EQ(Make(key, L"Software\\KivTest"), 0u);
    auto seenElsewhere = [&] {
        int found = 0;
        std::thread reader([&] {
            unsigned int v = 0;
            found += GetDword(key.h, L"Lat", v) == 0 ? 1 : 0;
            found += GetDword(key.h, L"Lon", v) == 0 ? 1 : 0;
        });
        reader.join();
        return found;
    };
    {
        RegistryBatch outer;
        {
            RegistryBatch inner;
            ASSERT_EQ(SetDword(key.h, L"Lat", 1), 0u);
            Key other;  // a second handle of the same file joins the batch
            ASSERT_EQ(RegistryStore::OpenKey(HKEY_CURRENT_USER, L"Software\\KivTest", &other.h),
                      0u);
            ASSERT_EQ(SetDword(other.h, L"Lon", 2), 0u);
            EXPECT_EQ(inner.Commit(), 0u);
        }
        unsigned int v = 0;
        EXPECT_EQ(GetDword(key.h, L"Lon", v), 0u);  // the batch's own thread sees its writes
        EXPECT_EQ(seenElsewhere(), 0);
    }
    EXPECT_EQ(seenElsewhere(), 2);
}

TEST(RegistryStore, SnapshotReadsOneStateWhileOthersCommit) {
    Key key;
    ASSERT_EQ(Make(key, L"Software\\Snap"), ERROR_SUCCESS);
    ASSERT_EQ(SetDword(key.h, L"LAT", 1), ERROR_SUCCESS);
    ASSERT_EQ(SetDword(key.h, L"LON", 1), ERROR_SUCCESS);
    unsigned int lat = 0;
    unsigned int lon = 0;
    {
        RegistrySnapshot snapshot;
        ASSERT_EQ(GetDword(key.h, L"LAT", lat), ERROR_SUCCESS);
        std::thread writer([&] {
            RegistryBatch batch;
            SetDword(key.h, L"LAT", 2);
            SetDword(key.h, L"LON", 2);
        });
        writer.join();
        RegistrySnapshot nested;
        ASSERT_EQ(GetDword(key.h, L"LON", lon), ERROR_SUCCESS);
        EXPECT_EQ(lat, 1u);
        EXPECT_EQ(lon, 1u) << "the other thread's commit is not seen inside the snapshot";
    }
    ASSERT_EQ(GetDword(key.h, L"LON", lon), ERROR_SUCCESS);
    EXPECT_EQ(lon, 2u) << "and is seen after it";
}

TEST(RegistryStore, ChangeStampsMoveWithCommittedWritesOfAnyHandleOrThread) {
    Key key;
    ASSERT_EQ(Make(key, L"Software\\Watched"), ERROR_SUCCESS);
    auto stamp = [&](const wchar_t* name) {
        std::uint32_t s = 0;
        EXPECT_TRUE(RegistryStore::ChangeStamp(key.h, name, s));
        return s;
    };
    std::uint32_t before = stamp(L"PORT");
    ASSERT_EQ(SetDword(key.h, L"port", 3), ERROR_SUCCESS);
    EXPECT_NE(stamp(L"PORT"), before) << "names compare without case";
    EXPECT_EQ(stamp(L"PORT"), stamp(L"Port"));

    // Another thread (its own connection) writing through its own handle.
    before = stamp(L"PORT");
    std::uint32_t insideBatch = 0;
    std::thread writer([&] {
        Key other;
        ASSERT_EQ(RegistryStore::OpenKey(HKEY_CURRENT_USER, L"Software\\Watched", &other.h), 0u);
        RegistryBatch batch;
        ASSERT_EQ(SetDword(other.h, L"PORT", 4), ERROR_SUCCESS);
        insideBatch = stamp(L"PORT");
    });
    writer.join();
    EXPECT_EQ(insideBatch, before) << "a batch's writes count when it commits";
    EXPECT_NE(stamp(L"PORT"), before);

    before = stamp(L"PORT");
    ASSERT_EQ(RegistryStore::DeleteValue(key.h, L"PORT"), ERROR_SUCCESS);
    EXPECT_NE(stamp(L"PORT"), before);
    before = stamp(L"PORT");
    ASSERT_EQ(RegistryStore::DeleteValue(key.h, L"PORT"), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(stamp(L"PORT"), before) << "a failed write changes nothing";

    // An update that writes what is stored already changes nothing.
    ASSERT_EQ(SetDword(key.h, L"PORT", 5), ERROR_SUCCESS);
    before = stamp(L"PORT");
    unsigned int v = 5;
    ASSERT_EQ(RegistryStore::UpdateValue(key.h, L"port", REG_DWORD, &v, sizeof v), ERROR_SUCCESS);
    EXPECT_EQ(stamp(L"PORT"), before);
    ASSERT_EQ(RegistryStore::UpdateValue(key.h, L"PORT", REG_BINARY, &v, sizeof v), ERROR_SUCCESS);
    EXPECT_NE(stamp(L"PORT"), before) << "the same bytes of another type are a change";
    unsigned int type = 0;
    unsigned int size = sizeof v;
    v = 0;
    ASSERT_EQ(RegistryStore::QueryValue(key.h, L"PORT", &type, &v, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, static_cast<unsigned int>(REG_BINARY));
    EXPECT_EQ(v, 5u);

    // Deleting a key (its values go with it) moves every stamp.
    Key child;
    ASSERT_EQ(Make(child, L"Software\\Watched\\Child"), ERROR_SUCCESS);
    before = stamp(L"PORT");
    ASSERT_EQ(RegistryStore::DeleteKey(key.h, L"Child"), ERROR_SUCCESS);
    EXPECT_NE(stamp(L"PORT"), before);
    EXPECT_EQ(RegistryStore::UpdateValue(child.h, L"PORT", REG_DWORD, &v, sizeof v),
              ERROR_KEY_DELETED);
}

TEST(RegistryStore, FailedCreateInsideABatchKeepsTheBatchsOtherWrites) {
    Key key;
    ASSERT_EQ(Make(key, L"Software\\KivTest"), 0u);
    {
        RegistryBatch batch;
        ASSERT_EQ(SetDword(key.h, L"Before", 1), 0u);
        Key bad;
        EXPECT_EQ(RegistryStore::CreateKey(key.h, std::wstring(256, L'x').c_str(), nullptr, &bad.h,
                                           nullptr),
                  ERROR_INVALID_PARAMETER);
        Key deep;
        ASSERT_EQ(RegistryStore::CreateKey(key.h, L"Deep\\Er", nullptr, &deep.h, nullptr), 0u);
        EXPECT_EQ(RegistryStore::DeleteKey(key.h, L"Deep"), ERROR_ACCESS_DENIED);
        EXPECT_EQ(batch.Commit(), 0u);
    }
    unsigned int v = 0;
    EXPECT_EQ(GetDword(key.h, L"Before", v), 0u);
    Key deep;
    EXPECT_EQ(RegistryStore::OpenKey(key.h, L"Deep\\Er", &deep.h), 0u);
}

TEST(RegistryStore, ThreadsWritingInBatchesAndAloneLoseNothing) {
    Key key;
    ASSERT_EQ(Make(key, L"Software\\KivTest"), 0u);
    constexpr int kThreads = 4;
    constexpr int kRounds = 60;
    auto name = [](int t, const wchar_t* part, int i) {
        return L"t" + std::to_wstring(t) + part + std::to_wstring(i);
    };
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                std::optional<RegistryBatch> batch;
                if (t % 2 == 0) {
                    batch.emplace();
                }
                for (const wchar_t* part : {L"a", L"b"}) {
                    errors +=
                        SetDword(key.h, name(t, part, i).c_str(), static_cast<unsigned>(i)) != 0;
                }
                errors += batch && batch->Commit() != 0;
            }
        });
    }
    for (auto& th : threads) {
        th.join();
    }
    EXPECT_EQ(errors.load(), 0);
    int present = 0;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kRounds; ++i) {
            for (const wchar_t* part : {L"a", L"b"}) {
                unsigned int v = 99;
                present += GetDword(key.h, name(t, part, i).c_str(), v) == 0 &&
                           v == static_cast<unsigned>(i);
            }
        }
    }
    EXPECT_EQ(present, kThreads * kRounds * 2);
}

TEST(RegistryStore, TheStoreIsOwnerOnlyAndFilesOrDirectoriesOfAnotherUserAreRefused) {
    const mode_t oldMask = umask(022);
    {
        Key key;
        ASSERT_EQ(Make(key, L"Software\\KivTest"), 0u);
        ASSERT_EQ(SetDword(key.h, L"v", 1), 0u);
        const std::string path = RegistryStore::Path();
        for (const std::string& file : {path, path + "-wal", path + "-shm", path + "-kivchg"}) {
            struct stat st {};
            if (stat(file.c_str(), &st) == 0) {
                EXPECT_EQ(st.st_mode & 0777, 0600u) << file;
            }
        }
    }
    umask(oldMask);
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to make files of another user";
    }
    const std::string planted = kiv::test::TempPath("planted.db");
    ASSERT_TRUE(kiv::test::WriteFileBytes(planted, ""));
    ASSERT_EQ(chown(planted.c_str(), 4242, 4242), 0);
    setenv("KIV_REGISTRY", planted.c_str(), 1);
    Key key;
    EXPECT_EQ(Make(key, L"Software"), ERROR_REGISTRY_IO_FAILED);
    EXPECT_EQ(kiv::test::ReadFileBytes(planted), "");

    // The default directory, made first by another user.
    unsetenv("KIV_REGISTRY");
    const std::string state = kiv::test::TempPath("taken");
    ASSERT_EQ(mkdir(state.c_str(), 0755), 0);
    ASSERT_EQ(mkdir((state + "/kiv").c_str(), 0777), 0);
    ASSERT_EQ(chown((state + "/kiv").c_str(), 4242, 4242), 0);
    setenv("XDG_STATE_HOME", state.c_str(), 1);
    EXPECT_EQ(Make(key, L"Software"), ERROR_REGISTRY_IO_FAILED);
    unsetenv("XDG_STATE_HOME");
}
