#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <thread>

#include "foundation/Text.h"
#include "platform/Process.h"

extern char** environ;

namespace kiv::platform {

struct DetachedProcess::State {
    std::atomic<bool> ended{false};
};

std::wstring LibraryPath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&LibraryPath), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    // dladdr gives the name the library was loaded by; make it absolute.
    char resolved[PATH_MAX];
    if (realpath(info.dli_fname, resolved) != nullptr) {
        return text::FromUtf8(resolved);
    }
    return text::FromUtf8(info.dli_fname);
}

std::shared_ptr<DetachedProcess> DetachedProcess::Start(const std::wstring& path) {
    const std::string program = text::ToUtf8(path);
    if (program.empty()) {
        return nullptr;
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A session of its own: a Ctrl-C on the starter's terminal does not reach it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    char* argv[] = {const_cast<char*>(program.c_str()), nullptr};
    pid_t pid = 0;
    const int rc = posix_spawn(&pid, program.c_str(), nullptr, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    if (rc != 0) {
        return nullptr;
    }
    auto state = std::make_shared<State>();
    // The program is this process's child: reap it when it ends, so it
    // leaves no zombie, and note that it ended.
    std::thread([pid, state] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        state->ended = true;
    }).detach();
    return std::make_shared<DetachedProcess>(static_cast<std::uint32_t>(pid), state);
}

bool DetachedProcess::HasEnded() const {
    return m_state->ended.load();
}

}  // namespace kiv::platform
