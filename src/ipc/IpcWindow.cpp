#include "ipc/IpcWindow.h"

#include <cstdio>
#include <map>
#include <mutex>
#include <string>

#include "ipc/IpcDirectory.h"
#include "platform/MessageWindow.h"
#include "platform/Namespace.h"
#include "platform/ProcessTable.h"

namespace kiv::ipc::detail {
namespace {

// Runs the handler or callback stored with the id in wParam. Its result is
// dropped: the sender always sees 0. A payload is read only while this
// process is recorded reading it; a payload that is gone (its sender died
// and the slot was taken back) is never replaced by whatever the slot now
// holds: the message is not run, and nobody waits for it.
std::intptr_t IpcWindowProcedure(HWND, unsigned int message, std::uintptr_t wParam,
                                 std::intptr_t lParam) {
    if (message != kEventMessage && message != kCommandMessage) {
        return 0;
    }
    IpcDirectory* directory = IpcDirectory::Current();
    if (directory == nullptr) {
        return 0;
    }
    const Handler handler = directory->Resolve(static_cast<std::uint32_t>(wParam));
    if (handler == nullptr) {
        return 0;
    }
    const auto param = static_cast<std::uint64_t>(lParam);
    if (param == 0) {
        handler(nullptr);
        return 0;
    }
    if (void* payload = directory->Claim(param)) {
        handler(payload);
        directory->Unclaim(param);
    }
    return 0;
}

}  // namespace

std::uint32_t EnsureIpcWindow() {
    static std::mutex lock;
    // One window per process and namespace; a forked child makes its own.
    static std::map<std::pair<std::uint32_t, std::string>, std::uint32_t> windows;
    const std::uint32_t pid = platform::CurrentProcessId();
    const auto key = std::make_pair(pid, platform::NamespaceToken());
    std::lock_guard<std::mutex> guard(lock);
    if (const auto it = windows.find(key); it != windows.end()) {
        return it->second;
    }
    wchar_t className[16];
    std::swprintf(className, 16, L"%08x", pid);
    const HWND window = platform::CreateMessageWindow(className, L"", IpcWindowProcedure);
    if (window == nullptr) {
        return 0;
    }
    const std::uint32_t value = platform::WindowValue(window);
    windows.emplace(key, value);
    return value;
}

}  // namespace kiv::ipc::detail
