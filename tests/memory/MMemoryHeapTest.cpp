#include <kiv/memory/MMemoryHeap.h>

#include "memory/MemoryTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>

using kiv::system::memory::MMemoryHeap;
using kiv::test::AllBytes;
using kiv::test::CountingSource;

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;

using Usage = std::pair<unsigned int, unsigned int>;  // reserved, used

Usage UsageOf(MMemoryHeap& heap) {
    Usage u;
    heap.GetMemoryUsage(u.first, u.second);
    return u;
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

// Long random sequences, checked only for what must hold whatever the
// placement: every live block lies inside a partition the heap holds and
// overlaps no other, keeps what the test wrote into it, a partition is held
// exactly as long as it has a live block, and releases of pointers the heap
// cannot place (foreign, already free, misaligned) give nothing back.
TEST(MMemoryHeapModel, RandomSequencesKeepEveryRule) {
    const std::uint64_t seed = kiv::test::TestSeed();
    KIV_TRACE_SEED(seed);
    std::mt19937_64 rng(seed);
    auto below = [&](unsigned int n) { return static_cast<unsigned int>(rng() % n); };
    CountingSource source;
    source.refuse = [&] { return below(16) == 0; };
    auto heap = std::make_unique<MMemoryHeap>(400 + below(3000),
                                              std::vector<unsigned int>{0, 32, 100}[below(3)],
                                              0x40000 + below(0xC0000), &source);
    struct Live {
        char* p;
        unsigned int n;
        unsigned char tag;
    };
    std::vector<Live> live;
    char* lastFreed = nullptr;
    std::map<char*, int> blocksIn;  // live blocks per partition
    auto intact = [](const Live& b) { return AllBytes(b.p, b.n, b.tag); };
    for (int step = 0; step < 20000; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        // Phases of growth and of draining, so that partitions come and go.
        const std::size_t wanted = (step / 1000) % 2 == 0 ? 150 : 2;
        const unsigned int op = below(100);
        if (op < (live.size() < wanted ? 60u : 35u)) {
            const unsigned int n = below(100) < 98 ? below(257) : 257 + below(4000);
            auto* p = static_cast<char*>(heap->Allocate(n));
            if (p == nullptr) {
                continue;
            }
            char* base = source.Containing(p, n);
            ASSERT_NE(base, nullptr) << "block outside every partition";
            for (const Live& other : live) {
                ASSERT_TRUE(other.p + other.n <= p || p + n <= other.p) << "blocks overlap";
            }
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
            heap->Release(block.p);
            lastFreed = block.p;
            if (--blocksIn[base] == 0) {
                blocksIn.erase(base);
                ASSERT_FALSE(source.Holds(base)) << "free partition kept";
            }
        } else {
            char foreign[32];
            std::vector<char*> bogus = {nullptr, foreign + 16, lastFreed};
            if (!live.empty() && live.back().n > 0) {
                bogus.push_back(live.back().p + 1 + below(3));
            }
            char* target = bogus[below(static_cast<unsigned int>(bogus.size()))];
            if (std::any_of(live.begin(), live.end(),
                            [&](const Live& b) { return b.p == target; })) {
                continue;  // lastFreed was handed out again
            }
            const std::size_t freedBefore = source.freed.size();
            heap->Release(target);
            ASSERT_EQ(source.freed.size(), freedBefore);
            ASSERT_TRUE(std::all_of(live.begin(), live.end(), intact));
        }
        ASSERT_EQ(source.live.size(), blocksIn.size()) << "a partition without live blocks is held";
    }
    heap.reset();
    EXPECT_TRUE(source.live.empty()) << "partitions leaked";
    EXPECT_EQ(source.badFrees, 0u) << "a partition was given back twice, or a foreign one";
}
