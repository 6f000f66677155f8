// The allocator MAllocatorManager builds: a heap for large requests and, when
// the parameters' small-pool flag is set, size-class pools for small ones.
#pragma once

#include <kiv/memory/MAllocatorManager.h>
#include <kiv/memory/MMemoryHeap.h>
#include <kiv/memory/MMemoryVariableSizedPool.h>

namespace kiv::system::memory {

class MGeneralAllocator final : public IAllocator {
public:
    /// Reads the sizes from `params` now and its small-pool flag on every call.
    MGeneralAllocator(MAllocatorParameters* params, IMemoryAllocation* source);
    ~MGeneralAllocator() override;

    void* HeapAllocate(unsigned int n) override;
    unsigned int HeapRelease(void* p) override;
    void* Allocate(unsigned int n) override;
    unsigned int Release(void* p, unsigned int n) override;
    void GetMemoryUsage(unsigned int& reserved, unsigned int& used) override;

private:
    bool UsesSmallPool(unsigned int n) const;
    bool SmallPoolOn() const;

    MMemoryHeap m_heap;
    MMemoryVariableSizedPool m_pool;
    MAllocatorParameters* m_params;
    // The source the heap and the pools take from (not owned).
    [[maybe_unused]] IMemoryAllocation* m_source;
};

}  // namespace kiv::system::memory
