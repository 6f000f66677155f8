// Out of memory in the constructors of the lock facades and in MThread::Start
// must not throw across the interface: the objects come out as failed
// creations. The program's allocator fails on request, on the requesting
// thread only.
#include <kiv/concurrent/MConcurObject.h>
#include <kiv/concurrent/MMutex.h>
#include <kiv/concurrent/MSemaphore.h>
#include <kiv/concurrent/MThread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <optional>

namespace {

// Allocations this thread may still make; negative = no limit.
thread_local int t_allocationsLeft = -1;

void* Allocate(std::size_t size) noexcept {
    if (t_allocationsLeft == 0) {
        return nullptr;
    }
    if (t_allocationsLeft > 0) {
        --t_allocationsLeft;
    }
    return std::malloc(size == 0 ? 1 : size);
}

class AllocationLimit {
public:
    explicit AllocationLimit(int allowed) { t_allocationsLeft = allowed; }
    ~AllocationLimit() { t_allocationsLeft = -1; }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};

}  // namespace

void* operator new(std::size_t size) {
    if (void* p = Allocate(size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

namespace {

using namespace kiv::system::concurrent;
using kiv::system::IRunnable;
using kiv::system::MThread;

TEST(OutOfMemory, LockObjectsAreMadeAsFailedCreationsWithoutThrowing) {
    // Every allocation point of the constructors fails in turn.
    for (int allowed = 0; allowed < 8; ++allowed) {
        std::optional<MMutex> mutex;
        std::optional<MSemaphore> semaphore;
        std::optional<MConcurObject> object;
        bool threw = false;
        {
            AllocationLimit limit(allowed);
            try {
                mutex.emplace();
                semaphore.emplace(1);
                object.emplace();
            } catch (...) {
                threw = true;
            }
        }
        ASSERT_FALSE(threw) << allowed << " allocations allowed";
        mutex->Aquire();
        mutex->Release();
        object->Notify();
        if (allowed == 0) {
            EXPECT_EQ(semaphore->TryAquire(0), 0) << "a failed creation takes nothing";
            EXPECT_EQ(object->Wait(0), 0);
        }
    }
    // With memory the same objects work.
    MSemaphore semaphore(1);
    MConcurObject object;
    object.Notify();
    EXPECT_EQ(semaphore.TryAquire(0), 1);
    EXPECT_EQ(object.Wait(0), 1);
}

TEST(OutOfMemory, AThreadThatCannotBeStartedCanBeStartedAgain) {
    struct Work : IRunnable {
        void Run() override { runs.fetch_add(1); }
        std::atomic<int> runs{0};
    } work;
    MThread thread(&work);
    for (int allowed = 0; allowed < 3; ++allowed) {
        bool threw = false;
        {
            AllocationLimit limit(allowed);
            try {
                thread.Start();
            } catch (...) {
                threw = true;
            }
        }
        ASSERT_FALSE(threw) << allowed << " allocations allowed";
        EXPECT_EQ(thread.GetId(), 0u) << "no thread was made";
    }
    thread.Start();
    thread.WaitForStop();
    EXPECT_NE(thread.GetId(), 0u);
    EXPECT_EQ(work.runs.load(), 1);
}

}  // namespace
