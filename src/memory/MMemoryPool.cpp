// Links inside the pool's memory are 32-bit words, as on the device. A link
// to a free object holds the index of its partition above m_offsetBits and
// its byte offset in that partition below; the offset is at least 4, so no
// link to an object is 0. Word 0 of partition k holds k: the id (index + 1)
// of the partition created before it, 0 for the first.
#include <kiv/memory/MMemoryPool.h>

#include "memory/Words.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <new>

namespace kiv::system::memory {
namespace {

using Word = std::uint32_t;

constexpr Word kMinimumObjectSize = 4;
constexpr Word kFirstObject = 4;
constexpr Word kInvalidPointer = 0xFFFFFFFF;

Word OffsetMask(Word bits) {
    return static_cast<Word>((std::uint64_t{1} << bits) - 1);
}

// The inverse of an odd number modulo 2^32, by Newton's iteration.
Word OddInverse(Word odd) {
    Word inverse = odd;
    for (int i = 0; i < 5; ++i) {
        inverse *= 2 - odd * inverse;
    }
    return inverse;
}

}  // namespace

MMemoryPool::MMemoryPool(unsigned int partitionSize, unsigned int objectSize, unsigned int maximum,
                         IMemoryAllocation* source)
    : m_source(source),
      m_partitionSize(partitionSize),
      m_objectSize(objectSize < kMinimumObjectSize ? kMinimumObjectSize : objectSize),
      m_free(0),
      m_maximum(maximum),
      m_used(0),
      m_reserved(0),
      m_objectsPerPartition(
          partitionSize >= kFirstObject ? (partitionSize - kFirstObject) / m_objectSize : 0),
      m_offsetBits(partitionSize != 0 ? static_cast<Word>(std::bit_width(partitionSize - 1)) : 0),
      m_oddInverse(OddInverse(m_objectSize >> std::countr_zero(m_objectSize))),
      m_shift(static_cast<Word>(std::countr_zero(m_objectSize))),
      m_oddLimit(std::numeric_limits<Word>::max() / (m_objectSize >> m_shift)) {}

MMemoryPool::~MMemoryPool() {
    for (auto partition = m_partitions.rbegin(); partition != m_partitions.rend(); ++partition) {
        m_source->Free(*partition);
    }
}

char* MMemoryPool::ObjectAt(unsigned int link) const {
    return m_partitions[static_cast<std::size_t>(std::uint64_t{link} >> m_offsetBits)] +
           (link & OffsetMask(m_offsetBits));
}

void MMemoryPool::Grow() {
    if (m_reserved >= m_maximum || m_source == nullptr) {
        return;
    }
    // A partition that holds no object is not taken, and a link has room
    // for 2^(32 - m_offsetBits) partitions.
    if (m_objectsPerPartition == 0 ||
        (std::uint64_t{m_partitions.size()} << m_offsetBits) >= (std::uint64_t{1} << 32)) {
        return;
    }
    char* base = static_cast<char*>(m_source->Allocate(m_partitionSize));
    if (base == nullptr) {
        return;
    }
    try {
        m_partitions.push_back(base);
    } catch (const std::bad_alloc&) {
        m_source->Free(base);
        return;
    }
    m_reserved += m_partitionSize;

    const auto index = static_cast<Word>(m_partitions.size() - 1);
    StoreWord(base, index);
    const auto prefix = static_cast<Word>(std::uint64_t{index} << m_offsetBits);
    Word offset = kFirstObject;
    // Pushed in address order: the object with the highest address comes out first.
    for (Word i = 0; i < m_objectsPerPartition; ++i, offset += m_objectSize) {
        StoreWord(base + offset, m_free);
        m_free = prefix | offset;
    }
}

void* MMemoryPool::Allocate() {
    // Freed objects waiting in the list do not help: at the maximum the pool
    // stops allocating for good.
    if (m_reserved >= m_maximum) {
        return nullptr;
    }
    if (m_free == 0) {
        Grow();
    }
    char* object = nullptr;
    if (m_free != 0) {
        object = ObjectAt(m_free);
        m_free = LoadWord(object);
    }
    // Counted even when no object could be had.
    m_used += m_objectSize;
    return object;
}

unsigned int MMemoryPool::Release(void* p) {
    const auto at = reinterpret_cast<std::uintptr_t>(p);
    if (p == nullptr || at % 4 != 0) {
        return kInvalidPointer;
    }
    const Word objectBytes = m_objectsPerPartition * m_objectSize;
    for (std::size_t k = m_partitions.size(); k-- > 0;) {
        const auto start = reinterpret_cast<std::uintptr_t>(m_partitions[k]);
        if (at < start + kFirstObject || at - start - kFirstObject >= objectBytes) {
            continue;
        }
        const auto offset = static_cast<Word>(at - start);
        const Word fromFirst = offset - kFirstObject;
        const bool onBoundary = (fromFirst & OffsetMask(m_shift)) == 0 &&
                                (fromFirst >> m_shift) * m_oddInverse <= m_oddLimit;
        if (onBoundary) {
            StoreWord(static_cast<char*>(p), m_free);
            m_free = static_cast<Word>(std::uint64_t{k} << m_offsetBits) | offset;
            m_used -= m_objectSize;
        }
        break;
    }
    // Foreign pointers are not reported.
    return 0;
}

void MMemoryPool::GetMemoryUsage(unsigned int& reserved, unsigned int& used) {
    reserved = m_reserved;
    used = m_used;
}

}  // namespace kiv::system::memory
