// Typed reads of MByteBuffer against a baseline of plain memcpy reads of the
// same values from the same bytes. Every value read is handed to
// DoNotOptimize on both sides, so that neither loop is folded into a vector
// sum: the figure is the cost of one read.
#include <kiv/foundation/MByteBuffer.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

using kiv::system::MByteBuffer;

namespace {

constexpr int kBytes = 4096;

std::vector<char> Data() {
    std::vector<char> data(kBytes);
    for (int i = 0; i < kBytes; ++i) {
        data[static_cast<size_t>(i)] = static_cast<char>(i * 7 + 1);
    }
    return data;
}

// Baseline: what a caller writes by hand for little-endian data.
void BM_Baseline_MemcpyInt32(benchmark::State& state) {
    std::vector<char> data = Data();
    for (auto _ : state) {
        for (int i = 0; i + 4 <= kBytes; i += 4) {
            int v;
            std::memcpy(&v, data.data() + i, 4);
            benchmark::DoNotOptimize(v);
        }
    }
    state.SetItemsProcessed(state.iterations() * (kBytes / 4));
}
BENCHMARK(BM_Baseline_MemcpyInt32);

void BM_ByteBuffer_GetIntAtIndex(benchmark::State& state) {
    std::vector<char> data = Data();
    MByteBuffer buffer;
    buffer.Wrap(data.data(), kBytes);
    for (auto _ : state) {
        for (int i = 0; i + 4 <= kBytes; i += 4) {
            int v = buffer.GetInt(i);
            benchmark::DoNotOptimize(v);
        }
    }
    state.SetItemsProcessed(state.iterations() * (kBytes / 4));
}
BENCHMARK(BM_ByteBuffer_GetIntAtIndex);

void BM_ByteBuffer_GetIntAtCursor(benchmark::State& state) {
    std::vector<char> data = Data();
    MByteBuffer buffer;
    buffer.Wrap(data.data(), kBytes);
    for (auto _ : state) {
        buffer.SetPosition(0);
        for (int i = 0; i + 4 <= kBytes; i += 4) {
            int v = buffer.GetInt();
            benchmark::DoNotOptimize(v);
        }
    }
    state.SetItemsProcessed(state.iterations() * (kBytes / 4));
}
BENCHMARK(BM_ByteBuffer_GetIntAtCursor);

// Baseline for big-endian data: memcpy and a byte swap by hand.
void BM_Baseline_MemcpyInt32Swapped(benchmark::State& state) {
    std::vector<char> data = Data();
    for (auto _ : state) {
        for (int i = 0; i + 4 <= kBytes; i += 4) {
            unsigned int v;
            std::memcpy(&v, data.data() + i, 4);
            v = __builtin_bswap32(v);
            benchmark::DoNotOptimize(v);
        }
    }
    state.SetItemsProcessed(state.iterations() * (kBytes / 4));
}
BENCHMARK(BM_Baseline_MemcpyInt32Swapped);

void BM_ByteBuffer_GetIntBigEndian(benchmark::State& state) {
    std::vector<char> data = Data();
    MByteBuffer buffer;
    buffer.Wrap(data.data(), kBytes);
    buffer.SetEndian(MByteBuffer::BIG_ENDIAN);
    for (auto _ : state) {
        for (int i = 0; i + 4 <= kBytes; i += 4) {
            int v = buffer.GetInt(i);
            benchmark::DoNotOptimize(v);
        }
    }
    state.SetItemsProcessed(state.iterations() * (kBytes / 4));
}
BENCHMARK(BM_ByteBuffer_GetIntBigEndian);

}  // namespace

BENCHMARK_MAIN();
