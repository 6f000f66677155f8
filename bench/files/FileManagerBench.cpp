// MFileManager against the system's own tools on the same trees, same file
// system: CopyTree against `cp -a`, a recursive FindFiles against
// `find -name` (its output to /dev/null).
//
// The trees are made once per run under $KIV_BENCH_DIR (else /tmp), and
// removed at the end: 10,000 files of 1..4 KiB in 100 directories, 10 files
// of 100 MB, and 100,000 empty files in 1,000 directories. Each copy goes to
// a new target that is removed, untimed, after the iteration. Both sides
// run warm: the sources stay in the page cache from the first repetition
// on. Times are wall-clock (the tools run in child processes).
#include <kiv/files/MFileManager.h>
#include <kiv/platform/Win32Types.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

extern char** environ;

namespace fs = std::filesystem;

namespace {

std::wstring Wide(const std::string& s) {
    return std::wstring(s.begin(), s.end());  // the paths here are ASCII
}

// Runs a program with its output discarded; true when it exited with 0.
bool Run(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const auto& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int started = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    return started == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

void WriteFile(const std::string& path, std::size_t size, std::mt19937& random) {
    std::string data(size, '\0');
    for (char& c : data) {
        c = static_cast<char>(random());
    }
    std::ofstream(path, std::ios::binary).write(data.data(), static_cast<std::streamsize>(size));
}

class Trees {
public:
    Trees() {
        const char* base = std::getenv("KIV_BENCH_DIR");
        std::string pattern =
            std::string(base != nullptr ? base : "/tmp") + "/kiv-files-bench-XXXXXX";
        m_root = mkdtemp(pattern.data());
        std::mt19937 random(15);
        for (int d = 0; d < 100; ++d) {
            const std::string dir = small() + "/d" + std::to_string(d);
            fs::create_directories(dir);
            for (int f = 0; f < 100; ++f) {
                WriteFile(dir + "/f" + std::to_string(f) + ".dat", 1024 + random() % 3072, random);
            }
        }
        fs::create_directories(large());
        for (int f = 0; f < 10; ++f) {
            WriteFile(large() + "/big" + std::to_string(f) + ".bin", 100u << 20, random);
        }
        for (int d = 0; d < 1000; ++d) {
            const std::string dir = many() + "/d" + std::to_string(d);
            fs::create_directories(dir);
            for (int f = 0; f < 100; ++f) {
                std::ofstream(dir + "/n" + std::to_string(d * 100 + f) + ".txt");
            }
        }
    }
    ~Trees() { fs::remove_all(m_root); }

    std::string small() const { return m_root + "/small"; }
    std::string large() const { return m_root + "/large"; }
    std::string many() const { return m_root + "/many"; }
    std::string target() const { return m_root + "/target"; }

private:
    std::string m_root;
};

Trees& TheTrees() {
    static Trees trees;
    return trees;
}

void CopyWithManager(benchmark::State& state, const std::string& source) {
    const std::string target = TheTrees().target();
    kiv::system::MFileManager manager;
    for (auto _ : state) {
        if (manager.CopyTree(Wide(source).c_str(), Wide(target).c_str()) != ERROR_SUCCESS) {
            state.SkipWithError("CopyTree failed");
        }
        state.PauseTiming();
        fs::remove_all(target);
        state.ResumeTiming();
    }
}

void CopyWithCp(benchmark::State& state, const std::string& source) {
    const std::string target = TheTrees().target();
    for (auto _ : state) {
        if (!Run({"cp", "-a", source, target})) {
            state.SkipWithError("cp failed");
        }
        state.PauseTiming();
        fs::remove_all(target);
        state.ResumeTiming();
    }
}

void BM_CopyTree_SmallFiles(benchmark::State& state) {
    CopyWithManager(state, TheTrees().small());
}
void BM_CpA_SmallFiles(benchmark::State& state) {
    CopyWithCp(state, TheTrees().small());
}
void BM_CopyTree_LargeFiles(benchmark::State& state) {
    CopyWithManager(state, TheTrees().large());
}
void BM_CpA_LargeFiles(benchmark::State& state) {
    CopyWithCp(state, TheTrees().large());
}

// Names ending in 7: 10,000 of the 100,000.
void BM_FindFiles_Recursive(benchmark::State& state) {
    kiv::system::MFileManager manager;
    const std::wstring root = Wide(TheTrees().many());
    std::size_t found = 0;
    for (auto _ : state) {
        std::vector<std::wstring> paths;
        if (manager.FindFiles(root.c_str(), L"*7.txt", 1, nullptr, paths) != ERROR_SUCCESS) {
            state.SkipWithError("FindFiles failed");
        }
        found = paths.size();
    }
    state.counters["found"] = static_cast<double>(found);
}
void BM_FindName_Recursive(benchmark::State& state) {
    const std::string root = TheTrees().many();
    for (auto _ : state) {
        if (!Run({"find", root, "-name", "*7.txt"})) {
            state.SkipWithError("find failed");
        }
    }
}

BENCHMARK(BM_CopyTree_SmallFiles)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CpA_SmallFiles)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CopyTree_LargeFiles)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_CpA_LargeFiles)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_FindFiles_Recursive)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_FindName_Recursive)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
