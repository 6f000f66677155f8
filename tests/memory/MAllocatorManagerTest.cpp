#include <kiv/memory/MAllocatorManager.h>

#include <gtest/gtest.h>

#include <utility>

using namespace kiv::system::memory;

namespace {

std::pair<unsigned int, unsigned int> UsageOf(IAllocator* allocator) {
    std::pair<unsigned int, unsigned int> u;
    allocator->GetMemoryUsage(u.first, u.second);
    return u;
}

}  // namespace

TEST(MAllocatorParameters, DefaultsExclusiveFlagsAndUnknownSettings) {
    MAllocatorParameters p;
    const unsigned int defaults[] = {1, 0, 0x80000, 4096, 16, 0x800000, 0x100000};
    for (int t = 0; t < 7; ++t) {
        EXPECT_EQ(p.GetParameter(static_cast<MAllocMemParaType>(t)), defaults[t]) << t;
    }
    p.SetParameter(static_cast<MAllocMemParaType>(7), 5);
    EXPECT_EQ(p.GetParameter(static_cast<MAllocMemParaType>(7)), 0u);
    p.SetParameter(PARA_USE_HEAP_ONLY, 0);
    EXPECT_EQ(p.GetParameter(PARA_USE_SMALL_POOL), 1u);
    p.SetParameter(PARA_USE_SMALL_POOL, 0x100);  // only the low byte counts
    EXPECT_EQ(p.GetParameter(PARA_USE_SMALL_POOL), 0u);
    EXPECT_EQ(p.GetParameter(PARA_USE_HEAP_ONLY), 1u);
}

TEST(MAllocatorManager, BuildsOneAllocatorThatServesEverythingFromTheHeapByDefault) {
    MAllocatorManager manager;
    EXPECT_EQ(manager.CreateAllocator(nullptr), nullptr);
    MAllocatorParameters params;
    MAllocatorParameters other;
    other.SetParameter(PARA_HEAP_PARTITION_SIZE, 4096);
    IAllocator* allocator = manager.CreateAllocator(&params);
    ASSERT_NE(allocator, nullptr);
    EXPECT_EQ(manager.CreateAllocator(&other), allocator);
    void* p = allocator->Allocate(10);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(0x80000u, 28u));
    void* small = allocator->Allocate(4);
    EXPECT_EQ(allocator->Release(p, 10), 0u);
    EXPECT_EQ(allocator->HeapRelease(small), 0u);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(0u, 0u));
}

TEST(MAllocatorManager, WithTheSmallPoolUpTo64BytesComeFromTheSizeClasses) {
    MAllocatorManager manager;
    MAllocatorParameters params;
    params.SetParameter(PARA_USE_SMALL_POOL, 1);
    IAllocator* allocator = manager.CreateAllocator(&params);
    void* pooled = allocator->Allocate(64);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(4096u, 64u)) << "the 64-byte class";
    void* heaped = allocator->Allocate(65);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(4096u + 0x80000u, 64u + 68u + 16u));
    void* direct = allocator->HeapAllocate(8);
    EXPECT_EQ(UsageOf(allocator).second, 64u + 84u + 24u);
    allocator->Release(pooled, 64);
    allocator->Release(heaped, 65);
    allocator->HeapRelease(direct);
    allocator->Release(nullptr, 40);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(4096u, 0u));
    params.SetParameter(PARA_USE_SMALL_POOL, 0);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(0u, 0u)) << "the flag is read on every call";
}
