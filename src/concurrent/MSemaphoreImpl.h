// The semaphore behind MSemaphore: one unnamed platform semaphore whose
// initial and maximum counts are the constructor's argument.
#pragma once

#include "platform/Waitable.h"

namespace kiv::system::concurrent {

class MSemaphoreImpl {
public:
    explicit MSemaphoreImpl(int count);
    MSemaphoreImpl(const MSemaphoreImpl&) = delete;
    MSemaphoreImpl& operator=(const MSemaphoreImpl&) = delete;

    virtual ~MSemaphoreImpl() = default;
    virtual void Aquire(int n);
    virtual void Aquire();
    virtual unsigned char TryAquire(int n, int timeout);
    virtual unsigned char TryAquire(int timeout);
    virtual void Release(int n);
    virtual void Release();

private:
    platform::Semaphore m_semaphore;
};

}  // namespace kiv::system::concurrent
