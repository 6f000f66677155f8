// The heap keeps every structure inside its partitions as 32-bit words:
// blocks are named by their byte offset from the start of their partition,
// and partitions by a 32-bit id, an index into m_partitions plus one.
//
// Partition header (offset 0 of a partition):
//   0 size in bytes, 4 id of the previous partition in the list (0: the
//   heap's list head), 8 id of the next partition, 12 offset of the first
//   free block.
// Block header (16 bytes in front of the user area):
//   0 offset of the previous block in address order (0 in the start
//   sentinel), 4 offset of the next block (0 in the end sentinel), 8 offset
//   of the free-list link that points to this block (never 0 in a free block,
//   0 in a used block or a sentinel), 12 offset of the next free block (free)
//   or the id of the partition (used block or sentinel).
// Offsets are multiples of 4. Bit 0 of a free block's back link says that its
// user area already reads 0xDD throughout (it was filled by a release, or cut
// from a block that was), so a merge refills only what is not yet 0xDD: the
// result is the same bytes as filling the whole merged block.
#include <kiv/memory/MMemoryHeap.h>

#include "memory/Words.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace kiv::system::memory {
namespace {

using Word = std::uint32_t;

constexpr Word kWordMax = std::numeric_limits<Word>::max();

constexpr Word kPartitionSize = 0;
constexpr Word kPartitionBack = 4;
constexpr Word kPartitionNext = 8;
constexpr Word kPartitionFree = 12;

constexpr Word kPrev = 0;
constexpr Word kNext = 4;
constexpr Word kBack = 8;
constexpr Word kLink = 12;

constexpr Word kClean = 1;
constexpr Word kFlags = 3;

constexpr Word kHeader = 16;
constexpr Word kStartSentinel = 16;
constexpr Word kFirstBlock = 32;
// A partition must hold a request plus its header, two sentinels and room
// for a free remainder.
constexpr Word kPartitionOverhead = 64;
// A block is split only if the rest would be at least this much larger than
// the request: a header and 16 bytes.
constexpr Word kSplitMargin = 32;

constexpr unsigned char kAllocatedFill = 0xCC;
constexpr unsigned char kReleasedFill = 0xDD;

// One partition, seen through its base address.
struct Partition {
    char* base;

    Word Get(Word block, Word field) const { return LoadWord(base + block + field); }
    void Set(Word block, Word field, Word value) const { StoreWord(base + block + field, value); }
    Word Size() const { return LoadWord(base + kPartitionSize); }
    Word BlockSize(Word block) const { return Get(block, kNext) - block; }

    bool IsFree(Word block) const { return Get(block, kBack) != 0; }
    bool IsClean(Word block) const { return (Get(block, kBack) & kClean) != 0; }

    // Points the back link of free block `block` at `link`, keeping its flags.
    void SetBack(Word block, Word link) const {
        Set(block, kBack, link | (Get(block, kBack) & kFlags));
    }

    void Unlink(Word block) const {
        const Word back = Get(block, kBack) & ~kFlags;
        const Word nextFree = Get(block, kLink);
        StoreWord(base + back, nextFree);
        if (nextFree != 0) {
            SetBack(nextFree, back);
        }
    }

    void PushFree(Word block, Word flags) const {
        const Word head = LoadWord(base + kPartitionFree);
        Set(block, kBack, kPartitionFree | flags);
        Set(block, kLink, head);
        if (head != 0) {
            SetBack(head, block + kLink);
        }
        StoreWord(base + kPartitionFree, block);
    }

    // Extends `block` over its next neighbour `next`.
    void Absorb(Word block, Word next) const {
        const Word after = Get(next, kNext);
        Set(block, kNext, after);
        Set(after, kPrev, block);
    }

    // A used block whose neighbours agree that it is one: anything else at
    // this place (a sentinel, a free block, the middle of a user area) is
    // not a block that can be freed.
    bool IsUsedBlock(Word block) const {
        if (Get(block, kBack) != 0) {
            return false;
        }
        const Word prev = Get(block, kPrev);
        const Word next = Get(block, kNext);
        if (prev < kStartSentinel || prev >= block || next <= block || next > Size() - kHeader) {
            return false;
        }
        return Get(prev, kNext) == block && Get(next, kPrev) == block;
    }
};

Word RoundUp(Word value, Word unit) {
    const std::uint64_t rounded = (std::uint64_t{value} + unit - 1) / unit * unit;
    return rounded <= kWordMax ? static_cast<Word>(rounded) : kWordMax / unit * unit;
}

}  // namespace

MMemoryHeap::MMemoryHeap(unsigned int partitionSize, unsigned int granularity, unsigned int maximum,
                         IMemoryAllocation* source)
    : MMemoryHeap() {
    InitMemoryHeap(partitionSize, granularity, maximum, source);
}

MMemoryHeap::MMemoryHeap()
    : m_source(nullptr),
      m_partitionSize(0),
      m_granularity(0),
      m_first(0),
      m_maximum(0),
      m_used(0),
      m_reserved(0) {}

MMemoryHeap::~MMemoryHeap() {
    Word id = m_first;
    while (id != 0) {
        char* base = PartitionAt(id);
        id = LoadWord(base + kPartitionNext);
        m_source->Free(base);
    }
}

int MMemoryHeap::InitMemoryHeap(unsigned int partitionSize, unsigned int granularity,
                                unsigned int maximum, IMemoryAllocation* source) {
    if (m_source != nullptr) {
        return -1;
    }
    m_source = source;
    m_granularity = granularity;
    m_partitionSize = RoundUp(partitionSize, granularity != 0 ? granularity : 4);
    m_maximum = maximum;
    m_used = 0;
    m_reserved = 0;
    return 0;
}

void* MMemoryHeap::Allocate(unsigned int n) {
    // A request that cannot fit a partition of 32-bit size with its overhead.
    if (m_source == nullptr || n > kWordMax - kPartitionOverhead - 3) {
        return nullptr;
    }
    const Word s = (n + 3) & ~Word{3};

    Partition partition{nullptr};
    Word id = m_first;
    Word block = 0;
    for (; id != 0; id = LoadWord(partition.base + kPartitionNext)) {
        partition.base = PartitionAt(id);
        if (partition.Size() < s + kPartitionOverhead) {
            continue;
        }
        for (Word b = LoadWord(partition.base + kPartitionFree); b != 0;
             b = partition.Get(b, kLink)) {
            if (partition.BlockSize(b) >= s + kHeader) {
                block = b;
                break;
            }
        }
        if (block != 0) {
            break;
        }
    }
    if (block == 0) {
        id = Grow(s, &block);
        if (id == 0) {
            return nullptr;
        }
        partition.base = PartitionAt(id);
    }

    if (partition.BlockSize(block) < s + kSplitMargin) {
        partition.Unlink(block);
    } else {
        // The rest takes over the block's place in the free list.
        const Word rest = block + kHeader + s;
        const Word next = partition.Get(block, kNext);
        // Its user area lies inside the block's: it is as clean as the block.
        const Word back = partition.Get(block, kBack);
        const Word nextFree = partition.Get(block, kLink);
        partition.Set(rest, kPrev, block);
        partition.Set(rest, kNext, next);
        partition.Set(next, kPrev, rest);
        partition.Set(rest, kBack, back);
        partition.Set(rest, kLink, nextFree);
        StoreWord(partition.base + (back & ~kFlags), rest);
        if (nextFree != 0) {
            partition.SetBack(nextFree, rest + kLink);
        }
        partition.Set(block, kNext, rest);
    }
    partition.Set(block, kBack, 0);
    partition.Set(block, kLink, id);

    char* user = partition.base + block + kHeader;
    std::memset(user, kAllocatedFill, partition.BlockSize(block) - kHeader);
    // Counts the request, not the block: a block taken whole is larger.
    m_used += s + kHeader;
    return user;
}

unsigned int MMemoryHeap::Grow(unsigned int s, unsigned int* freeBlock) {
    // The request is tested against the maximum, not the partition it needs.
    if (std::uint64_t{m_reserved} + s > m_maximum) {
        return 0;
    }
    const std::uint64_t needed = std::uint64_t{s} + kPartitionOverhead;
    std::uint64_t size = m_partitionSize;
    if (size < needed) {
        const std::uint64_t step = size + m_granularity;
        if (step == 0) {
            return 0;
        }
        size += (needed - size + step - 1) / step * step;
        if (size > kWordMax) {
            return 0;
        }
    }
    const Word p = static_cast<Word>(size);

    Partition partition{static_cast<char*>(m_source->Allocate(p))};
    if (partition.base == nullptr) {
        return 0;
    }
    Word id = 1;
    while (id <= m_partitions.size() && m_partitions[id - 1] != nullptr) {
        ++id;
    }
    if (id > m_partitions.size()) {
        try {
            m_partitions.push_back(nullptr);
        } catch (const std::bad_alloc&) {
            m_source->Free(partition.base);
            return 0;
        }
    }
    m_partitions[id - 1] = partition.base;

    const Word endSentinel = p - kHeader;
    StoreWord(partition.base + kPartitionSize, p);
    StoreWord(partition.base + kPartitionFree, kFirstBlock);
    partition.Set(kStartSentinel, kPrev, 0);
    partition.Set(kStartSentinel, kNext, kFirstBlock);
    partition.Set(kStartSentinel, kBack, 0);
    partition.Set(kStartSentinel, kLink, id);
    partition.Set(kFirstBlock, kPrev, kStartSentinel);
    partition.Set(kFirstBlock, kNext, endSentinel);
    partition.Set(kFirstBlock, kBack, kPartitionFree);  // holds what the source gave: not clean
    partition.Set(kFirstBlock, kLink, 0);
    partition.Set(endSentinel, kPrev, kFirstBlock);
    partition.Set(endSentinel, kNext, 0);
    partition.Set(endSentinel, kBack, 0);
    partition.Set(endSentinel, kLink, id);

    // Ascending order of size; a new partition goes before an equal one.
    Word before = 0;
    Word after = m_first;
    while (after != 0 && LoadWord(PartitionAt(after) + kPartitionSize) < p) {
        before = after;
        after = LoadWord(PartitionAt(after) + kPartitionNext);
    }
    StoreWord(partition.base + kPartitionBack, before);
    StoreWord(partition.base + kPartitionNext, after);
    if (before != 0) {
        StoreWord(PartitionAt(before) + kPartitionNext, id);
    } else {
        m_first = id;
    }
    if (after != 0) {
        StoreWord(PartitionAt(after) + kPartitionBack, id);
    }

    m_reserved += p;
    *freeBlock = kFirstBlock;
    return id;
}

char* MMemoryHeap::FindOwner(const char* p, unsigned int* id) {
    const auto at = reinterpret_cast<std::uintptr_t>(p);
    for (Word candidate = m_first; candidate != 0;) {
        Partition partition{PartitionAt(candidate)};
        const auto start = reinterpret_cast<std::uintptr_t>(partition.base);
        if (start + kFirstBlock <= at && at < start + partition.Size()) {
            const auto block = static_cast<Word>(at - start - kHeader);
            if (partition.Get(block, kLink) == candidate && partition.IsUsedBlock(block)) {
                *id = candidate;
                return partition.base;
            }
        }
        candidate = LoadWord(partition.base + kPartitionNext);
    }
    return nullptr;
}

void MMemoryHeap::Release(void* p) {
    if (p == nullptr || reinterpret_cast<std::uintptr_t>(p) % 4 != 0) {
        return;
    }
    Word id = 0;
    Partition partition{FindOwner(static_cast<const char*>(p), &id)};
    if (partition.base == nullptr) {
        return;
    }
    Word block = static_cast<Word>(static_cast<char*>(p) - partition.base) - kHeader;
    // Subtracts the whole block, which may be more than Allocate counted.
    m_used -= partition.BlockSize(block);

    // The merged block's user area must read 0xDD. Only the released block
    // and the headers it absorbs are filled when the free neighbours already
    // read 0xDD; otherwise their user areas are filled as well.
    Word fillFrom = block + kHeader;
    Word fillTo = partition.Get(block, kNext);
    const Word prev = partition.Get(block, kPrev);
    if (partition.IsFree(prev)) {
        fillFrom = partition.IsClean(prev) ? block : prev + kHeader;
        partition.Unlink(prev);
        partition.Absorb(prev, block);
        block = prev;
    }
    const Word next = partition.Get(block, kNext);
    if (partition.IsFree(next)) {
        fillTo = partition.IsClean(next) ? next + kHeader : partition.Get(next, kNext);
        partition.Unlink(next);
        partition.Absorb(block, next);
    }
    partition.PushFree(block, kClean);
    std::memset(partition.base + fillFrom, kReleasedFill, fillTo - fillFrom);

    const Word size = partition.Size();
    if (partition.Get(block, kPrev) == kStartSentinel &&
        partition.Get(block, kNext) == size - kHeader && size >= m_partitionSize) {
        ReturnPartition(partition.base, id);
    }
}

void MMemoryHeap::ReturnPartition(char* base, unsigned int id) {
    const Word before = LoadWord(base + kPartitionBack);
    const Word after = LoadWord(base + kPartitionNext);
    if (before != 0) {
        StoreWord(PartitionAt(before) + kPartitionNext, after);
    } else {
        m_first = after;
    }
    if (after != 0) {
        StoreWord(PartitionAt(after) + kPartitionBack, before);
    }
    m_partitions[id - 1] = nullptr;
    // The configured size, not the partition's own: an enlarged partition
    // leaves the difference counted as reserved.
    m_reserved -= m_partitionSize;
    m_source->Free(base);
}

void MMemoryHeap::GetMemoryUsage(unsigned int& reserved, unsigned int& used) {
    reserved = m_reserved;
    used = m_used;
}

}  // namespace kiv::system::memory
