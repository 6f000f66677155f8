// The other process of the named-object tests. Commands:
//   wait-any <timeout> <event>...   waits for any of the named automatic events;
//                                   exits with the index, 100 on timeout, 101 on failure
//   set <event>                     sets the named event; exits 1 if there is none
//   take <units> <taken> <stop>     takes units of semaphore <units> until the manual
//                                   event <stop> is set, releasing <taken> for each;
//                                   exits with the number taken
//   hold <quit> <event>...          creates the events (set), waits for event <quit>,
//                                   closes everything and exits 0
//   hang <event>...                 creates the events (set) and sleeps until killed
//   hang-locked <event>...          the same, holding the table lock
//   churn <seed>                    opens, signals and closes objects until killed
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/Waitable.h"
#include "platform/WaitableDiagnostics.h"
#include "support/HelperProcess.h"

namespace {

using kiv::platform::Event;
using kiv::platform::EventReset;
using kiv::platform::Semaphore;
using kiv::platform::Waitable;

std::wstring Wide(const char* s) {
    return std::wstring(s, s + std::strlen(s));
}

std::vector<Event> CreateSetEvents(int argc, char** argv, int first) {
    std::vector<Event> events;
    for (int i = first; i < argc; ++i) {
        events.push_back(Event::Create(Wide(argv[i]), EventReset::Automatic, true));
        if (!events.back().IsValid()) {
            std::exit(102);
        }
    }
    return events;
}

int WaitAny(int argc, char** argv) {
    std::vector<Event> events;
    std::vector<const Waitable*> list;
    for (int i = 3; i < argc; ++i) {
        events.push_back(Event::Open(Wide(argv[i])));
    }
    for (const Event& e : events) {
        list.push_back(&e);
    }
    kiv::test::ReportReady();
    const int r = kiv::platform::WaitForAny(list, std::atoi(argv[2]));
    return r >= 0 && r < 64 ? r : r == kiv::platform::kWaitTimeout ? 100 : 101;
}

int Take(char** argv) {
    Semaphore units = Semaphore::Open(Wide(argv[2]));
    Semaphore taken = Semaphore::Open(Wide(argv[3]));
    Event stop = Event::Open(Wide(argv[4]));
    if (!units.IsValid() || !taken.IsValid() || !stop.IsValid()) {
        return 255;
    }
    kiv::test::ReportReady();
    int count = 0;
    while (kiv::platform::WaitForAny({&units, &stop}, 60000) == 0) {
        ++count;
        taken.Release();
    }
    return count;
}

int Hold(int argc, char** argv) {
    Event quit = Event::Open(Wide(argv[2]));
    std::vector<Event> events = CreateSetEvents(argc, argv, 3);
    kiv::test::ReportReady();
    return kiv::platform::WaitFor(quit, 60000) == 0 ? 0 : 1;
}

[[noreturn]] void Churn(char** argv) {
    std::mt19937 random(static_cast<unsigned>(std::atoi(argv[2])));
    std::vector<Waitable> held;
    for (long i = 0;; ++i) {
        const unsigned n = random() % 8;  // odd names are semaphores
        const std::wstring name = L"churn-" + std::to_wstring(n);
        const bool semaphore = n % 2 == 1;
        switch (random() % 4) {
            case 0:
            case 1:
                if (semaphore) {
                    Semaphore s = Semaphore::Create(name, 0, 3);
                    s.Release();
                    held.push_back(std::move(s));
                } else {
                    Event e = Event::Create(name, EventReset::Automatic, false);
                    e.Set();
                    held.push_back(std::move(e));
                }
                break;
            case 2:
                if (!held.empty()) {
                    held.erase(held.begin() + static_cast<long>(random() % held.size()));
                }
                break;
            default:
                if (!held.empty()) {
                    kiv::platform::WaitFor(held[random() % held.size()], 0);
                }
                break;
        }
        if (i == 200) {
            kiv::test::ReportReady();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return 254;
    }
    const std::string command = argv[1];
    if (command == "wait-any" && argc >= 4) {
        return WaitAny(argc, argv);
    }
    if (command == "set" && argc == 3) {
        Event e = Event::Open(Wide(argv[2]));
        return e.Set() ? 0 : 1;
    }
    if (command == "take" && argc == 5) {
        return Take(argv);
    }
    if (command == "hold" && argc >= 3) {
        return Hold(argc, argv);
    }
    if (command == "hang" || command == "hang-locked") {
        std::vector<Event> events = CreateSetEvents(argc, argv, 2);
        if (command == "hang-locked" && !kiv::platform::HoldNamedObjectTableLockForever()) {
            return 103;
        }
        kiv::test::ReportReady();
        for (;;) {
            pause();
        }
    }
    if (command == "churn" && argc == 3) {
        Churn(argv);
    }
    return 254;
}
