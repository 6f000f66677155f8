// The running processes: listed, found by executable name or index,
// measured (CPU time, memory) and ended.
//
// Queries work on a snapshot taken at construction; a non-zero `refresh`
// takes a new one first. Results are 0 on success; failures are small
// negative numbers in the unsigned result (-1 = 0xFFFFFFFF), and 0xFF when
// the object has no implementation. Copies share one implementation.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

namespace kiv::system::process {

class MProcessManagerImpl;

class KIV_API MProcessManager {
public:
    /// Takes the first snapshot.
    MProcessManager();
    MProcessManager(const MProcessManager& other);
    MProcessManager& operator=(const MProcessManager& other);
    virtual ~MProcessManager();

    /// The number of processes in the snapshot.
    unsigned int GetProcessCount(unsigned int& count, unsigned char refresh);
    /// The first process whose executable name equals `exeName`, ignoring
    /// case; -1 if there is none.
    unsigned int GetProcessIDByExeFileName(unsigned int& id, const wchar_t* exeName,
                                           unsigned char refresh);
    /// The process at `index` of the snapshot; -1 outside 0..count-1.
    unsigned int GetProcessIDByIndex(unsigned int& id, int index, unsigned char refresh);
    /// The executable name of process `id` into `buffer` of `size`
    /// characters; -1 if not found, -2 if the name and its terminator do not fit.
    unsigned int GetProcessExeFileName(unsigned int id, wchar_t* buffer, unsigned int size,
                                       unsigned char refresh);
    /// The user CPU time (ms) the threads of `id` spent between the two last
    /// thread samples, and the time (ms) between the samples. A non-zero
    /// `refresh` takes a new sample, making the current one the previous.
    unsigned int GetProcessCPUTime(unsigned int id, unsigned int& cpuTime, unsigned int& elapsed,
                                   unsigned char refresh);
    /// The committed (accessible) memory of process `id`, in bytes.
    unsigned int GetProcessMemory(unsigned int id, unsigned int& bytes);
    /// Ends every process of the snapshot with this id. -2 as soon as one
    /// cannot be ended; -1 otherwise, also when a process was ended.
    unsigned int CloseProcessByID(unsigned int id, unsigned int exitCode);
    /// Ends every process of the snapshot with this executable name
    /// (ignoring case); results as CloseProcessByID.
    unsigned int CloseProcessByExeFileName(const wchar_t* exeName, unsigned int exitCode);
    /// Ends the process that owns the window of this class: -1 no window,
    /// -2 no owner, -3 the owner cannot be ended, 0 done.
    unsigned int CloseWindowByClassName(const wchar_t* className);
    /// As CloseWindowByClassName, for the window with this title.
    unsigned int CloseWindowByTitle(const wchar_t* title);
    /// The owner thread id of `window` (0 if none); its process id into
    /// `processId` when not null.
    unsigned int GetWindowProcessID(HWND window, unsigned int* processId);

private:
    MProcessManagerImpl* m_impl;
};

}  // namespace kiv::system::process
