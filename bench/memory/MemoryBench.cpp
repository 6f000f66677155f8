// The allocators against malloc/free of the same sizes, in the same order.
//
// Every case runs batches of kBatch allocations followed by the release of
// the whole batch in a fixed shuffled order; one item is one allocation and
// its release. The sizes and the order are drawn once, from a fixed seed, and
// are the same for a case and its baseline. The heap fills every block with
// 0xCC when it hands it out and with 0xDD when it takes it back, so its
// baseline writes the block once (malloc + memset + free). The churn cases
// keep kLive blocks alive and replace one at random per item, which is where
// a first-fit heap has to walk its free lists.
#include <kiv/memory/MAllocatorManager.h>
#include <kiv/memory/MMemoryHeap.h>
#include <kiv/memory/MMemoryPool.h>
#include <kiv/memory/MMemoryVariableSizedPool.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

using namespace kiv::system::memory;

namespace {

constexpr int kBatch = 64;
constexpr int kLive = 1024;
constexpr unsigned int kNoLimit = 0xFFFFFFFF;

struct Workload {
    std::vector<unsigned int> sizes;
    std::vector<int> order;  // release order of a batch
};

Workload MakeWorkload(unsigned int lo, unsigned int hi, int count) {
    std::mt19937 rng(20240607);
    Workload w;
    std::uniform_int_distribution<unsigned int> size(lo, hi);
    for (int i = 0; i < count; ++i) {
        w.sizes.push_back(size(rng));
    }
    w.order.resize(kBatch);
    std::iota(w.order.begin(), w.order.end(), 0);
    std::shuffle(w.order.begin(), w.order.end(), rng);
    return w;
}

// One batch: allocate kBatch blocks of sizes[base..], release them in `order`.
template <typename Alloc, typename Free>
void RunBatches(benchmark::State& state, const Workload& w, Alloc alloc, Free release) {
    void* blocks[kBatch];
    std::size_t base = 0;
    for (auto _ : state) {
        const unsigned int* sizes = w.sizes.data() + base;
        for (int i = 0; i < kBatch; ++i) {
            blocks[i] = alloc(sizes[i]);
            benchmark::DoNotOptimize(blocks[i]);
        }
        for (int i : w.order) {
            release(blocks[i], sizes[i]);
        }
        base = (base + kBatch) % (w.sizes.size() - kBatch);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

// kLive blocks stay alive; each item releases one at random and allocates
// a block of the next size in its place.
template <typename Alloc, typename Free>
void RunChurn(benchmark::State& state, const Workload& w, Alloc alloc, Free release) {
    std::vector<void*> blocks(kLive);
    std::vector<unsigned int> sizes(kLive);
    std::mt19937 rng(7);
    std::size_t next = 0;
    for (int i = 0; i < kLive; ++i) {
        sizes[i] = w.sizes[next++];
        blocks[i] = alloc(sizes[i]);
    }
    std::vector<int> victims(4096);
    for (int& v : victims) {
        v = static_cast<int>(rng() % kLive);
    }
    std::size_t k = 0;
    for (auto _ : state) {
        const int v = victims[k++ % victims.size()];
        release(blocks[v], sizes[v]);
        sizes[v] = w.sizes[next++ % w.sizes.size()];
        blocks[v] = alloc(sizes[v]);
        benchmark::DoNotOptimize(blocks[v]);
    }
    for (int i = 0; i < kLive; ++i) {
        release(blocks[i], sizes[i]);
    }
    state.SetItemsProcessed(state.iterations());
}

void* MallocOnly(unsigned int n) {
    return std::malloc(n);
}
void* MallocAndFill(unsigned int n) {
    void* p = std::malloc(n);
    benchmark::DoNotOptimize(p);
    std::memset(p, 0xCC, n);
    benchmark::ClobberMemory();
    return p;
}
void FreeBlock(void* p, unsigned int) {
    std::free(p);
}

const Workload& Fixed32() {
    static const Workload w = MakeWorkload(32, 32, 4096);
    return w;
}
const Workload& Small4To64() {
    static const Workload w = MakeWorkload(4, 64, 4096);
    return w;
}
const Workload& Medium16To256() {
    static const Workload w = MakeWorkload(16, 256, 4096);
    return w;
}
const Workload& Mixed8To128() {
    static const Workload w = MakeWorkload(8, 128, 4096);
    return w;
}

// MMemoryPool, 32-byte objects.
void BM_Pool32_Baseline_Malloc(benchmark::State& state) {
    RunBatches(state, Fixed32(), MallocOnly, FreeBlock);
}
void BM_Pool32_MMemoryPool(benchmark::State& state) {
    MMemoryAllocation source;
    MMemoryPool pool(4096, 32, kNoLimit, &source);
    RunBatches(
        state, Fixed32(), [&](unsigned int) { return pool.Allocate(); },
        [&](void* p, unsigned int) { pool.Release(p); });
}
BENCHMARK(BM_Pool32_Baseline_Malloc);
BENCHMARK(BM_Pool32_MMemoryPool);

// MMemoryVariableSizedPool, 4..64 bytes.
void BM_Small_Baseline_Malloc(benchmark::State& state) {
    RunBatches(state, Small4To64(), MallocOnly, FreeBlock);
}
void BM_Small_MMemoryVariableSizedPool(benchmark::State& state) {
    MMemoryAllocation source;
    MMemoryVariableSizedPool pools(kNoLimit, 17, 4096, &source);
    RunBatches(
        state, Small4To64(), [&](unsigned int n) { return pools.Allocate(n); },
        [&](void* p, unsigned int n) { pools.Release(p, n); });
}
BENCHMARK(BM_Small_Baseline_Malloc);
BENCHMARK(BM_Small_MMemoryVariableSizedPool);

// MMemoryHeap, 16..256 bytes, with its fills.
void BM_Heap_Baseline_MallocMemset(benchmark::State& state) {
    RunBatches(state, Medium16To256(), MallocAndFill, FreeBlock);
}
void RunHeapBatches(benchmark::State& state, bool keepPartition) {
    MMemoryAllocation source;
    MMemoryHeap heap(0x80000, 32, kNoLimit, &source);
    void* keeper = keepPartition ? heap.Allocate(16) : nullptr;
    RunBatches(
        state, Medium16To256(), [&](unsigned int n) { return heap.Allocate(n); },
        [&](void* p, unsigned int) { heap.Release(p); });
    heap.Release(keeper);
}
// One long-lived block keeps the partition, as any real owner's data does.
void BM_Heap_MMemoryHeap(benchmark::State& state) {
    RunHeapBatches(state, true);
}
// Every batch empties the partition, which goes back to the source at once
// and is taken again (512 KiB from malloc) by the next batch.
void BM_Heap_MMemoryHeapEmptiedEachBatch(benchmark::State& state) {
    RunHeapBatches(state, false);
}
void BM_HeapChurn_Baseline_MallocMemset(benchmark::State& state) {
    RunChurn(state, Medium16To256(), MallocAndFill, FreeBlock);
}
void BM_HeapChurn_MMemoryHeap(benchmark::State& state) {
    MMemoryAllocation source;
    MMemoryHeap heap(0x80000, 32, kNoLimit, &source);
    RunChurn(
        state, Medium16To256(), [&](unsigned int n) { return heap.Allocate(n); },
        [&](void* p, unsigned int) { heap.Release(p); });
}
BENCHMARK(BM_Heap_Baseline_MallocMemset);
BENCHMARK(BM_Heap_MMemoryHeap);
BENCHMARK(BM_Heap_MMemoryHeapEmptiedEachBatch);
BENCHMARK(BM_HeapChurn_Baseline_MallocMemset);
BENCHMARK(BM_HeapChurn_MMemoryHeap);

// The allocator of MAllocatorManager, 8..128 bytes, small-pool flag off and on.
void RunManager(benchmark::State& state, bool smallPool) {
    MAllocatorManager manager;
    MAllocatorParameters params;
    params.SetParameter(PARA_USE_SMALL_POOL, smallPool ? 1 : 0);
    IAllocator* allocator = manager.CreateAllocator(&params);
    void* keeper = allocator->Allocate(200);  // keeps the heap's partition
    RunBatches(
        state, Mixed8To128(), [&](unsigned int n) { return allocator->Allocate(n); },
        [&](void* p, unsigned int n) { allocator->Release(p, n); });
    allocator->Release(keeper, 200);
}
void BM_Manager_Baseline_Malloc(benchmark::State& state) {
    RunBatches(state, Mixed8To128(), MallocOnly, FreeBlock);
}
void BM_Manager_SmallPoolOff(benchmark::State& state) {
    RunManager(state, false);
}
void BM_Manager_SmallPoolOn(benchmark::State& state) {
    RunManager(state, true);
}
BENCHMARK(BM_Manager_Baseline_Malloc);
BENCHMARK(BM_Manager_SmallPoolOff);
BENCHMARK(BM_Manager_SmallPoolOn);

}  // namespace

BENCHMARK_MAIN();
