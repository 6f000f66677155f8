#include <kiv/memory/MMemoryChunk.h>
#include <kiv/memory/MMemoryPool.h>
#include <kiv/memory/MMemoryVariableSizedPool.h>

#include "memory/MemoryTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

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

// What one fixed-size pool must do, given what its source did: objects
// carved from byte 4 on, highest address handed out first, freed objects
// reused last in first out, nothing at all once the maximum is reached.
struct PoolModel {
    PoolModel(unsigned int partition, unsigned int object, unsigned int max)
        : partitionSize(partition), objectSize(object), maximum(max) {}

    unsigned int partitionSize;
    unsigned int objectSize;
    unsigned int maximum;
    unsigned int reserved = 0;
    unsigned int used = 0;
    std::vector<char*> partitions;
    std::vector<char*> free;

    unsigned int PerPartition() const {
        return partitionSize >= 4 ? (partitionSize - 4) / objectSize : 0;
    }
    // Whether Allocate asks the source for a partition.
    bool Grows() const { return reserved < maximum && free.empty() && PerPartition() > 0; }
    // The result of Allocate, where `granted` is the partition the source gave.
    char* Allocate(char* granted) {
        if (reserved >= maximum) {
            return nullptr;
        }
        if (granted != nullptr) {
            partitions.push_back(granted);
            reserved += partitionSize;
            for (unsigned int i = 0; i < PerPartition(); ++i) {
                free.push_back(granted + 4 + i * objectSize);
            }
        }
        used += objectSize;
        if (free.empty()) {
            return nullptr;
        }
        char* p = free.back();
        free.pop_back();
        return p;
    }
    bool IsObject(const char* p) const {
        return std::any_of(partitions.begin(), partitions.end(), [&](const char* base) {
            return p >= base + 4 && p < base + 4 + PerPartition() * objectSize &&
                   (p - base - 4) % objectSize == 0;
        });
    }
    unsigned int Release(char* p) {
        if (p == nullptr || reinterpret_cast<std::uintptr_t>(p) % 4 != 0) {
            return kInvalid;
        }
        if (IsObject(p)) {
            free.push_back(p);
            used -= objectSize;
        }
        return 0;
    }
};

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

// Random sequences against PoolModel, for one pool of a random shape and
// for the size-class pools; live objects keep what the test wrote into them.
TEST(MMemoryPoolModel, RandomSequencesFollowTheModel) {
    const std::uint64_t seed = kiv::test::TestSeed();
    KIV_TRACE_SEED(seed);
    std::mt19937_64 rng(seed);
    auto below = [&](unsigned int n) { return static_cast<unsigned int>(rng() % n); };

    for (int round = 0; round < 20; ++round) {
        const unsigned int objectSize = std::vector<unsigned int>{1, 4, 6, 8, 13, 32, 40}[below(7)];
        const unsigned int partitionSize = below(400);
        const unsigned int maximum = partitionSize * (1 + below(40)) + below(3);
        CountingSource source;
        source.refuse = [&] { return below(10) == 0; };
        auto pool = std::make_unique<MMemoryPool>(partitionSize, objectSize, maximum, &source);
        PoolModel model{partitionSize, std::max(objectSize, 4u), maximum};
        std::vector<std::pair<char*, unsigned char>> live;

        for (int step = 0; step < 3000; ++step) {
            SCOPED_TRACE("round " + std::to_string(round) + " step " + std::to_string(step));
            const unsigned int op = below(10);
            if (op < 5) {
                const bool grows = model.Grows();
                const unsigned int grants = source.grants;
                const unsigned int requests = source.requests;
                char* p = static_cast<char*>(pool->Allocate());
                ASSERT_EQ(source.requests, requests + (grows ? 1 : 0));
                ASSERT_EQ(p, model.Allocate(source.grants > grants ? source.last : nullptr));
                if (p != nullptr) {
                    live.emplace_back(p, static_cast<unsigned char>(below(256)));
                    std::memset(p, live.back().second, model.objectSize);
                }
            } else if (op < 9 && !live.empty()) {
                const std::size_t i = below(static_cast<unsigned int>(live.size()));
                const auto [p, tag] = live[i];
                ASSERT_TRUE(AllBytes(p, model.objectSize, tag)) << "live object overwritten";
                const unsigned int expected = model.Release(p);
                ASSERT_EQ(pool->Release(p), expected);
                if (expected == 0) {  // objects at addresses not a multiple of 4 stay out
                    live[i] = live.back();
                    live.pop_back();
                }
            } else if (!live.empty()) {
                char* p = live[below(static_cast<unsigned int>(live.size()))].first;
                char* bogus = p + 1 + below(model.objectSize + 8);
                if (!model.IsObject(bogus)) {
                    ASSERT_EQ(pool->Release(bogus), model.Release(bogus));
                }
            }
            ASSERT_EQ(UsageOf(*pool), std::make_pair(model.reserved, model.used));
            ASSERT_EQ(source.live.size(), model.partitions.size());
        }
        for (const auto& [p, tag] : live) {
            ASSERT_TRUE(AllBytes(p, model.objectSize, tag));
        }
        pool.reset();
        std::reverse(model.partitions.begin(), model.partitions.end());
        EXPECT_EQ(source.freed, model.partitions) << "newest first";
        EXPECT_TRUE(source.live.empty());
        EXPECT_EQ(source.badFrees, 0u);
    }
}

TEST(MMemoryVariableSizedPoolModel, RandomSequencesFollowTheModel) {
    const std::uint64_t seed = kiv::test::TestSeed();
    KIV_TRACE_SEED(seed);
    std::mt19937_64 rng(seed);
    auto below = [&](unsigned int n) { return static_cast<unsigned int>(rng() % n); };

    for (int round = 0; round < 20; ++round) {
        const unsigned int classCount = below(20);
        const unsigned int partitionSize = 64 + below(512);
        const unsigned int maximum = partitionSize * (1 + below(30));
        CountingSource source;
        source.refuse = [&] { return below(12) == 0; };
        auto pools =
            std::make_unique<MMemoryVariableSizedPool>(maximum, classCount, partitionSize, &source);
        char* table = nullptr;
        std::map<unsigned int, PoolModel> models;
        struct Live {
            char* p;
            unsigned int n;
            unsigned char tag;
        };
        std::vector<Live> live;

        for (int step = 0; step < 3000; ++step) {
            SCOPED_TRACE("round " + std::to_string(round) + " step " + std::to_string(step));
            if (below(2) == 0) {
                const unsigned int n = below(4 * classCount + 12);
                const unsigned int k = n == 0 ? 0 : (n + 3) / 4 - 1;
                std::size_t grant = source.granted.size();
                char* p = static_cast<char*>(pools->Allocate(n));
                // What the source gave during the call, in order.
                auto next = [&]() -> char* {
                    return grant < source.granted.size() ? source.granted[grant++] : nullptr;
                };
                char* expected = nullptr;
                if (k < classCount && table == nullptr && (table = next()) != nullptr) {
                    ASSERT_EQ(source.live[table], classCount * sizeof(void*));
                }
                auto model = models.find(k);
                if (k < classCount && table != nullptr && model == models.end() &&
                    models.size() + 1 < classCount) {
                    model = models.emplace(k, PoolModel{partitionSize, 4 * (k + 1), maximum}).first;
                }
                if (k < classCount && table != nullptr && model != models.end()) {
                    expected = model->second.Allocate(model->second.Grows() ? next() : nullptr);
                }
                ASSERT_EQ(grant, source.granted.size()) << "memory taken without need";
                ASSERT_EQ(p, expected) << "size " << n;
                if (p != nullptr) {
                    live.push_back({p, n, static_cast<unsigned char>(below(256))});
                    std::memset(p, live.back().tag, n);
                }
            } else if (!live.empty()) {
                const std::size_t i = below(static_cast<unsigned int>(live.size()));
                const Live block = live[i];
                live[i] = live.back();
                live.pop_back();
                ASSERT_TRUE(AllBytes(block.p, block.n, block.tag)) << "live block overwritten";
                pools->Release(block.p, block.n);
                models.at(block.n == 0 ? 0 : (block.n + 3) / 4 - 1).Release(block.p);
            }
            std::pair<unsigned int, unsigned int> sums;
            std::size_t partitions = table != nullptr ? 1 : 0;
            for (const auto& [k, model] : models) {
                sums.first += model.reserved;
                sums.second += model.used;
                partitions += model.partitions.size();
            }
            ASSERT_EQ(UsageOf(*pools), sums);
            ASSERT_EQ(source.live.size(), partitions);
        }
        pools.reset();
        EXPECT_TRUE(source.live.empty());
        EXPECT_EQ(source.badFrees, 0u);
    }
}
