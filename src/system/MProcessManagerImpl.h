// The implementation behind MProcessManager: the cached process snapshot and
// the two thread samples for CPU times.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <kiv/platform/Win32Types.h>

#include <mutex>

#include "foundation/SharedImplementation.h"
#include "platform/ProcessTable.h"

namespace kiv::system::process {

class MProcessManagerImpl : public SharedImplementation<MProcessManagerImpl> {
public:
    MProcessManagerImpl();
    virtual ~MProcessManagerImpl() = default;

    unsigned int GetProcessCount(unsigned int& count, unsigned char refresh);
    unsigned int GetProcessIDByExeFileName(unsigned int& id, const wchar_t* exeName,
                                           unsigned char refresh);
    unsigned int GetProcessIDByIndex(unsigned int& id, int index, unsigned char refresh);
    unsigned int GetProcessExeFileName(unsigned int id, wchar_t* buffer, unsigned int size,
                                       unsigned char refresh);
    unsigned int GetProcessCPUTime(unsigned int id, unsigned int& cpuTime, unsigned int& elapsed,
                                   unsigned char refresh);
    unsigned int GetProcessMemory(unsigned int id, unsigned int& bytes);
    unsigned int CloseProcessByID(unsigned int id, unsigned int exitCode);
    unsigned int CloseProcessByExeFileName(const wchar_t* exeName, unsigned int exitCode);
    unsigned int CloseWindowByClassName(const wchar_t* className);
    unsigned int CloseWindowByTitle(const wchar_t* title);
    unsigned int GetWindowProcessID(HWND window, unsigned int* processId);

private:
    struct ThreadSample {
        bool taken = false;
        std::uint32_t time = 0;  ///< tick count (ms) when it was taken
        std::vector<platform::ThreadTimeRecord> entries;
    };

    void TakeSnapshot();
    void TakeSample(ThreadSample& sample);
    template <typename Match>
    unsigned int CloseMatching(Match&& match);
    unsigned int CloseWindow(std::optional<std::wstring_view> className,
                             std::optional<std::wstring_view> title);

    std::mutex m_lock;  // copies of the facade may be used from several threads
    std::vector<platform::ProcessRecord> m_processes;
    unsigned int m_threadTotal = 0;
    ThreadSample m_previous;
    ThreadSample m_current;
};

}  // namespace kiv::system::process
