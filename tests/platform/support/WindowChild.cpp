// The other process of the message-window tests. Commands:
//   pump <class>                    creates a window of that class and pumps until
//                                   the finish message; exits with the number of
//                                   sequence messages that came in order
//   mutual <class> <peer> <count>   creates a window, sends <count> additions to
//                                   the window of class <peer>, tells it so with a
//                                   finish message and pumps until its own finish
//                                   message; exits 0 if every result was right
//   hang <class>                    creates a window and sleeps until killed
//   hang-locked <class>             the same, holding the window table's lock
//   churn <seed>                    creates, posts to, sends to, pumps and destroys
//                                   windows of class "churn" until killed
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/MessageWindow.h"
#include "platform/support/WindowMessages.h"
#include "support/HelperProcess.h"

namespace {

using namespace kiv::platform;
using namespace kiv::test::windows;

std::wstring Wide(const char* s) {
    return std::wstring(s, s + std::strlen(s));
}

HWND Create(const char* className) {
    const HWND window = CreateMessageWindow(Wide(className), L"child", Procedure);
    if (window == nullptr) {
        std::exit(102);
    }
    return window;
}

int Mutual(const char* className, const char* peerClass, int count) {
    Create(className);
    kiv::test::ReportReady();
    const HWND peer = FindMessageWindow(Wide(peerClass), std::nullopt);
    if (peer == nullptr) {
        return 103;
    }
    bool right = true;
    for (int i = 0; i < count; ++i) {
        right = right &&
                SendWindowMessage(peer, kAdd, static_cast<std::uintptr_t>(i), 1000) == i + 1000;
    }
    PostWindowMessage(peer, kFinish, 0, 0);
    PumpWindowMessages(kInfinite);
    return right ? 0 : 1;
}

[[noreturn]] void Churn(unsigned seed) {
    std::srand(seed);
    kiv::test::ReportReady();
    HWND kept[3] = {};
    for (unsigned n = 0;; ++n) {
        const HWND mine = CreateMessageWindow(L"churn", L"child", Procedure);
        PostWindowMessage(mine, kSequence, 0, 0);
        if (const HWND other = FindMessageWindow(L"churn", std::nullopt)) {
            if (std::rand() % 2 == 0) {
                PostWindowMessage(other, kSequence, 1, 0);
            } else {
                SendWindowMessage(other, kAdd, 1, 2);
            }
        }
        PumpWindowMessages(0);
        if (std::rand() % 4 != 0) {
            DestroyMessageWindow(mine);
        } else {
            // A few windows stay alive for a while, to be found by others.
            DestroyMessageWindow(kept[n % 3]);
            kept[n % 3] = mine;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const std::string command = argv[1];
    if (command == "pump") {
        Create(argv[2]);
        kiv::test::ReportReady();
        int code = 101;
        PumpWindowMessages(kInfinite, &code);
        return code;
    }
    if (command == "mutual" && argc >= 5) {
        return Mutual(argv[2], argv[3], std::atoi(argv[4]));
    }
    if (command == "churn") {
        Churn(static_cast<unsigned>(std::atoi(argv[2])));
    }
    if (command == "hang" || command == "hang-locked") {
        Create(argv[2]);
        if (command == "hang-locked" && !HoldWindowTableLockForever()) {
            return 104;
        }
        kiv::test::ReportReady();
        for (;;) {
            pause();
        }
    }
    return 2;
}
