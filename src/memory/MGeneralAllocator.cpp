#include "memory/MGeneralAllocator.h"

namespace kiv::system::memory {
namespace {

// Requests up to this size go to the size-class pools when they are enabled.
constexpr unsigned int kSmallLimit = 64;
constexpr unsigned int kHeapGranularity = 32;

}  // namespace

MGeneralAllocator::MGeneralAllocator(MAllocatorParameters* params, IMemoryAllocation* source)
    : m_heap(params->GetParameter(PARA_HEAP_PARTITION_SIZE), kHeapGranularity,
             params->GetParameter(PARA_HEAP_MAXIMUM), source),
      m_pool(params->GetParameter(PARA_POOL_MAXIMUM), params->GetParameter(PARA_POOL_CLASS_COUNT),
             params->GetParameter(PARA_POOL_PARTITION_SIZE), source),
      m_params(params),
      m_source(source) {}

MGeneralAllocator::~MGeneralAllocator() = default;

bool MGeneralAllocator::SmallPoolOn() const {
    return m_params->GetParameter(PARA_USE_SMALL_POOL) != 0;
}

// The flag is read again on every call: changing it while blocks are out
// sends them back to the wrong allocator, as callers are told.
bool MGeneralAllocator::UsesSmallPool(unsigned int n) const {
    return n <= kSmallLimit && SmallPoolOn();
}

void* MGeneralAllocator::HeapAllocate(unsigned int n) {
    return m_heap.Allocate(n);
}

unsigned int MGeneralAllocator::HeapRelease(void* p) {
    m_heap.Release(p);
    return 0;
}

void* MGeneralAllocator::Allocate(unsigned int n) {
    return UsesSmallPool(n) ? m_pool.Allocate(n) : HeapAllocate(n);
}

unsigned int MGeneralAllocator::Release(void* p, unsigned int n) {
    if (UsesSmallPool(n)) {
        m_pool.Release(p, n);
        return 0;
    }
    return HeapRelease(p);
}

void MGeneralAllocator::GetMemoryUsage(unsigned int& reserved, unsigned int& used) {
    m_heap.GetMemoryUsage(reserved, used);
    if (SmallPoolOn()) {
        unsigned int poolReserved = 0;
        unsigned int poolUsed = 0;
        m_pool.GetMemoryUsage(poolReserved, poolUsed);
        reserved += poolReserved;
        used += poolUsed;
    }
}

}  // namespace kiv::system::memory
