// The raw memory source under every allocator of the library, and its
// default, which takes memory from the process heap.
//
// An allocator asks its source for large pieces (partitions, tables, chunk
// blocks) and gives each back once. A source only has to return addresses
// that are multiples of 4, or null; the allocators never ask more of it.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system::memory {

class KIV_API IMemoryAllocation {
public:
    virtual ~IMemoryAllocation();
    /// `n` bytes, at least 4-byte aligned, or null when none can be had.
    virtual void* Allocate(unsigned int n) = 0;
    /// Takes back an address this source returned. Returns 0.
    virtual unsigned int Free(void* p) = 0;
};

class KIV_API MMemoryAllocation : public IMemoryAllocation {
public:
    MMemoryAllocation();
    ~MMemoryAllocation() override;
    /// Memory from the process heap (aligned for any type), or null.
    void* Allocate(unsigned int n) override;
    /// Gives `p` back to the process heap; null is ignored. Always 0.
    unsigned int Free(void* p) override;
};

}  // namespace kiv::system::memory
