// The implementation behind MTaskExecutor: the task table, the service
// thread and the threads of started tasks.
#pragma once

#include <kiv/system/MTaskExecutor.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "foundation/SharedImplementation.h"
#include "platform/Waitable.h"

namespace kiv::system::process {

/// A started task's thread as its handle sees it: running until the routine
/// returns, then holding the routine's result as its exit code.
struct TaskThread {
    static constexpr std::uint32_t kStillActive = 259;

    std::atomic<std::uint32_t> exitCode{kStillActive};

    /// The device's exit-code query: false without a thread (leaving `code`
    /// as it was); else the exit code, or 259 while the routine runs.
    static bool GetExitCode(const TaskThread* thread, std::uint32_t& code);
};

/// One entry of the table; all zero when free. Every field is a word of its
/// own, read and written without a lock by the caller's threads and the
/// service thread.
struct TaskEntry {
    std::atomic<TaskRoutine> routine{nullptr};
    std::atomic<std::uint32_t> lastTick{0};
    std::atomic<std::uint32_t> delay{0};
    std::atomic<std::uint32_t> option{0};
    std::atomic<std::uint32_t> periodic{0};
    std::atomic<std::uint32_t> argument{0};
    std::atomic<TaskThread*> thread{nullptr};
    std::atomic<std::uint8_t> fromTask{0};

    bool InUse() const { return routine.load(std::memory_order_relaxed) != nullptr; }
};

class MTaskExecutorImpl : public SharedImplementation<MTaskExecutorImpl> {
public:
    static constexpr std::uint32_t kInitialCapacity = 16;
    static constexpr std::uint32_t kMaxPoolSize = 256;

    MTaskExecutorImpl();
    virtual ~MTaskExecutorImpl();

    unsigned int AddTask(TaskRoutine routine, unsigned int argument, unsigned int& index,
                         unsigned int delay, unsigned int option, unsigned int startNow);
    unsigned int AddTask(ITask* task, unsigned int& index);
    unsigned int StartTask(unsigned int index);
    unsigned int StopTask(unsigned int index);
    unsigned int RemoveTask(unsigned int index);
    unsigned int SetThreadPoolSize(unsigned int size);
    unsigned int GetTaskReturnValue(unsigned int index, unsigned int& value);
    unsigned int GetTaskStatus(unsigned int index, unsigned int& status);

    /// The entry at `index` (below the capacity), for tests that need a task
    /// in a state no operation produces.
    TaskEntry& EntryForTesting(unsigned int index) { return m_table[index]; }

private:
    unsigned int CheckEntry(unsigned int index) const;
    unsigned int ChooseIndex() const;
    void ServiceThread();
    void Scan();

    std::uint32_t m_reserved = 0;
    std::uint32_t m_capacity = kInitialCapacity;
    std::atomic<std::uint32_t> m_taskCount{0};  // nothing changes it
    std::unique_ptr<TaskEntry[]> m_table;
    platform::Event m_exitEvent;  // named, shared by the namespace
    platform::Event m_stop;       // this executor's own, for its destructor
    std::thread m_serviceThread;

    // The device never closes a task thread's handle; here the handles stay
    // valid until the executor goes, so a table entry never points at freed
    // memory.
    std::mutex m_threadsLock;
    std::vector<std::shared_ptr<TaskThread>> m_threads;
};

}  // namespace kiv::system::process
