// Test helper: a process with a chosen number of threads that either spin or
// sleep, until it is killed or `seconds` have passed.
//   kiv_proc_child <threads> <busy|idle> <seconds> [ready-file]
// The ready file is written once all threads run.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    const int threads = std::atoi(argv[1]);
    const bool busy = std::strcmp(argv[2], "busy") == 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[3]));
    std::atomic<int> started{0};
    std::vector<std::thread> workers;
    for (int i = 1; i < threads; ++i) {
        workers.emplace_back([&] {
            started.fetch_add(1);
            volatile unsigned long spin = 0;
            while (std::chrono::steady_clock::now() < until) {
                if (busy) {
                    for (int k = 0; k < 100000; ++k) {
                        spin = spin + 1;
                    }
                } else {
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                }
            }
        });
    }
    while (started.load() < threads - 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (argc > 4) {
        if (std::FILE* f = std::fopen(argv[4], "w")) {
            std::fclose(f);
        }
    }
    while (std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (auto& w : workers) {
        w.join();
    }
    return 0;
}
