// MRegistry point reads and writes against a raw SQLite prepared statement
// doing the same on the same file: one DWORD and one 20-character string.
//
// Writes run for at least 2 s a repetition: a WAL checkpoint (an fsync) is
// paid by whichever write crosses the threshold, and a short run sees too
// few of them to share them out fairly.
// Every write changes the data (SQLite skips rewriting a page whose content
// is unchanged, which would make a write of the same bytes nearly free).
// Both sides use a connection in WAL mode with synchronous=NORMAL on one
// database file; the raw side binds the key id and the upper-cased value
// name the store would compute, and copies the data out (reads) or upserts
// the same bytes (writes). Besides the mean time per operation every case
// reports the p50 and p99 latency of single operations in its counters.
#include <kiv/system/MRegistry.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <string>
#include <vector>

using kiv::system::MRegistry;

namespace {

constexpr const wchar_t* kKey = L"Software\\KivBench";
constexpr const wchar_t* kText = L"abcdefghijklmnopqrst";  // 20 characters

struct Fixture {
    std::string path;
    MRegistry reg;
    sqlite3* db = nullptr;
    sqlite3_stmt* read = nullptr;
    sqlite3_stmt* write = nullptr;
    sqlite3_int64 keyId = 0;

    Fixture() {
        char dir[] = "/tmp/kiv-bench-XXXXXX";
        path = std::string(mkdtemp(dir)) + "/registry.db";
        setenv("KIV_REGISTRY", path.c_str(), 1);
        reg.Create(HKEY_CURRENT_USER, kKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
        reg.SetValue(1u, L"Dword");
        reg.SetValue(kText, L"Text");

        sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
        sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", nullptr, nullptr,
                     nullptr);
        sqlite3_stmt* find = nullptr;
        sqlite3_prepare_v2(db, "SELECT id FROM keys WHERE name_upper = 'KIVBENCH'", -1, &find,
                           nullptr);
        if (sqlite3_step(find) == SQLITE_ROW) {
            keyId = sqlite3_column_int64(find, 0);
        }
        sqlite3_finalize(find);
        sqlite3_prepare_v3(db, "SELECT type, data FROM vals WHERE key = ?1 AND name_upper = ?2", -1,
                           SQLITE_PREPARE_PERSISTENT, &read, nullptr);
        sqlite3_prepare_v3(
            db,
            "INSERT INTO vals(key, name, name_upper, type, data) VALUES (?1, ?2, ?3, ?4, ?5) "
            "ON CONFLICT(key, name_upper) DO UPDATE SET type = excluded.type, data = excluded.data",
            -1, SQLITE_PREPARE_PERSISTENT, &write, nullptr);
    }
    ~Fixture() {
        sqlite3_finalize(read);
        sqlite3_finalize(write);
        sqlite3_close(db);
        reg.Close();
        std::error_code ec;
        std::filesystem::remove_all(std::filesystem::path(path).parent_path(), ec);
    }

    // The raw read: bind, step, copy the data out, reset.
    bool RawRead(const char* upperName, void* out, std::size_t capacity) {
        sqlite3_bind_int64(read, 1, keyId);
        sqlite3_bind_text(read, 2, upperName, -1, SQLITE_STATIC);
        bool ok = false;
        if (sqlite3_step(read) == SQLITE_ROW) {
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(read, 1));
            std::memcpy(out, sqlite3_column_blob(read, 1), std::min(size, capacity));
            ok = true;
        }
        sqlite3_reset(read);
        return ok;
    }

    bool RawWrite(const char* name, const char* upperName, int type, const void* data, int size) {
        sqlite3_bind_int64(write, 1, keyId);
        sqlite3_bind_text(write, 2, name, -1, SQLITE_STATIC);
        sqlite3_bind_text(write, 3, upperName, -1, SQLITE_STATIC);
        sqlite3_bind_int(write, 4, type);
        sqlite3_bind_blob(write, 5, data, size, SQLITE_STATIC);
        const bool ok = sqlite3_step(write) == SQLITE_DONE;
        sqlite3_reset(write);
        return ok;
    }
};

Fixture& TheFixture() {
    static Fixture fixture;
    return fixture;
}

// Runs `op` once per iteration, timing each call, and reports p50 and p99.
template <class Op>
void Timed(benchmark::State& state, Op op) {
    std::vector<double> ns;
    ns.reserve(1 << 16);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const bool ok = op();
        const auto end = std::chrono::steady_clock::now();
        if (!ok) {
            state.SkipWithError("operation failed");
            break;
        }
        if (ns.size() < ns.capacity()) {
            ns.push_back(std::chrono::duration<double, std::nano>(end - start).count());
        }
    }
    if (!ns.empty()) {
        std::sort(ns.begin(), ns.end());
        state.counters["p50_ns"] = ns[ns.size() / 2];
        state.counters["p99_ns"] = ns[ns.size() * 99 / 100];
    }
}

void BM_ReadDword_Raw(benchmark::State& state) {
    Fixture& f = TheFixture();
    Timed(state, [&] {
        unsigned int v = 0;
        const bool ok = f.RawRead("DWORD", &v, sizeof v);
        benchmark::DoNotOptimize(v);
        return ok;
    });
}

void BM_ReadDword_MRegistry(benchmark::State& state) {
    Fixture& f = TheFixture();
    Timed(state, [&] {
        unsigned int v = 0;
        const bool ok = f.reg.QueryValue(v, L"Dword") == 0;
        benchmark::DoNotOptimize(v);
        return ok;
    });
}

void BM_ReadText20_Raw(benchmark::State& state) {
    Fixture& f = TheFixture();
    Timed(state, [&] {
        char16_t buffer[32];
        const bool ok = f.RawRead("TEXT", buffer, sizeof buffer);
        benchmark::DoNotOptimize(buffer);
        return ok;
    });
}

void BM_ReadText20_MRegistry(benchmark::State& state) {
    Fixture& f = TheFixture();
    Timed(state, [&] {
        wchar_t buffer[32];
        unsigned int size = sizeof buffer;
        const bool ok = f.reg.QueryValue(buffer, L"Text", &size) == 0;
        benchmark::DoNotOptimize(buffer);
        return ok;
    });
}

void BM_WriteDword_Raw(benchmark::State& state) {
    Fixture& f = TheFixture();
    unsigned int i = 0;
    Timed(state, [&] {
        ++i;
        return f.RawWrite("Dword", "DWORD", 4, &i, sizeof i);
    });
}

void BM_WriteDword_MRegistry(benchmark::State& state) {
    Fixture& f = TheFixture();
    unsigned int i = 0;
    Timed(state, [&] { return f.reg.SetValue(++i, L"Dword") == 0; });
}

void BM_WriteText20_Raw(benchmark::State& state) {
    Fixture& f = TheFixture();
    // The stored form: UTF-16LE with the terminator, 42 bytes.
    char16_t stored[21];
    for (int k = 0; k < 20; ++k) {
        stored[k] = static_cast<char16_t>(kText[k]);
    }
    stored[20] = 0;
    unsigned int i = 0;
    Timed(state, [&] {
        stored[0] = static_cast<char16_t>(L'a' + (++i % 26));
        return f.RawWrite("Text", "TEXT", 1, stored, sizeof stored);
    });
}

void BM_WriteText20_MRegistry(benchmark::State& state) {
    Fixture& f = TheFixture();
    wchar_t text[21];
    std::wcscpy(text, kText);
    unsigned int i = 0;
    Timed(state, [&] {
        text[0] = static_cast<wchar_t>(L'a' + (++i % 26));
        return f.reg.SetValue(text, L"Text") == 0;
    });
}

}  // namespace

BENCHMARK(BM_ReadDword_Raw);
BENCHMARK(BM_ReadDword_MRegistry);
BENCHMARK(BM_ReadText20_Raw);
BENCHMARK(BM_ReadText20_MRegistry);
BENCHMARK(BM_WriteDword_Raw)->MinTime(2.0);
BENCHMARK(BM_WriteDword_MRegistry)->MinTime(2.0);
BENCHMARK(BM_WriteText20_Raw)->MinTime(2.0);
BENCHMARK(BM_WriteText20_MRegistry)->MinTime(2.0);

BENCHMARK_MAIN();
