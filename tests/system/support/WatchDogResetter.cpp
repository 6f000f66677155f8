// Resets the watchdogs of the namespace from another process: `count`
// resets, `intervalMs` apart, through MWatchDog::ResetWatchDog. Exits 0 when
// every reset answered 0, 1 otherwise, 2 on bad arguments.
//
// ResetWatchDog needs a watchdog thread recorded in this process's object.
// A watchdog with a timeout of 0 and a program that does not exist has one
// that ends after its first millisecond and stays recorded, so afterwards
// every reset reaches the other processes' watchdogs alone.
#include <kiv/system/MWatchDog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const int count = std::atoi(argv[1]);
    const int intervalMs = std::atoi(argv[2]);
    kiv::system::MWatchDog watchDog;
    if (watchDog.StartWatchDog(L"/nonexistent/kiv-watchdog-program", 0) != 0) {
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (int i = 0; i < count; ++i) {
        if (watchDog.ResetWatchDog() != 0) {
            std::fprintf(stderr, "reset %d failed\n", i);
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(intervalMs));
    }
    return 0;
}
