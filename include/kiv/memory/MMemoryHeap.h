// A general-purpose heap that carves blocks of any size out of large
// partitions taken from an IMemoryAllocation.
//
// Allocation is first fit over the partitions in ascending order of size and
// their free lists; a freed block merges with its free neighbours, and a
// partition goes back to the source as soon as it is wholly free. Every
// block handed out reads as 0xCC; every freed block is overwritten with 0xDD.
//
// Alignment: blocks are 4-byte aligned (and no more) when the source returns
// 4-byte aligned partitions. Store 8-byte values into a block with memcpy.
//
// Each block carries a 16-byte header, each partition a 16-byte header and
// two 16-byte sentinels; `Allocate(10)` counts 28 bytes as used. No locking:
// one thread at a time, or the owner guards the heap.
#pragma once

#include <kiv/memory/IMemoryAllocation.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::system::memory {

class KIV_API MMemoryHeap {
public:
    /// A heap whose partitions are `partitionSize` bytes, rounded up to a
    /// multiple of `granularity` (of 4 when it is 0), that reserves at most
    /// `maximum` bytes from `source` (not owned). Takes no memory yet.
    MMemoryHeap(unsigned int partitionSize, unsigned int granularity, unsigned int maximum,
                IMemoryAllocation* source);
    /// A heap without a source: InitMemoryHeap must be called before use.
    MMemoryHeap();
    /// Gives every partition back to the source, in list order.
    virtual ~MMemoryHeap();
    /// A heap owns its partitions: it is not copied.
    MMemoryHeap(const MMemoryHeap&) = delete;
    MMemoryHeap& operator=(const MMemoryHeap&) = delete;

    /// Initialises a heap that has no source yet, as the constructor does, and
    /// returns 0; returns -1 and changes nothing if it already has one.
    int InitMemoryHeap(unsigned int partitionSize, unsigned int granularity, unsigned int maximum,
                       IMemoryAllocation* source);
    /// `n` bytes filled with 0xCC, or null when the maximum would be exceeded
    /// or the source has no memory. Counts n rounded up to 4, plus 16, as used.
    void* Allocate(unsigned int n);
    /// Frees a block of this heap and fills it with 0xDD. Null, misaligned
    /// and foreign pointers, and blocks already free, are ignored.
    void Release(void* p);
    /// Bytes of partitions held, and bytes handed out with their headers.
    /// Both are approximate by design (see Allocate and Release).
    void GetMemoryUsage(unsigned int& reserved, unsigned int& used);

private:
    unsigned int Grow(unsigned int s, unsigned int* freeBlock);
    char* FindOwner(const char* p, unsigned int* id);
    void ReturnPartition(char* base, unsigned int id);
    char* PartitionAt(unsigned int id) const { return m_partitions[id - 1]; }

    IMemoryAllocation* m_source;
    unsigned int m_partitionSize;
    unsigned int m_granularity;
    // The list of partitions, in ascending order of size, threaded through
    // their headers by 32-bit ids: id k is m_partitions[k - 1]; 0 is none.
    unsigned int m_first;
    std::vector<char*> m_partitions;
    unsigned int m_maximum;
    unsigned int m_used;
    unsigned int m_reserved;
};

}  // namespace kiv::system::memory
