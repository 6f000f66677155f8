// One platform thread that runs one IRunnable once.
//
// The work is always the runnable given to the constructor: MThread's own
// Run does nothing, so deriving from MThread and overriding Run supplies no
// work to the thread. The runnable must outlive the thread. There is no
// cancel: a runnable is told to return by its own means (a flag, an event).
// Copying moves the thread to the new object and leaves the source empty.
#pragma once

#include <kiv/concurrent/IRunnable.h>
#include <kiv/platform/KivApi.h>

namespace kiv::system {

class MThreadImpl;

class KIV_API MThread : public IRunnable {
public:
    /// A thread without work: Start does nothing.
    MThread();
    /// A thread that will run `r->Run()`.
    MThread(IRunnable* r);
    /// Moves the thread out of `other`, which is left empty.
    MThread(MThread& other);
    /// Destroys this object's implementation (unless `other` is this object),
    /// then moves `other`'s in.
    MThread& operator=(MThread& other);
    /// Forgets the thread: does not wait for it and does not stop it.
    ~MThread() override;

    /// Does nothing.
    void Run() override;

    /// Creates the thread, running at once, unless one was created already.
    void Start();
    /// Sets the scheduling priority of a started thread to `p`, unchanged;
    /// before Start, and when the system refuses the value, nothing happens.
    void SetPriority(int p);
    /// -1 once the thread was started; 0x7FFFFFFF (the failed query) before.
    int GetPriority();
    /// The system's id of the thread; 0 before Start.
    unsigned int GetId();
    /// Waits until a started thread has ended; returns at once otherwise.
    void WaitForStop();

private:
    MThreadImpl* m_impl;
};

}  // namespace kiv::system
