// A lock that one process of the namespace holds for as long as it lives:
// the way a program makes sure it runs only once per KIV_NAMESPACE. The
// kernel drops it when the process ends, however it ends.
#pragma once

#include <memory>
#include <string_view>

namespace kiv::platform {

class InstanceLock {
public:
    /// Takes the lock `name` of the current namespace; null if another
    /// process holds it (or it cannot be made). The holder's process id is
    /// kept with the lock.
    static std::unique_ptr<InstanceLock> TryAcquire(std::wstring_view name);
    /// As TryAcquire, but waits for the holder to give it up; null only if
    /// the lock cannot be made.
    static std::unique_ptr<InstanceLock> Acquire(std::wstring_view name);
    /// The process id of the process holding lock `name` of the current
    /// namespace, or 0 if nobody holds it. -1 when it is held but the holder
    /// has not written its id yet.
    static long Holder(std::wstring_view name);
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

private:
    explicit InstanceLock(int fd) : m_fd(fd) {}
    static std::unique_ptr<InstanceLock> Take(std::wstring_view name, int how);
    int m_fd;
};

}  // namespace kiv::platform
