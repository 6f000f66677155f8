#include "platform/posix/MThreadImplPosix.h"

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

namespace kiv::system {

// An open thread handle: the thread is joined by the first wait for it, or
// detached when the last copy of the handle goes without a wait.
struct MThreadImplPosix::Handle {
    pthread_t thread{};
    std::mutex lock;  // guards joined and the use of `thread`
    bool joined = false;

    ~Handle() {
        if (!joined) {
            pthread_detach(thread);
        }
    }
};

namespace {

// What the new thread needs; shared until it has told its id.
struct StartBlock {
    IRunnable* runnable = nullptr;
    std::atomic<std::uint32_t> id{0};
};

void* ThreadEntry(void* argument) {
    auto* shared = static_cast<std::shared_ptr<StartBlock>*>(argument);
    IRunnable* runnable = (*shared)->runnable;
    (*shared)->id.store(static_cast<std::uint32_t>(syscall(SYS_gettid)), std::memory_order_release);
    (*shared)->id.notify_one();
    delete shared;
    runnable->Run();
    return nullptr;  // exit code 0
}

// The device's answer to a priority query on a null handle.
constexpr int kPriorityQueryFailed = 0x7FFFFFFF;

}  // namespace

MThreadImpl* MThreadImpl::Create(IRunnable* runnable) {
    return new (std::nothrow) MThreadImplPosix(runnable);
}

MThreadImplPosix::MThreadImplPosix(IRunnable* runnable) : m_runnable(runnable) {}

void MThreadImplPosix::Start() {
    // Without a runnable there is no work, so no thread is made.
    if (m_thread != nullptr || m_runnable == nullptr) {
        return;
    }
    // Out of memory is a failed creation: the handle stays null and Start may
    // be tried again.
    std::shared_ptr<StartBlock> block;
    std::shared_ptr<Handle> handle;
    std::shared_ptr<StartBlock>* argument = nullptr;
    try {
        block = std::make_shared<StartBlock>();
        handle = std::make_shared<Handle>();
        argument = new std::shared_ptr<StartBlock>(block);
    } catch (const std::bad_alloc&) {
        return;
    }
    block->runnable = m_runnable;
    if (pthread_create(&handle->thread, nullptr, ThreadEntry, argument) != 0) {
        delete argument;
        handle->joined = true;  // nothing to detach; Start may be tried again
        return;
    }
    // The id is known once the thread runs; creation returns with it, as on
    // the device.
    block->id.wait(0, std::memory_order_acquire);
    m_id = block->id.load(std::memory_order_acquire);
    m_thread = std::move(handle);
}

void MThreadImplPosix::SetPriority(int priority) {
    if (m_thread == nullptr) {
        return;  // not remembered for a later Start
    }
    std::lock_guard<std::mutex> guard(m_thread->lock);
    if (m_thread->joined) {
        return;
    }
    int policy = 0;
    sched_param param{};
    if (pthread_getschedparam(m_thread->thread, &policy, &param) == 0) {
        param.sched_priority = priority;
        // A value the scheduling policy refuses is ignored, like any failure.
        pthread_setschedparam(m_thread->thread, policy, &param);
    }
}

int MThreadImplPosix::GetPriority() {
    // The test is inverted on purpose: a started thread reports -1, never its
    // priority, and before Start the query on no thread fails.
    if (m_thread != nullptr) {
        return -1;
    }
    return kPriorityQueryFailed;
}

unsigned int MThreadImplPosix::GetId() {
    return m_id;
}

void MThreadImplPosix::WaitForStop() {
    if (m_thread == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> guard(m_thread->lock);
    if (!m_thread->joined) {
        pthread_join(m_thread->thread, nullptr);
        m_thread->joined = true;
    }
}

}  // namespace kiv::system
