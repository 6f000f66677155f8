// MThread's thread on POSIX threads.
#pragma once

#include <memory>

#include "concurrent/MThreadImpl.h"

namespace kiv::system {

class MThreadImplPosix final : public MThreadImpl {
public:
    explicit MThreadImplPosix(IRunnable* runnable);
    /// Copies all three fields; the copies share one thread handle.
    MThreadImplPosix(const MThreadImplPosix& other) = default;
    MThreadImplPosix& operator=(const MThreadImplPosix& other) = default;
    /// Closes the handle: the thread is detached if nobody waited for it.
    ~MThreadImplPosix() override = default;

    void Start() override;
    void SetPriority(int priority) override;
    int GetPriority() override;
    unsigned int GetId() override;
    void WaitForStop() override;

    struct Handle;

private:
    std::shared_ptr<Handle> m_thread;  // null until Start created the thread
    unsigned int m_id = 0;             // the kernel's thread id; 0 before Start
    IRunnable* m_runnable;             // not owned
};

}  // namespace kiv::system
