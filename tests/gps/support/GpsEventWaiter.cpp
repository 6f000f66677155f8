// Test helper: waits for the GPS daemon's named events and writes one line
// per event it receives ("FIX" or "MOVING") into the file given as argument,
// until it has seen both or 30 seconds passed. It opens both events before
// it reports ready, so no signal sent after that is lost.
#include <cstdio>

#include "platform/Waitable.h"
#include "support/HelperProcess.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        return 2;
    }
    using kiv::platform::Event;
    using kiv::platform::EventReset;
    const Event fix = Event::Create(L"KIV_GPS_EVENT_FIX", EventReset::Automatic, false);
    const Event moving = Event::Create(L"KIV_GPS_EVENT_MOVING", EventReset::Automatic, false);
    if (!fix.IsValid() || !moving.IsValid()) {
        return 3;
    }
    kiv::test::ReportReady();
    bool sawFix = false;
    bool sawMoving = false;
    const std::uint32_t start = kiv::platform::TickCount();
    while (!(sawFix && sawMoving) && kiv::platform::TickCount() - start < 30000) {
        const int which = kiv::platform::WaitForAny({&fix, &moving}, 1000);
        if (which != 0 && which != 1) {
            continue;
        }
        if (std::FILE* out = std::fopen(argv[1], "a")) {
            std::fputs(which == 0 ? "FIX\n" : "MOVING\n", out);
            std::fclose(out);
        }
        sawFix = sawFix || which == 0;
        sawMoving = sawMoving || which == 1;
    }
    return sawFix && sawMoving ? 0 : 1;
}
