// A pool of objects of one fixed size, carved from partitions taken from an
// IMemoryAllocation and kept on a free list threaded through the objects.
//
// Objects lie from byte 4 of each partition onward, packed at the object
// size, so they are 4-byte aligned only when the object size is a multiple
// of 4 (and never more than 4-byte aligned). Partitions go back to the source
// only when the pool is destroyed. No locking.
#pragma once

#include <kiv/memory/IMemoryAllocation.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::system::memory {

class KIV_API MMemoryPool {
public:
    /// An empty pool of `objectSize`-byte objects (raised to at least 4) in
    /// partitions of `partitionSize` bytes, reserving at most `maximum` bytes
    /// from `source` (not owned). Takes no memory yet.
    MMemoryPool(unsigned int partitionSize, unsigned int objectSize, unsigned int maximum,
                IMemoryAllocation* source);
    /// Gives every partition back to the source, newest first.
    virtual ~MMemoryPool();
    /// A pool owns its partitions: it is not copied.
    MMemoryPool(const MMemoryPool&) = delete;
    MMemoryPool& operator=(const MMemoryPool&) = delete;

    /// One object (not cleared), or null once the reserved bytes have reached
    /// the maximum or when the source has no memory. The object size is
    /// counted as used even when null is returned for want of memory.
    void* Allocate();
    /// Puts an object of this pool back on the free list and returns 0.
    /// Returns 0xFFFFFFFF for null and for addresses that are not multiples of
    /// 4; other addresses that are not objects of this pool are ignored (0).
    /// An object released twice is handed out twice.
    unsigned int Release(void* p);
    /// Bytes of partitions held, and object bytes handed out.
    void GetMemoryUsage(unsigned int& reserved, unsigned int& used);

private:
    void Grow();
    char* ObjectAt(unsigned int link) const;

    IMemoryAllocation* m_source;
    // Partition k (0 = the oldest) is m_partitions[k]; word 0 of each holds
    // the 32-bit link to the one before it (k, or 0 for the oldest).
    std::vector<char*> m_partitions;
    unsigned int m_partitionSize;
    unsigned int m_objectSize;
    // First free object as a 32-bit link: partition index above
    // m_offsetBits, byte offset in the partition below; 0 when empty.
    unsigned int m_free;
    unsigned int m_maximum;
    unsigned int m_used;
    unsigned int m_reserved;
    unsigned int m_objectsPerPartition;
    unsigned int m_offsetBits;
    // Exact division by the object size: odd factor's inverse mod 2^32,
    // power-of-two shift, and the largest quotient of the odd factor.
    unsigned int m_oddInverse;
    unsigned int m_shift;
    unsigned int m_oddLimit;
};

}  // namespace kiv::system::memory
