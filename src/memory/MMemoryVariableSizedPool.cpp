#include <kiv/memory/MMemoryPool.h>
#include <kiv/memory/MMemoryVariableSizedPool.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace kiv::system::memory {

MMemoryVariableSizedPool::MMemoryVariableSizedPool(unsigned int poolMaximum,
                                                   unsigned int classCount,
                                                   unsigned int partitionSize,
                                                   IMemoryAllocation* source)
    : m_source(source),
      m_pools(nullptr),
      m_poolMaximum(poolMaximum),
      m_classCount(classCount),
      m_poolsCreated(0),
      m_partitionSize(partitionSize) {}

MMemoryVariableSizedPool::~MMemoryVariableSizedPool() {
    if (m_pools == nullptr) {
        return;
    }
    for (unsigned int k = 0; k < m_classCount; ++k) {
        delete PoolAt(k);
    }
    m_source->Free(m_pools);
}

unsigned int MMemoryVariableSizedPool::calcAlignedObjectSize(unsigned int n) {
    return n == 0 ? 4 : (n + 3) & ~3u;
}

unsigned int MMemoryVariableSizedPool::calcPoolIndex(unsigned int a) {
    return a / 4 - 1;
}

MMemoryPool* MMemoryVariableSizedPool::PoolAt(unsigned int k) const {
    MMemoryPool* pool;
    std::memcpy(&pool, m_pools + std::size_t{k} * sizeof pool, sizeof pool);
    return pool;
}

void* MMemoryVariableSizedPool::Allocate(unsigned int n) {
    // Sizes whose rounding overflows land on index 0xFFFFFFFF, beyond any table.
    const unsigned int a = calcAlignedObjectSize(n);
    const unsigned int k = calcPoolIndex(a);
    if (k >= m_classCount) {
        return nullptr;
    }
    if (m_pools == nullptr) {
        const std::uint64_t bytes = std::uint64_t{m_classCount} * sizeof(MMemoryPool*);
        if (m_source == nullptr || bytes > std::numeric_limits<unsigned int>::max()) {
            return nullptr;
        }
        m_pools = static_cast<char*>(m_source->Allocate(static_cast<unsigned int>(bytes)));
        if (m_pools == nullptr) {
            return nullptr;
        }
        std::memset(m_pools, 0, bytes);
    }
    MMemoryPool* pool = PoolAt(k);
    if (pool == nullptr) {
        // One class always stays without a pool: at most class count - 1 exist.
        if (m_poolsCreated + 1 >= m_classCount) {
            return nullptr;
        }
        pool = new (std::nothrow) MMemoryPool(m_partitionSize, a, m_poolMaximum, m_source);
        if (pool == nullptr) {
            return nullptr;
        }
        ++m_poolsCreated;
        std::memcpy(m_pools + std::size_t{k} * sizeof pool, &pool, sizeof pool);
    }
    return pool->Allocate();
}

void MMemoryVariableSizedPool::Release(void* p, unsigned int n) {
    const unsigned int k = calcPoolIndex(calcAlignedObjectSize(n));
    if (m_pools == nullptr || k >= m_classCount) {
        return;
    }
    MMemoryPool* pool = PoolAt(k);
    if (pool != nullptr) {
        pool->Release(p);
    }
}

void MMemoryVariableSizedPool::GetMemoryUsage(unsigned int& reserved, unsigned int& used) {
    reserved = 0;
    used = 0;
    if (m_pools == nullptr) {
        return;
    }
    for (unsigned int k = 0; k < m_classCount; ++k) {
        if (MMemoryPool* pool = PoolAt(k)) {
            unsigned int poolReserved = 0;
            unsigned int poolUsed = 0;
            pool->GetMemoryUsage(poolReserved, poolUsed);
            reserved += poolReserved;
            used += poolUsed;
        }
    }
}

}  // namespace kiv::system::memory
