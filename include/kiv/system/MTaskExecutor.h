// A table of tasks, each a routine with one argument meant to run on a
// thread of its own, optionally after a delay, kept by index.
//
// Results are 0 on success; failures are -1 to -4 in the unsigned result
// (-1 = 0xFFFFFFFF), and 0xFF when the object has no implementation. Copies
// share one implementation. Intended results that look wrong but are kept,
// because applications rely on them:
// - the table has 16 entries, and every AddTask takes entry 0, overwriting
//   the task added before;
// - StartTask refuses (-3) a task that has no thread yet, so a task added
//   here is never started by it, and the service thread starts none either;
// - StopTask ends nothing and answers 0;
// - SetThreadPoolSize answers 0 for sizes up to 256 and keeps 16 entries;
// - GetTaskReturnValue and GetTaskStatus answer -3 for a task that has a
//   thread, and for one without a thread a value and status of 0.
// A routine's result is the exit code of the thread it ran on.
//
// The executor's service thread ends when the event "KIV_EXECUTOR_EXIT_EVENT"
// of the namespace is set, by any process; the destructor also ends it and
// waits for it.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system::process {

/// A task routine: runs on its own thread, its result is the thread's exit code.
typedef unsigned int (*TaskRoutine)(void* argument);

/// A task described by an object. The executor calls the first five
/// operations, in this order of slots, to fill a table entry; the last two
/// are the implementer's own.
class KIV_API ITask {
public:
    /// The routine to run.
    virtual unsigned int GetRoutine(TaskRoutine* routine) = 0;
    /// The argument passed to the routine.
    virtual unsigned int GetArgument(unsigned int* argument) = 0;
    /// A value kept with the task and not used by the executor.
    virtual unsigned int GetOption(unsigned int* option) = 0;
    /// Milliseconds to wait before the task is started.
    virtual unsigned int GetDelay(unsigned int* delay) = 0;
    /// 1 to start the task as soon as it is added.
    virtual unsigned int GetStartNow(unsigned int* startNow) = 0;
    /// Not called by the executor.
    virtual unsigned int Reserved1() = 0;
    /// Not called by the executor.
    virtual unsigned int Reserved2() = 0;

protected:
    ~ITask() = default;
};

class MTaskExecutorImpl;

class KIV_API MTaskExecutor {
public:
    /// A table of 16 free entries; starts the service thread.
    MTaskExecutor();
    /// Shares `other`'s executor.
    MTaskExecutor(const MTaskExecutor& other);
    /// Drops this object's executor and shares `other`'s.
    MTaskExecutor& operator=(const MTaskExecutor& other);
    /// The last copy stops the service thread and waits for it.
    ~MTaskExecutor();

    /// Adds a routine task: -1 no table, -2 null routine; otherwise `index`
    /// receives its entry (always 0, see above), a `startNow` of 1 asks
    /// StartTask for it, and the result is 0.
    unsigned int AddTask(TaskRoutine routine, unsigned int argument, unsigned int& index,
                         unsigned int delay, unsigned int option, unsigned int startNow);
    /// Adds the task `task` describes; results as the routine form (-2 for
    /// a null task).
    unsigned int AddTask(ITask* task, unsigned int& index);
    /// -1 index of 16 or more, -2 free entry, -3 no thread yet (intended);
    /// otherwise runs the routine on a new thread; 0.
    unsigned int StartTask(unsigned int index);
    /// -1 index of 16 or more, -2 free entry; otherwise 0, ending nothing.
    unsigned int StopTask(unsigned int index);
    /// -1 index of 16 or more, -2 free entry; otherwise frees the entry; 0.
    unsigned int RemoveTask(unsigned int index);
    /// -1 for a size above 256, -2 when memory is short; otherwise 0, and
    /// the table keeps its 16 entries (intended).
    unsigned int SetThreadPoolSize(unsigned int size);
    /// -1 index of 16 or more, -2 free entry, -3 the task has a thread;
    /// otherwise `value` = 0 and the result is 0.
    unsigned int GetTaskReturnValue(unsigned int index, unsigned int& value);
    /// Checks as GetTaskReturnValue; otherwise `status` = 0 and the result is 0.
    unsigned int GetTaskStatus(unsigned int index, unsigned int& status);

private:
    MTaskExecutorImpl* m_impl;
};

}  // namespace kiv::system::process
