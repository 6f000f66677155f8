#include <kiv/memory/MMemoryChunk.h>
#include <kiv/memory/MMemoryPool.h>
#include <kiv/memory/MMemoryVariableSizedPool.h>

#include "memory/MemoryTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

using kiv::system::memory::MMemoryChunk;
using kiv::system::memory::MMemoryPool;
using kiv::system::memory::MMemoryVariableSizedPool;
using kiv::test::AllBytes;
using kiv::test::CountingSource;

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;
constexpr unsigned int kInvalid = 0xFFFFFFFF;

template <typename Pool>
std::pair<unsigned int, unsigned int> UsageOf(Pool& pool) {
    std::pair<unsigned int, unsigned int> u;
    pool.GetMemoryUsage(u.first, u.second);
    return u;
}

}  // namespace

TEST(MMemoryPool, AllocateStopsForGoodAtTheMaximumAndCountsTheObjectWhenMemoryLacks) {
    CountingSource source;
    MMemoryPool capped(100, 8, 100, &source);
    void* p = capped.Allocate();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(capped.Release(p), 0u);
    EXPECT_EQ(capped.Allocate(), nullptr) << "although a freed object waits";
    EXPECT_EQ(UsageOf(capped), std::make_pair(100u, 0u));
    source.refuseAll = true;
    MMemoryPool starved(100, 8, kNoLimit, &source);
    EXPECT_EQ(starved.Allocate(), nullptr);
    EXPECT_EQ(UsageOf(starved), std::make_pair(0u, 8u));
    MMemoryPool noSource(100, 8, kNoLimit, nullptr);
    EXPECT_EQ(noSource.Allocate(), nullptr);
}

TEST(MMemoryPool, APartitionIsCarvedFromByte4HandsOutItsHighestObjectFirstAndTakesBackOnlyThem) {
    CountingSource source;
    MMemoryPool pool(104, 8, kNoLimit, &source);
    std::vector<char*> objects;
    for (int i = 0; i < 12; ++i) {
        objects.push_back(static_cast<char*>(pool.Allocate()));
    }
    char* partition = source.last;
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(objects[i], partition + 92 - 8 * i);
    }
    EXPECT_EQ(source.grants, 1u) << "12 objects, 4 bytes left over";
    void* next = pool.Allocate();
    EXPECT_EQ(next, source.last + 92);
    EXPECT_EQ(source.grants, 2u);
    EXPECT_EQ(UsageOf(pool), std::make_pair(208u, 13u * 8u));

    char* p = objects[0];
    char* q = objects[1];
    char foreign[16];
    EXPECT_EQ(pool.Release(nullptr), kInvalid);
    EXPECT_EQ(pool.Release(p + 2), kInvalid);
    // Inside an object, in the 4 bytes left over, the partition link, foreign.
    for (char* bad : {p + 4, partition + 100, partition, foreign}) {
        EXPECT_EQ(pool.Release(bad), 0u);
    }
    EXPECT_EQ(UsageOf(pool).second, 13u * 8u);
    EXPECT_EQ(pool.Release(p), 0u);
    EXPECT_EQ(pool.Release(q), 0u);
    EXPECT_EQ(UsageOf(pool).second, 11u * 8u);
    EXPECT_EQ(pool.Allocate(), q) << "last in, first out";
    EXPECT_EQ(pool.Allocate(), p);

    MMemoryPool tiny(104, 2, kNoLimit, &source);
    void* first = tiny.Allocate();
    EXPECT_EQ(first, source.last + 100) << "2-byte objects are raised to 4";
}

TEST(MMemoryVariableSizedPool, SizesGoToTheirFourByteClassAndAtMostClassCountMinusOnePoolsExist) {
    CountingSource source;
    MMemoryVariableSizedPool pools(kNoLimit, 16, 4096, &source);
    EXPECT_EQ(UsageOf(pools), std::make_pair(0u, 0u));
    EXPECT_EQ(source.requests, 0u) << "nothing is taken before the first block";
    ASSERT_NE(pools.Allocate(0), nullptr);
    EXPECT_EQ(source.grants, 2u) << "the table, then the first partition";
    ASSERT_NE(pools.Allocate(3), nullptr);
    EXPECT_EQ(UsageOf(pools), std::make_pair(4096u, 8u)) << "0 and 3 bytes share class 0";
    void* five = pools.Allocate(5);
    EXPECT_EQ(UsageOf(pools), std::make_pair(8192u, 16u)) << "5 bytes is class 1";
    pools.Release(five, 8);
    EXPECT_EQ(UsageOf(pools).second, 8u);
    EXPECT_EQ(pools.Allocate(6), five);

    MMemoryVariableSizedPool four(kNoLimit, 4, 256, &source);
    for (unsigned int n : {4u, 8u, 12u}) {
        EXPECT_NE(four.Allocate(n), nullptr) << n;
    }
    EXPECT_EQ(four.Allocate(16), nullptr) << "3 + 1 >= 4";
    EXPECT_EQ(four.Allocate(17), nullptr) << "beyond the last class";
    EXPECT_EQ(four.Allocate(0xFFFFFFFF), nullptr);
    const auto before = UsageOf(four);
    four.Release(nullptr, 16);  // a class without a pool
    four.Release(nullptr, 1000);
    EXPECT_EQ(UsageOf(four), before);
}

TEST(MMemoryChunk, HandsOutBytesBackToBackUntilTheBlockEndsAndNothingWithoutItsBlock) {
    CountingSource source;
    auto chunk = std::make_unique<MMemoryChunk>(10, &source);
    char* block = source.last;
    EXPECT_TRUE(AllBytes(block, 10, 0));
    auto* p = static_cast<char*>(chunk->Allocate(6));
    EXPECT_EQ(p, block);
    EXPECT_EQ(chunk->Allocate(5), nullptr);
    EXPECT_EQ(chunk->Allocate(3), block + 6) << "no alignment";
    std::memset(p, 0x7F, 9);
    chunk->Reset();
    EXPECT_EQ(chunk->Allocate(10), block);
    EXPECT_TRUE(AllBytes(block, 10, 0));
    EXPECT_EQ(chunk->Allocate(0xFFFFFFFF), nullptr);
    chunk.reset();
    EXPECT_EQ(source.freed, std::vector<char*>{block});

    source.refuseAll = true;
    {
        MMemoryChunk refused(10, &source);
        EXPECT_EQ(refused.Allocate(1), nullptr);
        refused.Reset();
        EXPECT_EQ(refused.Allocate(0), nullptr);
        MMemoryChunk noSource(10, nullptr);
        EXPECT_EQ(noSource.Allocate(1), nullptr);
    }
    EXPECT_EQ(source.freed.size(), 1u);
    EXPECT_EQ(source.badFrees, 0u);
}
