// Starting programs, and the library's own place in the file system.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace kiv::platform {

/// The full path of the loaded framework library (the file this code is in:
/// libKivFramework.so, or the program when the library is linked into it).
std::wstring LibraryPath();

/// A program started in a session of its own, so that it outlives its
/// starter and the signals of the starter's terminal. Its end is reaped in
/// the background.
class DetachedProcess {
public:
    /// Starts `path` without arguments, with the caller's environment; null
    /// if it cannot be started.
    static std::shared_ptr<DetachedProcess> Start(const std::wstring& path);

    std::uint32_t Pid() const { return m_pid; }
    /// True once the program has ended.
    bool HasEnded() const;

    struct State;
    explicit DetachedProcess(std::uint32_t pid, std::shared_ptr<State> state)
        : m_pid(pid), m_state(std::move(state)) {}

private:
    std::uint32_t m_pid;
    std::shared_ptr<State> m_state;
};

}  // namespace kiv::platform
