#include <kiv/memory/MAllocatorManager.h>

#include "memory/MGeneralAllocator.h"

#include <new>

namespace kiv::system::memory {

MAllocatorParameters::MAllocatorParameters()
    : m_heapOnly(1),
      m_smallPool(0),
      m_heapPartitionSize(0x80000),
      m_poolPartitionSize(4096),
      m_poolClassCount(16),
      m_heapMaximum(0x800000),
      m_poolMaximum(0x100000) {}

void MAllocatorParameters::SetParameter(MAllocMemParaType t, unsigned int v) {
    // The two flags are kept opposite: setting one always sets the other.
    switch (t) {
        case PARA_USE_HEAP_ONLY:
            m_heapOnly = static_cast<unsigned char>(v);
            m_smallPool = m_heapOnly != 0 ? 0 : 1;
            break;
        case PARA_USE_SMALL_POOL:
            m_smallPool = static_cast<unsigned char>(v);
            m_heapOnly = m_smallPool != 0 ? 0 : 1;
            break;
        case PARA_HEAP_PARTITION_SIZE:
            m_heapPartitionSize = v;
            break;
        case PARA_POOL_PARTITION_SIZE:
            m_poolPartitionSize = v;
            break;
        case PARA_POOL_CLASS_COUNT:
            m_poolClassCount = v;
            break;
        case PARA_HEAP_MAXIMUM:
            m_heapMaximum = v;
            break;
        case PARA_POOL_MAXIMUM:
            m_poolMaximum = v;
            break;
    }
}

unsigned int MAllocatorParameters::GetParameter(MAllocMemParaType t) {
    switch (t) {
        case PARA_USE_HEAP_ONLY:
            return m_heapOnly;
        case PARA_USE_SMALL_POOL:
            return m_smallPool;
        case PARA_HEAP_PARTITION_SIZE:
            return m_heapPartitionSize;
        case PARA_POOL_PARTITION_SIZE:
            return m_poolPartitionSize;
        case PARA_POOL_CLASS_COUNT:
            return m_poolClassCount;
        case PARA_HEAP_MAXIMUM:
            return m_heapMaximum;
        case PARA_POOL_MAXIMUM:
            return m_poolMaximum;
    }
    return 0;
}

IAllocator::~IAllocator() = default;

MAllocatorManager::MAllocatorManager() : m_allocator(nullptr), m_source(nullptr) {
    CreateMemoryAllocation();
}

MAllocatorManager::~MAllocatorManager() {
    delete m_allocator;
    delete m_source;
}

IAllocator* MAllocatorManager::CreateAllocator(MAllocatorParameters* p) {
    if (m_allocator == nullptr && p != nullptr) {
        if (IMemoryAllocation* source = CreateMemoryAllocation()) {
            m_allocator = new (std::nothrow) MGeneralAllocator(p, source);
        }
    }
    return m_allocator;
}

IMemoryAllocation* MAllocatorManager::CreateMemoryAllocation() {
    if (m_source == nullptr) {
        m_source = new (std::nothrow) MMemoryAllocation();
    }
    return m_source;
}

}  // namespace kiv::system::memory
