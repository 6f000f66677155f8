#include <kiv/memory/MAllocatorManager.h>

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

using namespace kiv::system::memory;

namespace {

std::pair<unsigned int, unsigned int> UsageOf(IAllocator* allocator) {
    std::pair<unsigned int, unsigned int> u;
    allocator->GetMemoryUsage(u.first, u.second);
    return u;
}

}  // namespace

TEST(MAllocatorParameters, DefaultsAndUnknownSettings) {
    MAllocatorParameters p;
    EXPECT_EQ(p.GetParameter(PARA_USE_HEAP_ONLY), 1u);
    EXPECT_EQ(p.GetParameter(PARA_USE_SMALL_POOL), 0u);
    EXPECT_EQ(p.GetParameter(PARA_HEAP_PARTITION_SIZE), 0x80000u);
    EXPECT_EQ(p.GetParameter(PARA_POOL_PARTITION_SIZE), 4096u);
    EXPECT_EQ(p.GetParameter(PARA_POOL_CLASS_COUNT), 16u);
    EXPECT_EQ(p.GetParameter(PARA_HEAP_MAXIMUM), 0x800000u);
    EXPECT_EQ(p.GetParameter(PARA_POOL_MAXIMUM), 0x100000u);
    p.SetParameter(static_cast<MAllocMemParaType>(7), 5);
    p.SetParameter(static_cast<MAllocMemParaType>(-1), 5);
    EXPECT_EQ(p.GetParameter(static_cast<MAllocMemParaType>(7)), 0u);
    p.SetParameter(PARA_POOL_MAXIMUM, 0xFFFFFFFF);
    EXPECT_EQ(p.GetParameter(PARA_POOL_MAXIMUM), 0xFFFFFFFFu);
}

TEST(MAllocatorParameters, TheTwoFlagsExcludeEachOther) {
    MAllocatorParameters p;
    p.SetParameter(PARA_USE_HEAP_ONLY, 0);
    EXPECT_EQ(p.GetParameter(PARA_USE_SMALL_POOL), 1u);
    p.SetParameter(PARA_USE_SMALL_POOL, 0x100);  // only the low byte counts
    EXPECT_EQ(p.GetParameter(PARA_USE_SMALL_POOL), 0u);
    EXPECT_EQ(p.GetParameter(PARA_USE_HEAP_ONLY), 1u);
    p.SetParameter(PARA_USE_HEAP_ONLY, 7);
    EXPECT_EQ(p.GetParameter(PARA_USE_HEAP_ONLY), 7u);
    EXPECT_EQ(p.GetParameter(PARA_USE_SMALL_POOL), 0u);
}

TEST(MAllocatorManager, ByDefaultEverythingComesFromTheHeap) {
    MAllocatorManager manager;
    MAllocatorParameters params;
    IAllocator* allocator = manager.CreateAllocator(&params);
    ASSERT_NE(allocator, nullptr);
    void* p = allocator->Allocate(10);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(0x80000u, 28u));
    void* small = allocator->Allocate(4);
    EXPECT_EQ(allocator->Release(p, 10), 0u);
    EXPECT_EQ(allocator->HeapRelease(small), 0u);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(0x80000u - 0x80000u, 0u))
        << "the partition went back with its last block";
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
    EXPECT_EQ(UsageOf(allocator), std::make_pair(4096u, 0u));
    params.SetParameter(PARA_USE_SMALL_POOL, 0);
    EXPECT_EQ(UsageOf(allocator), std::make_pair(0u, 0u)) << "the flag is read on every call";
}

TEST(MAllocatorManager, BuildsOneAllocatorOnly) {
    MAllocatorManager manager;
    EXPECT_EQ(manager.CreateAllocator(nullptr), nullptr);
    MAllocatorParameters first;
    MAllocatorParameters second;
    second.SetParameter(PARA_HEAP_PARTITION_SIZE, 4096);
    IAllocator* allocator = manager.CreateAllocator(&first);
    EXPECT_EQ(manager.CreateAllocator(&second), allocator);
    allocator->Allocate(10);
    EXPECT_EQ(UsageOf(allocator).first, 0x80000u) << "built from the first parameters";
}

TEST(MAllocatorManager, BlocksAreUsableMemory) {
    MAllocatorManager manager;
    MAllocatorParameters params;
    params.SetParameter(PARA_USE_SMALL_POOL, 1);
    params.SetParameter(PARA_POOL_CLASS_COUNT, 4);
    IAllocator* allocator = manager.CreateAllocator(&params);
    auto* a = static_cast<char*>(allocator->Allocate(12));
    auto* b = static_cast<char*>(allocator->Allocate(1000));
    EXPECT_NE(allocator->Allocate(4), nullptr);
    EXPECT_NE(allocator->Allocate(8), nullptr);
    EXPECT_EQ(allocator->Allocate(16), nullptr) << "no fourth pool of 4 classes";
    EXPECT_EQ(allocator->Allocate(40), nullptr) << "beyond the class table";
    allocator->Release(nullptr, 40);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    std::memset(a, 1, 12);
    std::memset(b, 2, 1000);
    EXPECT_EQ(a[11], 1);
    EXPECT_EQ(b[999], 2);
    allocator->Release(a, 12);
    allocator->Release(b, 1000);
}
