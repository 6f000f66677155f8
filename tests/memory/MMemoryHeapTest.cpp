#include <kiv/memory/MMemoryHeap.h>

#include "memory/MemoryTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

using kiv::system::memory::MMemoryHeap;
using kiv::test::AllBytes;
using kiv::test::CountingSource;
using kiv::test::Word;

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;

using Usage = std::pair<unsigned int, unsigned int>;  // reserved, used

Usage UsageOf(MMemoryHeap& heap) {
    Usage u;
    heap.GetMemoryUsage(u.first, u.second);
    return u;
}

// The size of the block at user pointer `p` in partition `base`, header
// included: the header's next-block offset minus the block's own offset.
unsigned int BlockSize(const char* base, const char* p) {
    return Word(p - 16 + 4) - static_cast<unsigned int>(p - 16 - base);
}

// The user area of the block of partition `base` that holds address `at`,
// found by walking the blocks in address order from the start sentinel.
std::pair<const char*, unsigned int> UserAreaAround(const char* base, const char* at) {
    unsigned int block = 16;
    while (base + Word(base + block + 4) <= at) {
        block = Word(base + block + 4);
    }
    return {base + block + 16, Word(base + block + 4) - block - 16};
}

}  // namespace

TEST(MMemoryHeap, PartitionsAreSizedInStepsCountedAndGivenBackAsSoonAsWhollyFree) {
    CountingSource source;
    MMemoryHeap heap(4096, 0, kNoLimit, &source);
    auto* small = static_cast<char*>(heap.Allocate(10));
    ASSERT_EQ(small, source.last + 48) << "after the partition header and the start sentinel";
    EXPECT_EQ(source.lastSize, 4096u);
    EXPECT_TRUE(AllBytes(small, 12, 0xCC));
    EXPECT_EQ(UsageOf(heap), Usage(4096, 28));
    void* big = heap.Allocate(5000);
    EXPECT_EQ(source.lastSize, 8192u) << "enlarged in steps of the size plus the granularity";
    char* bigPartition = source.last;
    heap.Release(big);
    EXPECT_FALSE(source.Holds(bigPartition));
    EXPECT_EQ(UsageOf(heap), Usage(8192, 28)) << "reserved drops by the configured size only";
    heap.Release(small);
    EXPECT_TRUE(source.live.empty());
    EXPECT_EQ(UsageOf(heap), Usage(4096, 0));

    MMemoryHeap coarse(100, 32, kNoLimit, &source);  // rounded to 128; step 160
    ASSERT_NE(coarse.Allocate(200), nullptr);
    EXPECT_EQ(source.lastSize, 128u + 160u);
    MMemoryHeap fine(102, 0, kNoLimit, &source);
    ASSERT_NE(fine.Allocate(1), nullptr);
    EXPECT_EQ(source.lastSize, 104u);
}

TEST(MMemoryHeap, FirstFitFollowsPartitionOrderAndFreeListOrder) {
    CountingSource source;
    MMemoryHeap heap(256, 0, kNoLimit, &source);
    char* a = static_cast<char*>(heap.Allocate(32));
    char* small = source.last;
    char* b = static_cast<char*>(heap.Allocate(32));
    char* c = static_cast<char*>(heap.Allocate(32));
    heap.Allocate(32);
    heap.Allocate(300);  // a 512-byte partition, after the small one
    char* largePartition = source.last;
    heap.Release(a);
    heap.Release(c);
    EXPECT_EQ(heap.Allocate(32), c) << "the most recently freed block comes first";
    EXPECT_EQ(heap.Allocate(32), a);
    EXPECT_EQ(source.Containing(heap.Allocate(100)), largePartition)
        << "too big for what is left of the small partition";
    heap.Release(c);
    heap.Release(a);
    heap.Release(b);  // merges with both neighbours
    EXPECT_TRUE(AllBytes(a, 3 * 48 - 16, 0xDD)) << "one block, one header";
    EXPECT_EQ(heap.Allocate(3 * 48 - 16), a) << "one free block again";
    EXPECT_TRUE(source.Holds(small));
}

TEST(MMemoryHeap, NoMemoryMeansNullAndUnchangedCounters) {
    CountingSource source;
    MMemoryHeap lax(4096, 0, 100, &source);
    EXPECT_NE(lax.Allocate(10), nullptr) << "the request is tested against the maximum";
    MMemoryHeap full(4096, 0, 4096, &source);
    ASSERT_NE(full.Allocate(10), nullptr);
    EXPECT_EQ(full.Allocate(4050), nullptr);
    EXPECT_EQ(UsageOf(full).second, 28u);
    source.refuseAll = true;
    MMemoryHeap heap(4096, 0, kNoLimit, &source);
    EXPECT_EQ(heap.Allocate(10), nullptr);
    EXPECT_EQ(UsageOf(heap), Usage(0, 0));
    source.refuseAll = false;
    const unsigned int requests = source.requests;
    EXPECT_EQ(heap.Allocate(0xFFFFFFFF), nullptr) << "cannot fit a 32-bit partition";
    EXPECT_EQ(heap.Allocate(0xFFFFFFFF - 67), nullptr) << "its partition would pass 4 GiB";
    EXPECT_EQ(source.requests, requests);
    MMemoryHeap degenerate(0, 0, kNoLimit, &source);
    EXPECT_EQ(degenerate.Allocate(4), nullptr) << "a zero step never reaches the size";
}

TEST(MMemoryHeap, InitialisesOnceAndGivesPartitionsBackInListOrder) {
    CountingSource source;
    MMemoryHeap heap;
    EXPECT_EQ(heap.Allocate(10), nullptr);
    heap.Release(nullptr);
    EXPECT_EQ(heap.InitMemoryHeap(4096, 0, kNoLimit, &source), 0);
    EXPECT_EQ(heap.InitMemoryHeap(64, 0, kNoLimit, &source), -1);
    ASSERT_NE(heap.Allocate(4000), nullptr);
    EXPECT_EQ(source.lastSize, 4096u) << "the second initialisation changed nothing";

    auto owner = std::make_unique<MMemoryHeap>(4096, 0, kNoLimit, &source);
    owner->Allocate(5000);
    char* big = source.last;
    owner->Allocate(3200);  // does not fit what the first left
    char* small = source.last;
    owner.reset();
    EXPECT_EQ(source.freed, (std::vector<char*>{small, big})) << "smallest first";

    auto equal = std::make_unique<MMemoryHeap>(256, 0, kNoLimit, &source);
    equal->Allocate(150);
    char* older = source.last;
    equal->Allocate(150);
    char* newer = source.last;
    ASSERT_NE(older, newer);
    EXPECT_EQ(source.Containing(equal->Allocate(8)), newer)
        << "a new partition goes before one of equal size, and is searched first";
    source.freed.clear();
    equal.reset();
    EXPECT_EQ(source.freed, (std::vector<char*>{newer, older}));
    EXPECT_EQ(source.badFrees, 0u);
}

// Long random sequences against a model of what must hold: every live block
// lies inside a partition the heap holds and overlaps no other, reads 0xCC
// when handed out and keeps what the test wrote into it, reads 0xDD once
// freed, the used count moves by each block's size, a partition is held
// exactly as long as it has a live block, and releases of pointers the heap
// cannot place change nothing.
TEST(MMemoryHeapModel, RandomSequencesKeepEveryRule) {
    const std::uint64_t seed = kiv::test::TestSeed();
    KIV_TRACE_SEED(seed);
    std::mt19937_64 rng(seed);
    auto below = [&](unsigned int n) { return static_cast<unsigned int>(rng() % n); };
    auto any = [&](const auto& v) -> const auto& {
        return v[below(static_cast<unsigned int>(v.size()))];
    };

    const unsigned int granularity = std::vector<unsigned int>{0, 32, 100}[below(3)];
    const unsigned int asked = 400 + below(3000);
    // Enlarged partitions leave part of their size counted when they go back, so
    // the maximum is reached in the end: late in the run rather than early.
    const unsigned int maximum = 0x40000 + below(0xC0000);
    CountingSource source;
    source.refuse = [&] { return below(16) == 0; };
    auto heap = std::make_unique<MMemoryHeap>(asked, granularity, maximum, &source);

    struct Live {
        char* p;
        unsigned int n;
        unsigned char tag;
    };
    std::vector<Live> live;
    char* lastFreed = nullptr;
    std::map<char*, int> blocksIn;  // live blocks per partition
    unsigned int used = 0;
    auto intact = [](const Live& b) { return AllBytes(b.p, b.n, b.tag); };

    for (int step = 0; step < 20000; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        // Phases of growth and of draining, so that partitions come and go.
        const std::size_t wanted = (step / 1000) % 2 == 0 ? 150 : 2;
        const unsigned int op = below(100);
        if (op < (live.size() < wanted ? 60u : 35u)) {
            const unsigned int pick = below(100);
            const unsigned int n = pick < 97   ? below(257)
                                   : pick < 99 ? 257 + below(4000)
                                               : 0xFFFFFFF0 + below(16);
            const unsigned int s = (n + 3) & ~3u;
            const unsigned int grants = source.grants;
            const unsigned int refusals = source.requests - source.grants;
            auto* p = static_cast<char*>(heap->Allocate(n));
            if (p == nullptr) {
                ASSERT_TRUE(std::uint64_t{UsageOf(*heap).first} + s > maximum ||
                            source.requests - source.grants > refusals || n > 0xFFFFFFF0 - 64)
                    << "null although a partition could be had";
                ASSERT_EQ(source.grants, grants);
                continue;
            }
            char* base = source.Containing(p - 48, s + 64);
            ASSERT_NE(base, nullptr) << "block outside every partition";
            if (source.grants != grants) {
                ASSERT_EQ(p, base + 48) << "the first block of a new partition";
            }
            const unsigned int blockSize = BlockSize(base, p);
            ASSERT_TRUE(blockSize >= s + 16 && (blockSize == s + 16 || blockSize < s + 32));
            ASSERT_TRUE(AllBytes(p, blockSize - 16, 0xCC));
            for (const Live& other : live) {
                const unsigned int otherSize = (other.n + 3) & ~3u;
                ASSERT_TRUE(other.p + otherSize <= p - 16 || p + s <= other.p - 16)
                    << "blocks overlap";
            }
            used += s + 16;
            live.push_back({p, n, static_cast<unsigned char>(below(256))});
            std::memset(p, live.back().tag, n);
            ++blocksIn[base];
        } else if (op < 94 && !live.empty()) {
            const std::size_t i = below(static_cast<unsigned int>(live.size()));
            const Live block = live[i];
            live[i] = live.back();
            live.pop_back();
            ASSERT_TRUE(intact(block)) << "live block overwritten";
            char* base = source.Containing(block.p);
            used -= BlockSize(base, block.p);
            heap->Release(block.p);
            lastFreed = block.p;
            if (--blocksIn[base] == 0) {
                blocksIn.erase(base);
                ASSERT_FALSE(source.Holds(base)) << "free partition kept";
            } else {
                const auto [area, size] = UserAreaAround(base, block.p - 16);
                ASSERT_TRUE(AllBytes(area, size, 0xDD)) << "the merged free block is not all 0xDD";
            }
        } else {
            // Releases the heap must ignore: null, foreign, a block already
            // free, and misaligned, inside or before a live block.
            char foreign[32];
            std::vector<char*> bogus = {nullptr, foreign + 16, lastFreed};
            if (!live.empty()) {
                const Live& b = any(live);
                bogus.insert(bogus.end(), {b.p + 1 + below(3), b.p + 4 * (1 + below(8)),
                                           b.p - 16 * (1 + below(2))});
            }
            char* target = any(bogus);
            if (std::any_of(live.begin(), live.end(),
                            [&](const Live& b) { return b.p == target; })) {
                continue;  // a block of size 0 has its neighbour's header as user area
            }
            const std::size_t freedBefore = source.freed.size();
            heap->Release(target);
            ASSERT_EQ(source.freed.size(), freedBefore);
            if (step % 8 == 0) {
                ASSERT_TRUE(std::all_of(live.begin(), live.end(), intact));
            }
        }
        ASSERT_EQ(UsageOf(*heap).second, used);
        ASSERT_EQ(source.live.size(), blocksIn.size()) << "a partition without live blocks is held";
    }
    for (std::size_t i = 0; i < live.size() / 2; ++i) {
        heap->Release(live[i].p);
    }
    heap.reset();
    EXPECT_TRUE(source.live.empty()) << "partitions leaked";
    EXPECT_EQ(source.badFrees, 0u) << "a partition was given back twice, or a foreign one";
}
