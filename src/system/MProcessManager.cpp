#include <kiv/system/MProcessManager.h>

#include <chrono>
#include <cwctype>
#include <new>
#include <optional>
#include <string_view>

#include "platform/MessageWindow.h"
#include "system/MProcessManagerImpl.h"

namespace kiv::system::process {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;
constexpr unsigned int kFailed = static_cast<unsigned int>(-1);
constexpr unsigned int kCannotOpen = static_cast<unsigned int>(-2);
constexpr unsigned int kCannotEnd = static_cast<unsigned int>(-3);

std::uint32_t TickCount() {
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    return static_cast<std::uint32_t>(ms.count());
}

// Case-insensitive equality of two names, as the device's _wcsicmp gives 0.
bool SameNameIgnoringCase(const std::wstring& a, const wchar_t* b) {
    std::size_t i = 0;
    for (; i < a.size(); ++i) {
        if (b[i] == L'\0' ||
            std::towlower(static_cast<wint_t>(a[i])) != std::towlower(static_cast<wint_t>(b[i]))) {
            return false;
        }
    }
    return b[i] == L'\0';
}

// A null name matches any window, as the device's window search takes it.
std::optional<std::wstring_view> Criterion(const wchar_t* text) {
    return text == nullptr ? std::nullopt : std::optional<std::wstring_view>(text);
}

}  // namespace

// --- implementation ---------------------------------------------------------

MProcessManagerImpl::MProcessManagerImpl() {
    TakeSnapshot();
}

void MProcessManagerImpl::TakeSnapshot() {
    auto snapshot = platform::SnapshotProcesses();
    if (!snapshot) {
        return;  // the table could not be read: the old snapshot stays
    }
    m_processes = std::move(*snapshot);
    m_threadTotal = 0;
    for (const auto& p : m_processes) {
        m_threadTotal += p.threads;
    }
}

void MProcessManagerImpl::TakeSample(ThreadSample& sample) {
    sample.time = TickCount();
    sample.entries = platform::SnapshotThreadTimes();
    sample.taken = true;
}

unsigned int MProcessManagerImpl::GetProcessCount(unsigned int& count, unsigned char refresh) {
    std::lock_guard guard(m_lock);
    if (refresh != 0) {
        TakeSnapshot();
    }
    count = static_cast<unsigned int>(m_processes.size());
    return 0;
}

unsigned int MProcessManagerImpl::GetProcessIDByExeFileName(unsigned int& id,
                                                            const wchar_t* exeName,
                                                            unsigned char refresh) {
    std::lock_guard guard(m_lock);
    if (refresh != 0) {
        TakeSnapshot();
    }
    if (m_processes.empty() || exeName == nullptr) {
        return kFailed;
    }
    for (const auto& p : m_processes) {
        if (SameNameIgnoringCase(p.exeName, exeName)) {
            id = p.pid;
            return 0;
        }
    }
    return kFailed;
}

unsigned int MProcessManagerImpl::GetProcessIDByIndex(unsigned int& id, int index,
                                                      unsigned char refresh) {
    std::lock_guard guard(m_lock);
    if (refresh != 0) {
        TakeSnapshot();
    }
    if (index < 0 || static_cast<std::size_t>(index) >= m_processes.size()) {
        return kFailed;
    }
    id = m_processes[static_cast<std::size_t>(index)].pid;
    return 0;
}

unsigned int MProcessManagerImpl::GetProcessExeFileName(unsigned int id, wchar_t* buffer,
                                                        unsigned int size, unsigned char refresh) {
    std::lock_guard guard(m_lock);
    if (refresh != 0) {
        TakeSnapshot();
    }
    for (const auto& p : m_processes) {
        if (p.pid != id) {
            continue;
        }
        // The name needs room for its terminator too.
        if (size <= p.exeName.size() || buffer == nullptr) {
            return kCannotOpen;
        }
        p.exeName.copy(buffer, p.exeName.size());
        buffer[p.exeName.size()] = L'\0';
        return 0;
    }
    return kFailed;
}

unsigned int MProcessManagerImpl::GetProcessCPUTime(unsigned int id, unsigned int& cpuTime,
                                                    unsigned int& elapsed, unsigned char refresh) {
    std::lock_guard guard(m_lock);
    if (!m_current.taken) {
        TakeSample(m_current);
    }
    if (refresh != 0) {
        m_previous = std::move(m_current);
        TakeSample(m_current);
    }
    elapsed = m_current.time - m_previous.time;

    std::unordered_map<std::uint32_t, std::uint64_t> before;
    for (const auto& t : m_previous.entries) {
        before.emplace(t.tid, t.userTime);
    }
    unsigned int total = 0;
    for (const auto& t : m_current.entries) {
        if (t.pid != id) {
            continue;
        }
        const auto it = before.find(t.tid);
        if (it == before.end()) {
            continue;
        }
        // The difference of each 32-bit half is weighed separately, in double
        // precision, and each thread's share is truncated on its own.
        const auto high = static_cast<double>(static_cast<std::int64_t>(t.userTime >> 32) -
                                              static_cast<std::int64_t>(it->second >> 32));
        const auto low = static_cast<double>(static_cast<std::int64_t>(t.userTime & 0xFFFFFFFF) -
                                             static_cast<std::int64_t>(it->second & 0xFFFFFFFF));
        const double ms = high * 429496.7296 + low * 0.0001;
        total += ms > 0 ? static_cast<unsigned int>(ms) : 0;
    }
    cpuTime = total;
    return 0;
}

unsigned int MProcessManagerImpl::GetProcessMemory(unsigned int id, unsigned int& bytes) {
    std::lock_guard guard(m_lock);
    bytes = 0;
    std::uint64_t total = 0;
    if (id == 0) {
        // The device's slot 0 is the running process itself.
        total = platform::AccessibleMappingBytes(platform::CurrentProcessId()).value_or(0);
    } else if (id == 1) {
        // The device's slot 1 region holds the memory shared between processes.
        total = platform::SharedMemoryBytes();
    } else {
        for (const auto& p : m_processes) {
            if (p.pid == id) {
                total += platform::AccessibleMappingBytes(p.pid).value_or(0);
            }
        }
    }
    bytes = total > 0xFFFFFFFFULL ? 0xFFFFFFFFU : static_cast<unsigned int>(total);
    return 0;
}

template <typename Match>
unsigned int MProcessManagerImpl::CloseMatching(Match&& match) {
    if (m_processes.empty()) {
        return kFailed;
    }
    for (const auto& p : m_processes) {
        if (match(p) && !platform::KillProcess(p.pid)) {
            return kCannotOpen;
        }
    }
    // -1 after a complete walk, also when processes were ended: kept as the
    // device answers.
    return kFailed;
}

unsigned int MProcessManagerImpl::CloseProcessByID(unsigned int id, unsigned int /*exitCode*/) {
    std::lock_guard guard(m_lock);
    return CloseMatching([id](const platform::ProcessRecord& p) { return p.pid == id; });
}

unsigned int MProcessManagerImpl::CloseProcessByExeFileName(const wchar_t* exeName,
                                                            unsigned int /*exitCode*/) {
    std::lock_guard guard(m_lock);
    if (exeName == nullptr) {
        return kFailed;
    }
    return CloseMatching([exeName](const platform::ProcessRecord& p) {
        return SameNameIgnoringCase(p.exeName, exeName);
    });
}

// The window is looked up in the window table of the namespace; its owner
// process is ended with a kill, as CloseProcessByID does.
unsigned int MProcessManagerImpl::CloseWindow(std::optional<std::wstring_view> className,
                                              std::optional<std::wstring_view> title) {
    const HWND window = platform::FindMessageWindow(className, title);
    if (window == nullptr) {
        return kFailed;
    }
    std::uint32_t pid = 0;
    platform::GetWindowOwner(window, &pid);
    if (pid == 0) {
        return kCannotOpen;
    }
    return platform::KillProcess(pid) ? 0 : kCannotEnd;
}

unsigned int MProcessManagerImpl::CloseWindowByClassName(const wchar_t* className) {
    return CloseWindow(Criterion(className), std::nullopt);
}

unsigned int MProcessManagerImpl::CloseWindowByTitle(const wchar_t* title) {
    return CloseWindow(std::nullopt, Criterion(title));
}

unsigned int MProcessManagerImpl::GetWindowProcessID(HWND window, unsigned int* processId) {
    std::uint32_t pid = 0;
    const std::uint32_t thread = platform::GetWindowOwner(window, &pid);
    if (thread != 0 && processId != nullptr) {
        *processId = pid;
    }
    return thread;
}

// --- facade -------------------------------------------------------------------

MProcessManager::MProcessManager() : m_impl(new (std::nothrow) MProcessManagerImpl) {}

MProcessManager::MProcessManager(const MProcessManager& other)
    : m_impl(ShareImplementation(other.m_impl)) {}

MProcessManager& MProcessManager::operator=(const MProcessManager& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MProcessManager::~MProcessManager() {
    DropImplementation(m_impl);
}

unsigned int MProcessManager::GetProcessCount(unsigned int& count, unsigned char refresh) {
    return m_impl != nullptr ? m_impl->GetProcessCount(count, refresh) : kNoImplementation;
}

unsigned int MProcessManager::GetProcessIDByExeFileName(unsigned int& id, const wchar_t* exeName,
                                                        unsigned char refresh) {
    return m_impl != nullptr ? m_impl->GetProcessIDByExeFileName(id, exeName, refresh)
                             : kNoImplementation;
}

unsigned int MProcessManager::GetProcessIDByIndex(unsigned int& id, int index,
                                                  unsigned char refresh) {
    return m_impl != nullptr ? m_impl->GetProcessIDByIndex(id, index, refresh) : kNoImplementation;
}

unsigned int MProcessManager::GetProcessExeFileName(unsigned int id, wchar_t* buffer,
                                                    unsigned int size, unsigned char refresh) {
    return m_impl != nullptr ? m_impl->GetProcessExeFileName(id, buffer, size, refresh)
                             : kNoImplementation;
}

unsigned int MProcessManager::GetProcessCPUTime(unsigned int id, unsigned int& cpuTime,
                                                unsigned int& elapsed, unsigned char refresh) {
    return m_impl != nullptr ? m_impl->GetProcessCPUTime(id, cpuTime, elapsed, refresh)
                             : kNoImplementation;
}

unsigned int MProcessManager::GetProcessMemory(unsigned int id, unsigned int& bytes) {
    return m_impl != nullptr ? m_impl->GetProcessMemory(id, bytes) : kNoImplementation;
}

unsigned int MProcessManager::CloseProcessByID(unsigned int id, unsigned int exitCode) {
    return m_impl != nullptr ? m_impl->CloseProcessByID(id, exitCode) : kNoImplementation;
}

unsigned int MProcessManager::CloseProcessByExeFileName(const wchar_t* exeName,
                                                        unsigned int exitCode) {
    return m_impl != nullptr ? m_impl->CloseProcessByExeFileName(exeName, exitCode)
                             : kNoImplementation;
}

unsigned int MProcessManager::CloseWindowByClassName(const wchar_t* className) {
    return m_impl != nullptr ? m_impl->CloseWindowByClassName(className) : kNoImplementation;
}

unsigned int MProcessManager::CloseWindowByTitle(const wchar_t* title) {
    return m_impl != nullptr ? m_impl->CloseWindowByTitle(title) : kNoImplementation;
}

unsigned int MProcessManager::GetWindowProcessID(HWND window, unsigned int* processId) {
    return m_impl != nullptr ? m_impl->GetWindowProcessID(window, processId) : kNoImplementation;
}

}  // namespace kiv::system::process
