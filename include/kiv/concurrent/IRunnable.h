// The work a thread runs.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system {

class KIV_API IRunnable {
public:
    virtual ~IRunnable();
    /// Runs the work; called once, on the thread.
    virtual void Run() = 0;
};

}  // namespace kiv::system
