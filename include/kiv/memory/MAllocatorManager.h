// A general allocator built from numbered settings: large requests from an
// MMemoryHeap and, when enabled, requests of 64 bytes or less from an
// MMemoryVariableSizedPool.
//
// Blocks are 4-byte aligned (and no more). No locking: one thread at a time,
// or the owner guards the allocator.
#pragma once

#include <kiv/memory/IMemoryAllocation.h>
#include <kiv/platform/KivApi.h>

namespace kiv::system::memory {

/// The settings of MAllocatorParameters.
enum MAllocMemParaType : int {
    PARA_USE_HEAP_ONLY = 0,        ///< flag, default 1: serve everything from the heap
    PARA_USE_SMALL_POOL = 1,       ///< flag, default 0: serve up to 64 bytes from the pools
    PARA_HEAP_PARTITION_SIZE = 2,  ///< default 0x80000
    PARA_POOL_PARTITION_SIZE = 3,  ///< default 4096, for each size-class pool
    PARA_POOL_CLASS_COUNT = 4,     ///< default 16
    PARA_HEAP_MAXIMUM = 5,         ///< default 0x800000
    PARA_POOL_MAXIMUM = 6,         ///< default 0x100000, for each size-class pool
};

class KIV_API MAllocatorParameters {
public:
    /// The defaults listed with MAllocMemParaType.
    MAllocatorParameters();

    /// Stores a setting. The two flags exclude each other: setting one stores
    /// the low byte of `v` and sets the other to the opposite. Unknown
    /// settings are ignored.
    void SetParameter(MAllocMemParaType t, unsigned int v);
    /// A setting (a flag as its byte), or 0 for an unknown one.
    unsigned int GetParameter(MAllocMemParaType t);

private:
    unsigned char m_heapOnly;
    unsigned char m_smallPool;
    unsigned int m_heapPartitionSize;
    unsigned int m_poolPartitionSize;
    unsigned int m_poolClassCount;
    unsigned int m_heapMaximum;
    unsigned int m_poolMaximum;
};

/// An allocator made by MAllocatorManager.
class KIV_API IAllocator {
public:
    /// Destroys the allocator's heap and pools.
    virtual ~IAllocator();
    /// `n` bytes from the heap, or null.
    virtual void* HeapAllocate(unsigned int n) = 0;
    /// Frees a heap block. Returns 0.
    virtual unsigned int HeapRelease(void* p) = 0;
    /// `n` bytes: from the size-class pools when the small-pool flag is set
    /// and `n` is 64 or less, otherwise from the heap. Null when none.
    virtual void* Allocate(unsigned int n) = 0;
    /// Frees a block allocated with size `n`, by the same rule. Returns 0.
    virtual unsigned int Release(void* p, unsigned int n) = 0;
    /// The heap's counters, plus the pools' sums when the small-pool flag is set.
    virtual void GetMemoryUsage(unsigned int& reserved, unsigned int& used) = 0;
};

class KIV_API MAllocatorManager {
public:
    /// Creates the manager's memory source (from the process heap).
    MAllocatorManager();
    /// Destroys the allocator, then the memory source.
    virtual ~MAllocatorManager();
    /// The manager owns its allocator and source: it is not copied.
    MAllocatorManager(const MAllocatorManager&) = delete;
    MAllocatorManager& operator=(const MAllocatorManager&) = delete;

    /// On the first call, builds the allocator from `p`, which must outlive it
    /// and is read again on every call: its small-pool flag must not change
    /// while blocks are outstanding. Later calls return the same allocator and
    /// ignore their argument. Null (and nothing built) when `p` is null.
    virtual IAllocator* CreateAllocator(MAllocatorParameters* p);

private:
    /// The memory source, created on the first call.
    virtual IMemoryAllocation* CreateMemoryAllocation();

    IAllocator* m_allocator;
    IMemoryAllocation* m_source;
};

}  // namespace kiv::system::memory
