// The platform thread behind MThread. The platform implementation is chosen
// by Create.
#pragma once

#include <kiv/concurrent/IRunnable.h>

namespace kiv::system {

class MThreadImpl : public IRunnable {
public:
    /// A thread, not started yet, that will run `runnable` (may be null).
    /// Null only when memory is exhausted.
    static MThreadImpl* Create(IRunnable* runnable);

    ~MThreadImpl() override = default;
    /// Does nothing: the work is the runnable given to Create.
    void Run() override {}
    virtual void Start() = 0;
    virtual void SetPriority(int priority) = 0;
    virtual int GetPriority() = 0;
    virtual unsigned int GetId() = 0;
    virtual void WaitForStop() = 0;
};

}  // namespace kiv::system
