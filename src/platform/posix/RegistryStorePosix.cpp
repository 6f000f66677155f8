// The registry store on SQLite.
//
// Schema: table `keys` (one row per key; the four roots are rows 1..4 and
// never go away; ids are never reused, so a handle to a deleted key stays
// recognisably deleted even when a key of the same name is made again) and
// table `vals` (one row per value, keyed by its key and upper-cased name).
//
// Connections: one per thread and file, kept in a small thread-local cache
// keyed by the path, so that a test changing KIV_REGISTRY gets the new file
// and a batch belongs to its thread alone. WAL journal: readers never wait
// for a writer. Writes made of several statements run in BEGIN IMMEDIATE
// transactions; a write of one statement runs on its own, which takes the
// write lock before it reads anything, so no update is lost either way.
// Busy waits are done by the busy handler and, for the few places SQLite
// answers SQLITE_BUSY without asking it, by a retry loop around the whole
// transaction.
//
// Change stamps: beside the database, "<file>-kivchg" holds counters that
// every process maps. A committed write of a value adds one to the counter
// of the slot its key and name hash to; creating or deleting a key adds one
// to a counter of the whole store. A process that wants to know whether some
// values changed compares their stamps instead of reading them.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unicode/uchar.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include "foundation/Text.h"
#include "platform/DebugOutput.h"
#include "platform/RegistryStore.h"

namespace kiv::platform {
namespace {

using Clock = std::chrono::steady_clock;

// How long contention is waited out before the store gives up with 1016.
// Only a process that holds a write transaction this long (a stuck batch)
// can cause it.
constexpr auto kBusyLimit = std::chrono::seconds(60);

// "KIVR": marks a database as a registry store.
constexpr int kApplicationId = 0x4B495652;
constexpr int kSchemaVersion = 1;

constexpr std::size_t kMaxKeyName = 255;
constexpr std::size_t kMaxValueName = 16383;
constexpr std::size_t kCachedConnections = 4;

// Handles given out are this tag plus a counter that only grows, so they are
// never confused with the roots (0x80000000..0x80000003) nor reused.
constexpr std::uint64_t kHandleTag = 0x4B49000000000000ULL;

// An internal result: SQLite said busy, the whole operation is retried.
constexpr unsigned int kRetry = 0xFFFFFFFEu;

constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS keys(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent INTEGER,
  name TEXT NOT NULL,
  name_upper TEXT NOT NULL,
  class TEXT);
CREATE UNIQUE INDEX IF NOT EXISTS keys_by_parent ON keys(parent, name_upper);
CREATE TABLE IF NOT EXISTS vals(
  key INTEGER NOT NULL,
  name TEXT NOT NULL,
  name_upper TEXT NOT NULL,
  type INTEGER NOT NULL,
  data BLOB NOT NULL,
  PRIMARY KEY(key, name_upper)) WITHOUT ROWID;
INSERT OR IGNORE INTO keys(id, parent, name, name_upper) VALUES
  (1, NULL, 'HKEY_CLASSES_ROOT', 'HKEY_CLASSES_ROOT'),
  (2, NULL, 'HKEY_CURRENT_USER', 'HKEY_CURRENT_USER'),
  (3, NULL, 'HKEY_LOCAL_MACHINE', 'HKEY_LOCAL_MACHINE'),
  (4, NULL, 'HKEY_USERS', 'HKEY_USERS');
)sql";

enum Sql : std::size_t {
    kFindChild,
    kKeyExists,
    kInsertKey,
    kHasChild,
    kDeleteKey,
    kDeleteKeyValues,
    kQueryValue,
    kSetValue,
    kDeleteValue,
    kEnumKey,
    kEnumValue,
    kBegin,
    kCommit,
    kRollback,
    kSavepoint,
    kRelease,
    kRollbackTo,
    kBeginRead,
    kSqlCount
};

constexpr std::array<const char*, kSqlCount> kSql = {
    "SELECT id FROM keys WHERE parent = ?1 AND name_upper = ?2",
    "SELECT 1 FROM keys WHERE id = ?1",
    "INSERT INTO keys(parent, name, name_upper, class) VALUES (?1, ?2, ?3, ?4)",
    "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
    "DELETE FROM keys WHERE id = ?1",
    "DELETE FROM vals WHERE key = ?1",
    "SELECT type, data FROM vals WHERE key = ?1 AND name_upper = ?2",
    // One statement: the value is written only while its key exists.
    "INSERT INTO vals(key, name, name_upper, type, data) SELECT ?1, ?2, ?3, ?4, ?5 "
    "WHERE EXISTS (SELECT 1 FROM keys WHERE id = ?1) "
    "ON CONFLICT(key, name_upper) DO UPDATE SET type = excluded.type, data = excluded.data",
    "DELETE FROM vals WHERE key = ?1 AND name_upper = ?2",
    "SELECT name FROM keys WHERE parent = ?1 ORDER BY name_upper LIMIT 1 OFFSET ?2",
    "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY name_upper LIMIT 1 OFFSET ?2",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SAVEPOINT kiv_operation",
    "RELEASE kiv_operation",
    "ROLLBACK TO kiv_operation",
    "BEGIN DEFERRED",
};

unsigned int MapSqliteError(int rc) {
    switch (rc & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return ERROR_SUCCESS;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return kRetry;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return ERROR_REGISTRY_CORRUPT;
        case SQLITE_NOMEM:
            return ERROR_OUTOFMEMORY;
        default:
            return ERROR_REGISTRY_IO_FAILED;
    }
}

// ---- names ---------------------------------------------------------------

// A key or value name as stored: its own spelling and the upper-cased form
// that comparisons use.
struct Name {
    std::string text;
    std::string upper;
};

Name MakeName(std::wstring_view name) {
    // Names are nearly always ASCII: they are upper-cased and converted here
    // without a call per character.
    Name out;
    out.text.reserve(name.size());
    bool ascii = true;
    for (const wchar_t c : name) {
        if (static_cast<std::uint32_t>(c) >= 0x80) {
            ascii = false;
            break;
        }
        out.text.push_back(static_cast<char>(c));
    }
    if (ascii) {
        out.upper = out.text;
        for (char& c : out.upper) {
            if (c >= 'a' && c <= 'z') {
                c = static_cast<char>(c - 'a' + 'A');
            }
        }
        return out;
    }
    std::wstring upper(name);
    for (wchar_t& c : upper) {
        c = static_cast<wchar_t>(u_toupper(static_cast<UChar32>(c)));
    }
    return {text::ToUtf8(name), text::ToUtf8(upper)};
}

// Splits a key path at '\'; empty components (a leading, doubled or trailing
// '\') are skipped. False when a component is longer than a key name may be.
bool SplitPath(const wchar_t* path, std::vector<Name>& parts) {
    parts.clear();
    if (path == nullptr) {
        return true;
    }
    std::wstring_view rest(path);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(L'\\'), rest.size());
        const std::wstring_view part = rest.substr(0, end);
        if (part.size() > kMaxKeyName) {
            return false;
        }
        if (!part.empty()) {
            parts.push_back(MakeName(part));
        }
        rest.remove_prefix(end < rest.size() ? end + 1 : end);
    }
    return true;
}

bool ValueName(const wchar_t* name, Name& out) {
    const std::size_t length = text::BoundedLength(name, kMaxValueName + 1);
    if (length > kMaxValueName) {
        return false;
    }
    out = MakeName(std::wstring_view(name == nullptr ? L"" : name, length));
    return true;
}

bool IsStringType(unsigned int type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// The caller's data as stored: string types from wchar_t to UTF-16LE (a
// trailing partial character is dropped), others unchanged.
std::string ToStored(unsigned int type, const void* data, unsigned int size) {
    if (data == nullptr || size == 0) {
        return {};
    }
    if (IsStringType(type)) {
        const std::wstring_view chars(static_cast<const wchar_t*>(data), size / sizeof(wchar_t));
        return text::ToUtf16Le(chars);
    }
    return std::string(static_cast<const char*>(data), size);
}

// Stored data in the caller's form. Strings keep embedded terminators
// (REG_MULTI_SZ), so each unit is decoded, not just up to the first zero.
std::string ToCaller(unsigned int type, const void* blob, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(blob);
    if (!IsStringType(type)) {
        return std::string(reinterpret_cast<const char*>(bytes), bytes == nullptr ? 0 : size);
    }
    std::u16string units;
    units.reserve(size / 2 + 1);
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        units.push_back(static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8)));
    }
    std::wstring wide = text::FromUtf16(units);
    if (size % 2 != 0) {
        wide.push_back(L'\uFFFD');
    }
    return std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
}

// Copies out what a query or enumeration returns, with the Win32 size rules.
unsigned int CopyOut(const std::string& value, void* data, unsigned int* size) {
    if (data != nullptr && size == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (size == nullptr) {
        return ERROR_SUCCESS;
    }
    const auto needed = static_cast<unsigned int>(value.size());
    if (data != nullptr) {
        if (*size < needed) {
            *size = needed;
            return ERROR_MORE_DATA;
        }
        std::memcpy(data, value.data(), value.size());
    }
    *size = needed;
    return ERROR_SUCCESS;
}

unsigned int CopyName(const std::string& utf8, wchar_t* name, unsigned int* nameChars) {
    if (name == nullptr || nameChars == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::wstring wide = text::FromUtf8(utf8);
    if (*nameChars < wide.size() + 1) {
        *nameChars = static_cast<unsigned int>(wide.size() + 1);
        return ERROR_MORE_DATA;
    }
    std::wmemcpy(name, wide.c_str(), wide.size() + 1);
    *nameChars = static_cast<unsigned int>(wide.size());
    return ERROR_SUCCESS;
}

// ---- the file ------------------------------------------------------------

// The directory that holds the store: made 0700, and used only when it is
// a directory of the effective user (a name under /tmp can have been taken
// by another user first). A directory of ours that grants more is
// tightened.
bool IsPrivateDirectory(const std::string& dir) {
    struct stat st {};
    if (lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != geteuid()) {
        return false;
    }
    return (st.st_mode & 077) == 0 || chmod(dir.c_str(), 0700) == 0;
}

bool MakeOwnerDirectory(const std::string& dir) {
    if (mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST) {
        return true;
    }
    if (errno != ENOENT) {
        return false;
    }
    const std::size_t slash = dir.find_last_of('/');
    if (slash == std::string::npos || slash == 0) {
        return false;
    }
    return MakeOwnerDirectory(dir.substr(0, slash)) &&
           (mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST);
}

std::string DefaultPath() {
    std::string state;
    if (const char* xdg = std::getenv("XDG_STATE_HOME"); xdg != nullptr && xdg[0] == '/') {
        state = xdg;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        state = std::string(home) + "/.local/state";
    } else {
        state = "/tmp/kiv-" + std::to_string(static_cast<unsigned long>(getuid()));
    }
    const std::string dir = state + "/kiv";
    MakeOwnerDirectory(dir);
    // The fallback's own directory is checked too: it is where another user
    // could have planted a link to a directory of theirs.
    if (!IsPrivateDirectory(dir) || (state.rfind("/tmp/", 0) == 0 && !IsPrivateDirectory(state))) {
        OutputDebugText(text::FromUtf8("Registry directory " + dir +
                                       " is not a private directory of this user: refused\n"));
        return std::string();
    }
    return dir + "/registry.db";
}

// ---- change stamps --------------------------------------------------------

constexpr std::size_t kChangeSlots = 4096;
// Word 0: the store-wide counter (keys made and deleted); then the slots.
constexpr std::size_t kChangeWords = 1 + kChangeSlots;
constexpr std::size_t kChangeBytes = kChangeWords * sizeof(std::uint32_t);
constexpr std::size_t kCachedChangeMaps = 8;

std::uint32_t ChangeSlot(sqlite3_int64 key, const std::string& upperName) {
    // FNV-1a over the key id and the upper-cased name.
    std::uint64_t h = 14695981039346656037ULL;
    auto mix = [&](unsigned char byte) {
        h ^= byte;
        h *= 1099511628211ULL;
    };
    for (int i = 0; i < 8; ++i) {
        mix(static_cast<unsigned char>(static_cast<std::uint64_t>(key) >> (8 * i)));
    }
    for (const char c : upperName) {
        mix(static_cast<unsigned char>(c));
    }
    return 1 + static_cast<std::uint32_t>(h % kChangeSlots);
}

// The counters of one store file, mapped shared.
class ChangeMap {
public:
    explicit ChangeMap(const std::string& dbPath) {
        const std::string path = dbPath + "-kivchg";
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            return;
        }
        struct stat st {};
        const bool ours = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() &&
                          (st.st_mode & 077) == 0;
        // Growing it is harmless when several processes do it at once.
        if (ours && (static_cast<std::size_t>(st.st_size) >= kChangeBytes ||
                     ftruncate(fd, static_cast<off_t>(kChangeBytes)) == 0)) {
            void* base = mmap(nullptr, kChangeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (base != MAP_FAILED) {
                m_words = static_cast<std::uint32_t*>(base);
            }
        }
        close(fd);
    }
    ~ChangeMap() {
        if (m_words != nullptr) {
            munmap(m_words, kChangeBytes);
        }
    }
    ChangeMap(const ChangeMap&) = delete;
    ChangeMap& operator=(const ChangeMap&) = delete;

    bool Valid() const { return m_words != nullptr; }
    void Bump(std::uint32_t word) {
        std::atomic_ref<std::uint32_t>(m_words[word]).fetch_add(1, std::memory_order_release);
    }
    std::uint32_t Read(std::uint32_t word) const {
        return std::atomic_ref<std::uint32_t>(m_words[word]).load(std::memory_order_acquire);
    }

private:
    std::uint32_t* m_words = nullptr;
};

// The process's maps, most recently used first; a map stays alive while a
// caller holds it, even when the cache has dropped it.
std::shared_ptr<ChangeMap> ChangesOf(const std::string& dbPath) {
    static std::mutex lock;
    static std::vector<std::pair<std::string, std::shared_ptr<ChangeMap>>> maps;
    std::lock_guard<std::mutex> guard(lock);
    for (std::size_t i = 0; i < maps.size(); ++i) {
        if (maps[i].first == dbPath) {
            std::rotate(maps.begin(), maps.begin() + static_cast<long>(i),
                        maps.begin() + static_cast<long>(i) + 1);
            return maps.front().second;
        }
    }
    auto map = std::make_shared<ChangeMap>(dbPath);
    if (!map->Valid()) {
        return nullptr;
    }
    maps.insert(maps.begin(), {dbPath, map});
    if (maps.size() > kCachedChangeMaps) {
        maps.pop_back();
    }
    return map;
}

void BumpChanges(const std::string& dbPath, const std::vector<std::uint32_t>& words) {
    if (words.empty()) {
        return;
    }
    if (const auto map = ChangesOf(dbPath)) {
        for (const std::uint32_t w : words) {
            map->Bump(w);
        }
    }
}

// ---- connections ---------------------------------------------------------

class Connection;

// Resets a statement (ending its read) and clears its bindings on scope exit.
class Bound {
public:
    explicit Bound(sqlite3_stmt* s) : m_stmt(s) {}
    ~Bound() {
        if (m_stmt != nullptr) {
            sqlite3_reset(m_stmt);
            sqlite3_clear_bindings(m_stmt);
        }
    }
    Bound(const Bound&) = delete;
    Bound& operator=(const Bound&) = delete;

    sqlite3_stmt* get() const { return m_stmt; }
    void Int(int index, sqlite3_int64 v) { sqlite3_bind_int64(m_stmt, index, v); }
    void Text(int index, const std::string& s) {
        sqlite3_bind_text(m_stmt, index, s.data(), static_cast<int>(s.size()), SQLITE_STATIC);
    }
    void Blob(int index, const std::string& s) {
        sqlite3_bind_blob(m_stmt, index, s.data(), static_cast<int>(s.size()), SQLITE_STATIC);
    }
    void Null(int index) { sqlite3_bind_null(m_stmt, index); }
    int Step() { return sqlite3_step(m_stmt); }

private:
    sqlite3_stmt* m_stmt;
};

class Connection {
public:
    explicit Connection(std::string path) : m_path(std::move(path)) {}
    ~Connection() {
        for (sqlite3_stmt*& s : m_stmts) {
            sqlite3_finalize(s);
        }
        if (m_db != nullptr) {
            sqlite3_close_v2(m_db);
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const std::string& path() const { return m_path; }

    // Opens the file and checks or creates the schema; 0 or an error code.
    unsigned int Open();

    // A prepared statement of this connection, or null on failure (the
    // failure code is in LastError()).
    sqlite3_stmt* Statement(Sql which) {
        if (m_stmts[which] == nullptr) {
            m_lastError = sqlite3_prepare_v3(m_db, kSql[which], -1, SQLITE_PREPARE_PERSISTENT,
                                             &m_stmts[which], nullptr);
            if (m_lastError != SQLITE_OK) {
                sqlite3_finalize(m_stmts[which]);
                m_stmts[which] = nullptr;
            }
        }
        return m_stmts[which];
    }
    int LastError() const { return m_lastError; }

    // Runs one statement without results: 0 or an error code (kRetry).
    unsigned int Exec(Sql which) {
        sqlite3_stmt* s = Statement(which);
        if (s == nullptr) {
            return MapSqliteError(m_lastError);
        }
        Bound b(s);
        return MapSqliteError(b.Step());
    }

    // Batches.
    int batchDepth = 0;
    bool batchWriting = false;
    // The change counters the open batch bumps when it commits.
    std::vector<std::uint32_t> batchChanges;
    // Read snapshots (never open together with a batch).
    int snapshotDepth = 0;

    // Deadline bookkeeping for the busy handler.
    Clock::time_point busySince{};

private:
    std::string m_path;
    sqlite3* m_db = nullptr;
    std::array<sqlite3_stmt*, kSqlCount> m_stmts{};
    int m_lastError = SQLITE_OK;
};

// Sleeps a little longer each time, from 20 microseconds up to 2 ms, until
// the busy limit.
int BusyHandler(void* context, int count) {
    auto* c = static_cast<Connection*>(context);
    const Clock::time_point now = Clock::now();
    if (count == 0) {
        c->busySince = now;
    } else if (now - c->busySince > kBusyLimit) {
        return 0;
    }
    const int shift = std::min(count, 7);
    std::this_thread::sleep_for(std::chrono::microseconds(20 << shift));
    return 1;
}

// Retries `attempt` while it answers kRetry, up to the busy limit.
template <class F>
unsigned int WithRetry(F&& attempt) {
    const Clock::time_point start = Clock::now();
    for (int round = 0;; ++round) {
        const unsigned int result = attempt();
        if (result != kRetry) {
            return result;
        }
        if (Clock::now() - start > kBusyLimit) {
            return ERROR_REGISTRY_IO_FAILED;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50 << std::min(round, 6)));
    }
}

unsigned int Connection::Open() {
    // The file must exist as a regular file or not at all; SQLite would
    // otherwise happily open a directory's neighbour or a device.
    // It is created 0600 here, before SQLite opens it: SQLite gives the
    // -wal and -shm files the mode of the database. An existing file must
    // belong to the effective user; one of ours that grants more is
    // tightened.
    if (m_path.empty()) {
        return ERROR_REGISTRY_IO_FAILED;
    }
    const int fd =
        open(m_path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) {
        return ERROR_REGISTRY_IO_FAILED;
    }
    struct stat st {};
    const bool ours = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() &&
                      ((st.st_mode & 077) == 0 || fchmod(fd, 0600) == 0);
    close(fd);
    if (!ours) {
        OutputDebugText(text::FromUtf8("Registry file " + m_path +
                                       " is not a plain file of this user: refused\n"));
        return ERROR_REGISTRY_IO_FAILED;
    }
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(m_path.c_str(), &m_db, flags, nullptr) != SQLITE_OK) {
        return ERROR_REGISTRY_IO_FAILED;
    }
    sqlite3_busy_handler(m_db, BusyHandler, this);
    sqlite3_extended_result_codes(m_db, 1);

    auto pragmaInt = [&](const char* sql, int& out) -> unsigned int {
        sqlite3_stmt* s = nullptr;
        int rc = sqlite3_prepare_v2(m_db, sql, -1, &s, nullptr);
        if (rc == SQLITE_OK) {
            rc = sqlite3_step(s);
            if (rc == SQLITE_ROW) {
                out = sqlite3_column_int(s, 0);
                rc = SQLITE_OK;
            }
        }
        sqlite3_finalize(s);
        return MapSqliteError(rc);
    };
    auto exec = [&](const char* sql) {
        return MapSqliteError(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr));
    };

    // One read transaction, so the two answers belong together even while
    // another process is creating the schema. Reading first tells a file
    // that is not a database (1015) before anything could be written to it.
    int applicationId = 0;
    int tables = 0;
    auto readHeader = [&]() -> unsigned int {
        unsigned int r = pragmaInt("PRAGMA application_id", applicationId);
        if (r == ERROR_SUCCESS) {
            r = pragmaInt("SELECT count(*) FROM sqlite_schema", tables);
        }
        return r;
    };
    unsigned int rc = WithRetry([&] {
        unsigned int r = exec("BEGIN");
        if (r == ERROR_SUCCESS) {
            r = readHeader();
            sqlite3_exec(m_db, r == ERROR_SUCCESS ? "COMMIT" : "ROLLBACK", nullptr, nullptr,
                         nullptr);
        }
        return r;
    });
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    if (applicationId != kApplicationId && (applicationId != 0 || tables != 0)) {
        // Another program's database: not ours to change.
        return ERROR_REGISTRY_CORRUPT;
    }
    rc = WithRetry([&] {
        int ignored = 0;
        return pragmaInt("PRAGMA journal_mode=WAL", ignored);
    });
    if (rc == ERROR_SUCCESS) {
        rc = exec("PRAGMA synchronous=NORMAL");
    }
    if (rc == ERROR_SUCCESS && applicationId != kApplicationId) {
        // An empty file: make the schema, unless another process made it
        // since the look above (checked again under the write lock).
        rc = WithRetry([&] {
            unsigned int r = exec("BEGIN IMMEDIATE");
            if (r != ERROR_SUCCESS) {
                return r;
            }
            r = readHeader();
            if (r == ERROR_SUCCESS && applicationId != kApplicationId) {
                if (tables != 0) {
                    r = ERROR_REGISTRY_CORRUPT;
                } else {
                    r = exec(kSchema);
                    if (r == ERROR_SUCCESS) {
                        r = exec(
                            ("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
                    }
                    if (r == ERROR_SUCCESS) {
                        r = exec(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str());
                    }
                }
            }
            if (r == ERROR_SUCCESS) {
                r = exec("COMMIT");
            }
            if (r != ERROR_SUCCESS) {
                sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
            }
            return r;
        });
    }
    return rc;
}

// The calling thread's connections, most recently used first.
class ConnectionCache {
public:
    // The connection to `path`, opened when needed; null with `error` set
    // when the file cannot be used.
    Connection* Get(const std::string& path, unsigned int& error) {
        for (std::size_t i = 0; i < m_list.size(); ++i) {
            if (m_list[i]->path() == path) {
                if (i != 0) {
                    std::rotate(m_list.begin(), m_list.begin() + static_cast<long>(i),
                                m_list.begin() + static_cast<long>(i) + 1);
                }
                return m_list.front().get();
            }
        }
        auto fresh = std::make_unique<Connection>(path);
        error = fresh->Open();
        if (error != ERROR_SUCCESS) {
            return nullptr;
        }
        m_list.insert(m_list.begin(), std::move(fresh));
        Trim();
        return m_list.front().get();
    }

private:
    // Drops the least recently used connections beyond the limit, never one
    // with an open batch or snapshot.
    void Trim() {
        for (std::size_t i = m_list.size(); i > kCachedConnections; --i) {
            if (m_list[i - 1]->batchDepth == 0 && m_list[i - 1]->snapshotDepth == 0) {
                m_list.erase(m_list.begin() + static_cast<long>(i - 1));
            }
        }
    }

    std::vector<std::unique_ptr<Connection>> m_list;
};

ConnectionCache& Connections() {
    thread_local ConnectionCache cache;
    return cache;
}

// ---- handles -------------------------------------------------------------

struct KeyRef {
    std::string path;
    sqlite3_int64 id = 0;
};

class HandleTable {
public:
    HKEY Add(KeyRef ref) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const std::uint64_t value = kHandleTag | ++m_counter;
        m_keys.emplace(value, std::move(ref));
        return reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(value));
    }
    bool Find(std::uint64_t value, KeyRef& out) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_keys.find(value);
        if (it == m_keys.end()) {
            return false;
        }
        out = it->second;
        return true;
    }
    bool Remove(std::uint64_t value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_keys.erase(value) != 0;
    }

private:
    std::mutex m_mutex;
    std::uint64_t m_counter = 0;
    std::unordered_map<std::uint64_t, KeyRef> m_keys;
};

HandleTable& Handles() {
    static HandleTable table;
    return table;
}

std::uint64_t HandleValue(HKEY key) {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key));
}

bool IsRoot(HKEY key) {
    const std::uint64_t v = HandleValue(key);
    return v >= 0x80000000u && v <= 0x80000003u;
}

// The file and key row a handle stands for; false for a bad handle.
bool Resolve(HKEY key, KeyRef& out) {
    if (IsRoot(key)) {
        out.path = RegistryStore::Path();
        out.id = static_cast<sqlite3_int64>(HandleValue(key) - 0x80000000u + 1);
        return true;
    }
    return key != nullptr && Handles().Find(HandleValue(key), out);
}

// ---- operations ----------------------------------------------------------

// Everything one operation needs: the key and its connection.
struct Target {
    KeyRef ref;
    Connection* db = nullptr;
};

unsigned int Begin(HKEY key, Target& t) {
    if (!Resolve(key, t.ref)) {
        return ERROR_INVALID_HANDLE;
    }
    unsigned int error = ERROR_SUCCESS;
    t.db = Connections().Get(t.ref.path, error);
    return error;
}

// 0 when the key row exists, 1018 when it does not, or a store error.
unsigned int KeyAlive(Connection& db, sqlite3_int64 id) {
    sqlite3_stmt* s = db.Statement(kKeyExists);
    if (s == nullptr) {
        return MapSqliteError(db.LastError());
    }
    Bound b(s);
    b.Int(1, id);
    const int rc = b.Step();
    if (rc == SQLITE_ROW) {
        return ERROR_SUCCESS;
    }
    return rc == SQLITE_DONE ? ERROR_KEY_DELETED : MapSqliteError(rc);
}

// The id of child `name` of `parent`: 0 found, 2 absent, or a store error.
unsigned int FindChild(Connection& db, sqlite3_int64 parent, const Name& name, sqlite3_int64& id) {
    sqlite3_stmt* s = db.Statement(kFindChild);
    if (s == nullptr) {
        return MapSqliteError(db.LastError());
    }
    Bound b(s);
    b.Int(1, parent);
    b.Text(2, name.upper);
    const int rc = b.Step();
    if (rc == SQLITE_ROW) {
        id = sqlite3_column_int64(s, 0);
        return ERROR_SUCCESS;
    }
    return rc == SQLITE_DONE ? ERROR_FILE_NOT_FOUND : MapSqliteError(rc);
}

// Follows `parts` down from `start`. A missing first step is told apart from
// a deleted start key (1018).
unsigned int Walk(Connection& db, sqlite3_int64 start, const std::vector<Name>& parts,
                  sqlite3_int64& id) {
    id = start;
    if (parts.empty()) {
        return KeyAlive(db, start);
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const unsigned int rc = FindChild(db, id, parts[i], id);
        if (rc == ERROR_FILE_NOT_FOUND && i == 0) {
            const unsigned int alive = KeyAlive(db, start);
            return alive == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : alive;
        }
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
    }
    return ERROR_SUCCESS;
}

// Inside a batch: takes the write lock at the batch's first write.
unsigned int JoinBatch(Connection& db) {
    if (db.batchWriting) {
        return ERROR_SUCCESS;
    }
    const unsigned int rc = WithRetry([&] { return db.Exec(kBegin); });
    db.batchWriting = (rc == ERROR_SUCCESS);
    return rc;
}

// Runs `body` (several statements) as one write transaction, retrying the
// whole of it when the store is busy; inside the thread's batch it runs in
// the batch's transaction and a failure takes back its own changes only.
template <class F>
unsigned int WriteTransaction(Connection& db, F&& body) {
    if (db.batchDepth > 0) {
        unsigned int rc = JoinBatch(db);
        if (rc == ERROR_SUCCESS) {
            rc = db.Exec(kSavepoint);
        }
        if (rc == ERROR_SUCCESS) {
            rc = body();
            if (rc != ERROR_SUCCESS) {
                db.Exec(kRollbackTo);
            }
            db.Exec(kRelease);
        }
        return rc == kRetry ? ERROR_REGISTRY_IO_FAILED : rc;
    }
    return WithRetry([&] {
        unsigned int rc = db.Exec(kBegin);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        rc = body();
        if (rc == ERROR_SUCCESS) {
            rc = db.Exec(kCommit);
            if (rc == ERROR_SUCCESS) {
                return rc;
            }
        }
        db.Exec(kRollback);
        return rc;
    });
}

// A write of one statement: atomic by itself, on its own or in the batch.
template <class F>
unsigned int WriteStatement(Connection& db, F&& body) {
    if (db.batchDepth > 0) {
        const unsigned int rc = JoinBatch(db);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
        const unsigned int result = body();
        return result == kRetry ? ERROR_REGISTRY_IO_FAILED : result;
    }
    return WithRetry(body);
}

// Records a committed change (now), or one the thread's batch commits later.
void Changed(Connection& db, std::uint32_t word) {
    if (db.batchDepth > 0) {
        db.batchChanges.push_back(word);
    } else {
        BumpChanges(db.path(), {word});
    }
}

Connection* BatchConnection(const std::string& path) {
    unsigned int error = ERROR_SUCCESS;
    return Connections().Get(path, error);
}

}  // namespace

std::string RegistryStore::Path() {
    if (const char* env = std::getenv("KIV_REGISTRY"); env != nullptr && env[0] != '\0') {
        return env;
    }
    return DefaultPath();
}

unsigned int RegistryStore::CreateKey(HKEY parent, const wchar_t* subKey, const wchar_t* className,
                                      HKEY* result, unsigned int* disposition) {
    if (result == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    std::vector<Name> parts;
    if (!SplitPath(subKey, parts)) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(parent, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    sqlite3_int64 id = 0;
    bool created = false;
    // Most creates find the key already there: look first without the write lock.
    unsigned int rc = WithRetry([&] { return Walk(db, t.ref.id, parts, id); });
    if (rc == ERROR_FILE_NOT_FOUND) {
        const std::string classText = text::ToUtf8(className);
        rc = WriteTransaction(db, [&]() -> unsigned int {
            created = false;
            id = t.ref.id;
            if (const unsigned int alive = KeyAlive(db, id); alive != ERROR_SUCCESS) {
                return alive;
            }
            for (const Name& part : parts) {
                const unsigned int found = FindChild(db, id, part, id);
                if (found == ERROR_SUCCESS) {
                    created = false;
                    continue;
                }
                if (found != ERROR_FILE_NOT_FOUND) {
                    return found;
                }
                sqlite3_stmt* s = db.Statement(kInsertKey);
                if (s == nullptr) {
                    return MapSqliteError(db.LastError());
                }
                Bound b(s);
                b.Int(1, id);
                b.Text(2, part.text);
                b.Text(3, part.upper);
                if (className != nullptr) {
                    b.Text(4, classText);
                } else {
                    b.Null(4);
                }
                const int step = b.Step();
                if (step != SQLITE_DONE) {
                    return MapSqliteError(step);
                }
                id = sqlite3_last_insert_rowid(sqlite3_db_handle(s));
                created = true;
            }
            return ERROR_SUCCESS;
        });
    }
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    if (created) {
        Changed(db, 0);
    }
    if (disposition != nullptr) {
        *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    }
    *result = Handles().Add({t.ref.path, id});
    return ERROR_SUCCESS;
}

unsigned int RegistryStore::OpenKey(HKEY parent, const wchar_t* subKey, HKEY* result) {
    if (result == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    std::vector<Name> parts;
    if (!SplitPath(subKey, parts)) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(parent, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    sqlite3_int64 id = 0;
    const unsigned int rc = WithRetry([&] { return Walk(*t.db, t.ref.id, parts, id); });
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    *result = Handles().Add({t.ref.path, id});
    return ERROR_SUCCESS;
}

unsigned int RegistryStore::CloseKey(HKEY key) {
    if (IsRoot(key)) {
        return ERROR_SUCCESS;
    }
    return key != nullptr && Handles().Remove(HandleValue(key)) ? ERROR_SUCCESS
                                                                : ERROR_INVALID_HANDLE;
}

unsigned int RegistryStore::QueryValue(HKEY key, const wchar_t* name, unsigned int* type,
                                       void* data, unsigned int* size) {
    if (data != nullptr && size == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    Name valueName;
    if (!ValueName(name, valueName)) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(key, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    unsigned int storedType = REG_NONE;
    std::string value;
    const unsigned int rc = WithRetry([&]() -> unsigned int {
        sqlite3_stmt* s = db.Statement(kQueryValue);
        if (s == nullptr) {
            return MapSqliteError(db.LastError());
        }
        Bound b(s);
        b.Int(1, t.ref.id);
        b.Text(2, valueName.upper);
        const int step = b.Step();
        if (step == SQLITE_ROW) {
            storedType = static_cast<unsigned int>(sqlite3_column_int64(s, 0));
            value = ToCaller(storedType, sqlite3_column_blob(s, 1),
                             static_cast<std::size_t>(sqlite3_column_bytes(s, 1)));
            return ERROR_SUCCESS;
        }
        if (step != SQLITE_DONE) {
            return MapSqliteError(step);
        }
        // No such value; the key itself may be gone.
        const unsigned int alive = KeyAlive(db, t.ref.id);
        return alive == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : alive;
    });
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    if (type != nullptr) {
        *type = storedType;
    }
    return CopyOut(value, data, size);
}

namespace {

// The write of SetValue, or of UpdateValue when `keepSame`: then a value that
// already has this type and data is looked at and left under the write lock,
// so no write of another process can come between.
unsigned int StoreValue(HKEY key, const wchar_t* name, unsigned int type, const void* data,
                        unsigned int size, bool keepSame) {
    if (data == nullptr && size != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    Name valueName;
    if (!ValueName(name, valueName)) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(key, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    const std::string stored = ToStored(type, data, size);
    bool changed = false;
    auto write = [&]() -> unsigned int {
        sqlite3_stmt* s = db.Statement(kSetValue);
        if (s == nullptr) {
            return MapSqliteError(db.LastError());
        }
        Bound b(s);
        b.Int(1, t.ref.id);
        b.Text(2, valueName.text);
        b.Text(3, valueName.upper);
        b.Int(4, type);
        b.Blob(5, stored);
        const int step = b.Step();
        if (step != SQLITE_DONE) {
            return MapSqliteError(step);
        }
        changed = true;
        return sqlite3_changes(sqlite3_db_handle(s)) == 0 ? ERROR_KEY_DELETED : ERROR_SUCCESS;
    };
    auto writeIfDifferent = [&]() -> unsigned int {
        changed = false;
        sqlite3_stmt* q = db.Statement(kQueryValue);
        if (q == nullptr) {
            return MapSqliteError(db.LastError());
        }
        {
            Bound b(q);
            b.Int(1, t.ref.id);
            b.Text(2, valueName.upper);
            const int step = b.Step();
            if (step == SQLITE_ROW &&
                static_cast<unsigned int>(sqlite3_column_int64(q, 0)) == type &&
                static_cast<std::size_t>(sqlite3_column_bytes(q, 1)) == stored.size() &&
                (stored.empty() ||
                 std::memcmp(sqlite3_column_blob(q, 1), stored.data(), stored.size()) == 0)) {
                return ERROR_SUCCESS;
            }
            if (step != SQLITE_ROW && step != SQLITE_DONE) {
                return MapSqliteError(step);
            }
        }
        return write();
    };
    // Inside a batch the look and the write already share its transaction;
    // the write alone changes nothing when it fails, so no savepoint.
    const unsigned int rc = !keepSame           ? WriteStatement(db, write)
                            : db.batchDepth > 0 ? WriteStatement(db, writeIfDifferent)
                                                : WriteTransaction(db, writeIfDifferent);
    if (rc == ERROR_SUCCESS && changed) {
        Changed(db, ChangeSlot(t.ref.id, valueName.upper));
    }
    return rc;
}

}  // namespace

unsigned int RegistryStore::SetValue(HKEY key, const wchar_t* name, unsigned int type,
                                     const void* data, unsigned int size) {
    return StoreValue(key, name, type, data, size, false);
}

unsigned int RegistryStore::UpdateValue(HKEY key, const wchar_t* name, unsigned int type,
                                        const void* data, unsigned int size) {
    return StoreValue(key, name, type, data, size, true);
}

unsigned int RegistryStore::DeleteKey(HKEY key, const wchar_t* subKey) {
    std::vector<Name> parts;
    if (!SplitPath(subKey, parts) || parts.empty()) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(key, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    const unsigned int result = WriteTransaction(db, [&]() -> unsigned int {
        sqlite3_int64 id = 0;
        if (const unsigned int rc = Walk(db, t.ref.id, parts, id); rc != ERROR_SUCCESS) {
            return rc;
        }
        {
            sqlite3_stmt* s = db.Statement(kHasChild);
            if (s == nullptr) {
                return MapSqliteError(db.LastError());
            }
            Bound b(s);
            b.Int(1, id);
            const int step = b.Step();
            if (step == SQLITE_ROW) {
                return ERROR_ACCESS_DENIED;
            }
            if (step != SQLITE_DONE) {
                return MapSqliteError(step);
            }
        }
        for (Sql which : {kDeleteKeyValues, kDeleteKey}) {
            sqlite3_stmt* s = db.Statement(which);
            if (s == nullptr) {
                return MapSqliteError(db.LastError());
            }
            Bound b(s);
            b.Int(1, id);
            if (const int step = b.Step(); step != SQLITE_DONE) {
                return MapSqliteError(step);
            }
        }
        return ERROR_SUCCESS;
    });
    if (result == ERROR_SUCCESS) {
        Changed(db, 0);  // its values went with it
    }
    return result;
}

unsigned int RegistryStore::DeleteValue(HKEY key, const wchar_t* name) {
    Name valueName;
    if (!ValueName(name, valueName)) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(key, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    const unsigned int rc = WriteStatement(db, [&]() -> unsigned int {
        sqlite3_stmt* s = db.Statement(kDeleteValue);
        if (s == nullptr) {
            return MapSqliteError(db.LastError());
        }
        int changes = 0;
        {
            Bound b(s);
            b.Int(1, t.ref.id);
            b.Text(2, valueName.upper);
            const int step = b.Step();
            if (step != SQLITE_DONE) {
                return MapSqliteError(step);
            }
            changes = sqlite3_changes(sqlite3_db_handle(s));
        }
        if (changes != 0) {
            return ERROR_SUCCESS;
        }
        const unsigned int alive = KeyAlive(db, t.ref.id);
        return alive == ERROR_SUCCESS ? ERROR_FILE_NOT_FOUND : alive;
    });
    if (rc == ERROR_SUCCESS) {
        Changed(db, ChangeSlot(t.ref.id, valueName.upper));
    }
    return rc;
}

unsigned int RegistryStore::EnumKey(HKEY key, unsigned int index, wchar_t* name,
                                    unsigned int* nameChars) {
    if (name == nullptr || nameChars == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(key, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    std::string found;
    const unsigned int rc = WithRetry([&]() -> unsigned int {
        sqlite3_stmt* s = db.Statement(kEnumKey);
        if (s == nullptr) {
            return MapSqliteError(db.LastError());
        }
        Bound b(s);
        b.Int(1, t.ref.id);
        b.Int(2, index);
        const int step = b.Step();
        if (step == SQLITE_ROW) {
            found.assign(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)),
                         static_cast<std::size_t>(sqlite3_column_bytes(s, 0)));
            return ERROR_SUCCESS;
        }
        if (step != SQLITE_DONE) {
            return MapSqliteError(step);
        }
        const unsigned int alive = KeyAlive(db, t.ref.id);
        return alive == ERROR_SUCCESS ? ERROR_NO_MORE_ITEMS : alive;
    });
    return rc != ERROR_SUCCESS ? rc : CopyName(found, name, nameChars);
}

unsigned int RegistryStore::EnumValue(HKEY key, unsigned int index, wchar_t* name,
                                      unsigned int* nameChars, unsigned int* type, void* data,
                                      unsigned int* size) {
    if (name == nullptr || nameChars == nullptr || (data != nullptr && size == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    Target t;
    if (const unsigned int rc = Begin(key, t); rc != ERROR_SUCCESS) {
        return rc;
    }
    Connection& db = *t.db;
    std::string foundName;
    std::string value;
    unsigned int storedType = REG_NONE;
    const unsigned int rc = WithRetry([&]() -> unsigned int {
        sqlite3_stmt* s = db.Statement(kEnumValue);
        if (s == nullptr) {
            return MapSqliteError(db.LastError());
        }
        Bound b(s);
        b.Int(1, t.ref.id);
        b.Int(2, index);
        const int step = b.Step();
        if (step == SQLITE_ROW) {
            foundName.assign(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)),
                             static_cast<std::size_t>(sqlite3_column_bytes(s, 0)));
            storedType = static_cast<unsigned int>(sqlite3_column_int64(s, 1));
            value = ToCaller(storedType, sqlite3_column_blob(s, 2),
                             static_cast<std::size_t>(sqlite3_column_bytes(s, 2)));
            return ERROR_SUCCESS;
        }
        if (step != SQLITE_DONE) {
            return MapSqliteError(step);
        }
        const unsigned int alive = KeyAlive(db, t.ref.id);
        return alive == ERROR_SUCCESS ? ERROR_NO_MORE_ITEMS : alive;
    });
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    if (const unsigned int named = CopyName(foundName, name, nameChars); named != ERROR_SUCCESS) {
        return named;
    }
    if (type != nullptr) {
        *type = storedType;
    }
    return CopyOut(value, data, size);
}

bool RegistryStore::ChangeStamp(HKEY key, const wchar_t* name, std::uint32_t& stamp) {
    Name valueName;
    KeyRef ref;
    if (!ValueName(name, valueName) || !Resolve(key, ref)) {
        return false;
    }
    const auto map = ChangesOf(ref.path);
    if (!map) {
        return false;
    }
    stamp = map->Read(0) + map->Read(ChangeSlot(ref.id, valueName.upper));
    return true;
}

// ---- batches -------------------------------------------------------------

RegistryBatch::RegistryBatch() : m_path(RegistryStore::Path()), m_open(false) {
    if (Connection* db = BatchConnection(m_path); db != nullptr) {
        ++db->batchDepth;
        m_open = true;
    }
}

RegistryBatch::~RegistryBatch() {
    Commit();
}

unsigned int RegistryBatch::Commit() {
    if (!m_open) {
        return ERROR_SUCCESS;
    }
    m_open = false;
    Connection* db = BatchConnection(m_path);
    if (db == nullptr || db->batchDepth == 0) {
        return ERROR_SUCCESS;
    }
    if (--db->batchDepth > 0) {
        return ERROR_SUCCESS;
    }
    if (!db->batchWriting) {
        db->batchChanges.clear();
        return ERROR_SUCCESS;
    }
    db->batchWriting = false;
    const unsigned int rc = WithRetry([&] { return db->Exec(kCommit); });
    if (rc != ERROR_SUCCESS) {
        db->Exec(kRollback);
    } else {
        BumpChanges(m_path, db->batchChanges);
    }
    db->batchChanges.clear();
    return rc;
}

// ---- read snapshots ------------------------------------------------------

RegistrySnapshot::RegistrySnapshot() : m_path(RegistryStore::Path()), m_open(false) {
    Connection* db = BatchConnection(m_path);
    if (db == nullptr || db->batchDepth > 0) {
        return;  // a batch already reads one state of its own
    }
    if (db->snapshotDepth == 0 && db->Exec(kBeginRead) != ERROR_SUCCESS) {
        return;
    }
    ++db->snapshotDepth;
    m_open = true;
}

RegistrySnapshot::~RegistrySnapshot() {
    if (!m_open) {
        return;
    }
    Connection* db = BatchConnection(m_path);
    if (db != nullptr && db->snapshotDepth > 0 && --db->snapshotDepth == 0) {
        db->Exec(kCommit);
    }
}

}  // namespace kiv::platform
