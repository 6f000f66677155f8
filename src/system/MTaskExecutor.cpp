#include <kiv/system/MTaskExecutor.h>

#include <cstdint>
#include <new>
#include <span>
#include <system_error>

#include "system/MTaskExecutorImpl.h"

namespace kiv::system::process {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;
constexpr unsigned int kNoTable = static_cast<unsigned int>(-1);
constexpr unsigned int kBadIndex = static_cast<unsigned int>(-1);
constexpr unsigned int kTooLarge = static_cast<unsigned int>(-1);
constexpr unsigned int kNoRoutine = static_cast<unsigned int>(-2);
constexpr unsigned int kFreeEntry = static_cast<unsigned int>(-2);
constexpr unsigned int kNoMemory = static_cast<unsigned int>(-2);
constexpr unsigned int kTableFull = static_cast<unsigned int>(-3);
constexpr unsigned int kNoThread = static_cast<unsigned int>(-3);
constexpr unsigned int kHasThread = static_cast<unsigned int>(-3);
constexpr unsigned int kStillRunning = static_cast<unsigned int>(-4);

constexpr int kScanIntervalMs = 10;
constexpr auto kRelaxed = std::memory_order_relaxed;

void* ArgumentPointer(std::uint32_t argument) {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(argument));
}

}  // namespace

bool TaskThread::GetExitCode(const TaskThread* thread, std::uint32_t& code) {
    if (thread == nullptr) {
        return false;
    }
    code = thread->exitCode.load(std::memory_order_acquire);
    return true;
}

// --- implementation ---------------------------------------------------------

MTaskExecutorImpl::MTaskExecutorImpl()
    : m_table(new (std::nothrow) TaskEntry[kInitialCapacity]),
      m_exitEvent(platform::Event::Create(L"KIV_EXECUTOR_EXIT_EVENT",
                                          platform::EventReset::Automatic, false)),
      m_stop(platform::Event::Create(platform::EventReset::Manual, false)) {
    try {
        m_serviceThread = std::thread([this] { ServiceThread(); });
    } catch (const std::system_error&) {
        // Without a service thread delayed tasks are never started, as on a
        // device whose thread could not be created.
    }
}

MTaskExecutorImpl::~MTaskExecutorImpl() {
    if (m_table) {
        const std::uint32_t count = m_taskCount.load(kRelaxed);
        for (std::uint32_t i = 0; i < count && i < m_capacity; ++i) {
            if (m_table[i].InUse()) {
                StopTask(i);
            }
        }
    }
    // The device leaves its service thread running; here it would outlive
    // the table it scans, so it is stopped and waited for.
    m_stop.Set();
    if (m_serviceThread.joinable()) {
        m_serviceThread.join();
    }
}

unsigned int MTaskExecutorImpl::ChooseIndex() const {
    const std::uint32_t count = m_taskCount.load(kRelaxed);
    for (std::uint32_t i = 0; i < count && i < m_capacity; ++i) {
        if (!m_table[i].InUse()) {
            return i;
        }
    }
    // With the count never raised this is entry 0, overwritten by every
    // AddTask: intended.
    return count;
}

unsigned int MTaskExecutorImpl::AddTask(TaskRoutine routine, unsigned int argument,
                                        unsigned int& index, unsigned int delay,
                                        unsigned int option, unsigned int startNow) {
    if (!m_table) {
        return kNoTable;
    }
    if (routine == nullptr) {
        return kNoRoutine;
    }
    if (m_taskCount.load(kRelaxed) == m_capacity - 1) {
        return kTableFull;
    }
    index = ChooseIndex();
    TaskEntry& entry = m_table[index];
    entry.routine.store(routine, kRelaxed);
    entry.lastTick.store(platform::TickCount(), kRelaxed);
    entry.argument.store(argument, kRelaxed);
    entry.delay.store(delay, kRelaxed);
    entry.option.store(option, kRelaxed);
    entry.fromTask.store(0, kRelaxed);
    entry.thread.store(nullptr, kRelaxed);
    if (startNow == 1) {
        StartTask(index);
    }
    return 0;
}

unsigned int MTaskExecutorImpl::AddTask(ITask* task, unsigned int& index) {
    if (!m_table) {
        return kNoTable;
    }
    if (task == nullptr) {
        return kNoRoutine;
    }
    if (m_taskCount.load(kRelaxed) == m_capacity - 1) {
        return kTableFull;
    }
    index = ChooseIndex();
    TaskEntry& entry = m_table[index];
    TaskRoutine routine = nullptr;
    unsigned int argument = 0;
    unsigned int delay = 0;
    unsigned int option = 0;
    task->GetRoutine(&routine);
    task->GetArgument(&argument);
    task->GetDelay(&delay);
    task->GetOption(&option);
    entry.routine.store(routine, kRelaxed);
    entry.argument.store(argument, kRelaxed);
    entry.delay.store(delay, kRelaxed);
    entry.option.store(option, kRelaxed);
    entry.lastTick.store(platform::TickCount(), kRelaxed);
    entry.fromTask.store(1, kRelaxed);
    entry.thread.store(nullptr, kRelaxed);
    unsigned int startNow = 0;
    task->GetStartNow(&startNow);
    if (startNow == 1) {
        StartTask(index);
    }
    return 0;
}

unsigned int MTaskExecutorImpl::CheckEntry(unsigned int index) const {
    if (!m_table || index >= m_capacity) {
        return kBadIndex;
    }
    return m_table[index].InUse() ? 0 : kFreeEntry;
}

unsigned int MTaskExecutorImpl::StartTask(unsigned int index) {
    if (const unsigned int failed = CheckEntry(index); failed != 0) {
        return failed;
    }
    TaskEntry& entry = m_table[index];
    // Only a task that already has a thread is started: intended.
    if (entry.thread.load(kRelaxed) == nullptr) {
        return kNoThread;
    }
    const TaskRoutine routine = entry.routine.load(kRelaxed);
    if (routine == nullptr) {
        return 0;  // removed by another thread meanwhile
    }
    void* argument = ArgumentPointer(entry.argument.load(kRelaxed));
    auto handle = std::make_shared<TaskThread>();
    TaskThread* started = nullptr;
    try {
        // The routine's thread keeps its handle's state alive; the routine
        // itself may run past the executor, as on the device.
        std::thread([handle, routine, argument] {
            handle->exitCode.store(routine(argument), std::memory_order_release);
        }).detach();
        started = handle.get();
        std::lock_guard guard(m_threadsLock);
        m_threads.push_back(std::move(handle));
    } catch (const std::exception&) {
        // A thread that cannot be created leaves a null handle; still 0.
    }
    entry.thread.store(started, kRelaxed);
    return 0;
}

unsigned int MTaskExecutorImpl::StopTask(unsigned int index) {
    if (const unsigned int failed = CheckEntry(index); failed != 0) {
        return failed;
    }
    TaskEntry& entry = m_table[index];
    const TaskThread* thread = entry.thread.load(kRelaxed);
    if (thread == nullptr) {
        return 0;
    }
    // The query's own result (1 or 0) is what is compared with 259, never
    // the exit code, so a running task is never ended: intended. A thread
    // cannot be killed safely here anyway.
    std::uint32_t code = 0;
    const std::uint32_t answered = TaskThread::GetExitCode(thread, code) ? 1 : 0;
    if (answered == TaskThread::kStillActive) {
        entry.thread.store(nullptr, kRelaxed);
    }
    return 0;
}

unsigned int MTaskExecutorImpl::RemoveTask(unsigned int index) {
    if (const unsigned int failed = CheckEntry(index); failed != 0) {
        return failed;
    }
    StopTask(index);
    m_table[index].routine.store(nullptr, kRelaxed);
    m_table[index].thread.store(nullptr, kRelaxed);
    return 0;
}

unsigned int MTaskExecutorImpl::SetThreadPoolSize(unsigned int size) {
    if (size > kMaxPoolSize) {
        return kTooLarge;
    }
    if (size <= m_capacity) {
        return 0;
    }
    std::unique_ptr<TaskEntry[]> bigger(new (std::nothrow) TaskEntry[size]);
    if (!bigger) {
        return kNoMemory;
    }
    for (std::uint32_t i = 0; m_table && i < m_capacity; ++i) {
        TaskEntry& from = m_table[i];
        TaskEntry& to = bigger[i];
        to.routine.store(from.routine.load(kRelaxed), kRelaxed);
        to.lastTick.store(from.lastTick.load(kRelaxed), kRelaxed);
        to.delay.store(from.delay.load(kRelaxed), kRelaxed);
        to.option.store(from.option.load(kRelaxed), kRelaxed);
        to.periodic.store(from.periodic.load(kRelaxed), kRelaxed);
        to.argument.store(from.argument.load(kRelaxed), kRelaxed);
        to.thread.store(from.thread.load(kRelaxed), kRelaxed);
        to.fromTask.store(from.fromTask.load(kRelaxed), kRelaxed);
    }
    // The copy is built and dropped; the table and its capacity stay as they
    // were: intended.
    return 0;
}

unsigned int MTaskExecutorImpl::GetTaskReturnValue(unsigned int index, unsigned int& value) {
    if (const unsigned int failed = CheckEntry(index); failed != 0) {
        return failed;
    }
    const TaskThread* thread = m_table[index].thread.load(kRelaxed);
    // Only a task without a thread is asked, so the query always fails and
    // the value is the 0 it started with: intended.
    if (thread != nullptr) {
        return kHasThread;
    }
    std::uint32_t code = 0;
    const std::uint32_t answered = TaskThread::GetExitCode(thread, code) ? 1 : 0;
    if (answered == TaskThread::kStillActive) {
        return kStillRunning;
    }
    value = code;
    return 0;
}

unsigned int MTaskExecutorImpl::GetTaskStatus(unsigned int index, unsigned int& status) {
    if (const unsigned int failed = CheckEntry(index); failed != 0) {
        return failed;
    }
    const TaskThread* thread = m_table[index].thread.load(kRelaxed);
    if (thread != nullptr) {
        return kHasThread;
    }
    std::uint32_t code = 0;
    const std::uint32_t answered = TaskThread::GetExitCode(thread, code) ? 1 : 0;
    status = answered == TaskThread::kStillActive ? 1 : 0;
    return 0;
}

void MTaskExecutorImpl::Scan() {
    if (!m_table) {
        return;
    }
    const std::uint32_t now = platform::TickCount();
    const std::uint32_t count = m_taskCount.load(kRelaxed);
    for (std::uint32_t i = 0; i < count && i < m_capacity; ++i) {
        TaskEntry& entry = m_table[i];
        if (!entry.InUse() || entry.thread.load(kRelaxed) != nullptr) {
            continue;
        }
        const std::uint32_t delay = entry.delay.load(kRelaxed);
        // Unsigned differences stay right across the tick counter's wrap.
        const bool due = now - entry.lastTick.load(kRelaxed) > delay;
        const std::uint32_t periodic = entry.periodic.load(kRelaxed);
        if (periodic == 1 && delay > 0 && due) {
            entry.lastTick.store(now, kRelaxed);
            StartTask(i);
        } else if (periodic == 0 && delay != 0 && due) {
            StartTask(i);
            entry.delay.store(0, kRelaxed);  // one shot
        }
    }
}

void MTaskExecutorImpl::ServiceThread() {
    // A wait on an event that could not be created would fail at once and
    // turn the scan into a busy loop; such an event is left out.
    const platform::Waitable* objects[2] = {&m_stop, &m_exitEvent};
    const std::size_t count = m_exitEvent.IsValid() ? 2 : 1;
    for (;;) {
        Scan();
        const int woken = platform::WaitForAny(
            std::span<const platform::Waitable* const>(objects, count), kScanIntervalMs);
        if (woken != platform::kWaitTimeout) {
            return;  // the named exit event, or this executor's destructor
        }
    }
}

// --- facade -------------------------------------------------------------------

MTaskExecutor::MTaskExecutor() : m_impl(new (std::nothrow) MTaskExecutorImpl) {}

MTaskExecutor::MTaskExecutor(const MTaskExecutor& other)
    : m_impl(ShareImplementation(other.m_impl)) {}

MTaskExecutor& MTaskExecutor::operator=(const MTaskExecutor& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MTaskExecutor::~MTaskExecutor() {
    DropImplementation(m_impl);
}

#define KIV_EXECUTOR_FORWARD(call) return m_impl != nullptr ? m_impl->call : kNoImplementation

unsigned int MTaskExecutor::AddTask(TaskRoutine routine, unsigned int argument, unsigned int& index,
                                    unsigned int delay, unsigned int option,
                                    unsigned int startNow) {
    KIV_EXECUTOR_FORWARD(AddTask(routine, argument, index, delay, option, startNow));
}
unsigned int MTaskExecutor::AddTask(ITask* task, unsigned int& index) {
    KIV_EXECUTOR_FORWARD(AddTask(task, index));
}
unsigned int MTaskExecutor::StartTask(unsigned int index) {
    KIV_EXECUTOR_FORWARD(StartTask(index));
}
unsigned int MTaskExecutor::StopTask(unsigned int index) {
    KIV_EXECUTOR_FORWARD(StopTask(index));
}
unsigned int MTaskExecutor::RemoveTask(unsigned int index) {
    KIV_EXECUTOR_FORWARD(RemoveTask(index));
}
unsigned int MTaskExecutor::SetThreadPoolSize(unsigned int size) {
    KIV_EXECUTOR_FORWARD(SetThreadPoolSize(size));
}
unsigned int MTaskExecutor::GetTaskReturnValue(unsigned int index, unsigned int& value) {
    KIV_EXECUTOR_FORWARD(GetTaskReturnValue(index, value));
}
unsigned int MTaskExecutor::GetTaskStatus(unsigned int index, unsigned int& status) {
    KIV_EXECUTOR_FORWARD(GetTaskStatus(index, status));
}

#undef KIV_EXECUTOR_FORWARD

}  // namespace kiv::system::process
