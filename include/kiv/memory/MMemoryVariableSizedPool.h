// Small blocks of any size, served from a table of fixed-size pools, one per
// 4-byte size class: class k holds objects of 4 * (k + 1) bytes. Each pool is
// created on first use.
//
// Blocks are 4-byte aligned (and no more) when the source returns 4-byte
// aligned memory. The caller gives the size back with every Release. No
// locking.
#pragma once

#include <kiv/memory/IMemoryAllocation.h>
#include <kiv/platform/KivApi.h>

namespace kiv::system::memory {

class MMemoryPool;

class KIV_API MMemoryVariableSizedPool {
public:
    /// Stores the settings for the pools to come; takes no memory yet.
    MMemoryVariableSizedPool(unsigned int poolMaximum, unsigned int classCount,
                             unsigned int partitionSize, IMemoryAllocation* source);
    /// Destroys every pool (which gives back its partitions), then gives the
    /// table back to the source.
    virtual ~MMemoryVariableSizedPool();
    /// The pools own their partitions: the table is not copied.
    MMemoryVariableSizedPool(const MMemoryVariableSizedPool&) = delete;
    MMemoryVariableSizedPool& operator=(const MMemoryVariableSizedPool&) = delete;

    /// A block of at least `n` bytes from the pool of its size class, or null
    /// when the table, the pool or its memory cannot be had, when no further
    /// pool may be created, or when `n` lies beyond the last size class.
    void* Allocate(unsigned int n);
    /// Gives `p`, allocated with size `n`, back to the pool of that size's
    /// class. Ignored when that class has no pool.
    void Release(void* p, unsigned int n);
    /// The sums of the counters of every pool created; 0 and 0 before any.
    void GetMemoryUsage(unsigned int& reserved, unsigned int& used);

private:
    unsigned int calcAlignedObjectSize(unsigned int n);
    unsigned int calcPoolIndex(unsigned int a);
    MMemoryPool* PoolAt(unsigned int k) const;

    IMemoryAllocation* m_source;
    // Taken from the source: one MMemoryPool* per class, read and written with
    // memcpy because the source promises only 4-byte alignment.
    char* m_pools;
    unsigned int m_poolMaximum;
    unsigned int m_classCount;
    unsigned int m_poolsCreated;
    unsigned int m_partitionSize;
};

}  // namespace kiv::system::memory
