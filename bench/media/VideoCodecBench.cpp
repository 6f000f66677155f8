// Frame conversion throughput at 720p and 1080p, single thread, against
// libyuv's I420ToRGB24 and memcpy of the output size on the same frames.
//
// libyuv reads the chroma of the codec's layout in place (each plane with a
// stride of one luma row) and flips the picture as the codec does; its
// colour matrix and byte order differ, so only throughput is compared. One
// item is one frame: items per second are frames per second.
#include <kiv/media/MVideoCodec.h>
#include <kiv/media/MVideoFormat.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "media/YuvReference.h"
#include "media/YuvToBgr.h"

#if defined(KIV_HAVE_LIBYUV)
#include <libyuv/convert_argb.h>
#endif

using namespace kiv::media;

namespace {

struct Frame {
    int width;
    int height;
    std::vector<std::uint8_t> in;
    std::vector<std::uint8_t> out;
    std::vector<std::uint8_t> copySource;
};

Frame MakeFrame(int width, int height) {
    Frame f{width, height, std::vector<std::uint8_t>(test::InputSize(width, height)),
            std::vector<std::uint8_t>(3 * static_cast<std::size_t>(width) * height),
            std::vector<std::uint8_t>(3 * static_cast<std::size_t>(width) * height, 7)};
    std::mt19937 random(1080);
    for (auto& b : f.in) {
        b = static_cast<std::uint8_t>(random());
    }
    return f;
}

void Finish(benchmark::State& state, const Frame& f) {
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(f.out.size()));
}

void BM_Transform(benchmark::State& state) {
    Frame f = MakeFrame(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    MVideoFormat input(f.width, f.height, IFormat::FORMAT_RGB_888);
    MVideoFormat output(f.width, f.height, IFormat::FORMAT_YUV_420);
    MVideoCodec codec;
    codec.SetInputFormat(&input);
    codec.SetOutputFormat(&output);
    for (auto _ : state) {
        codec.Transform(f.in.data(), 0, f.out.data(), 0);
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

template <detail::YuvPath Path>
void BM_Path(benchmark::State& state) {
    if (!detail::IsPathAvailable(Path)) {
        state.SkipWithError("this CPU lacks the instruction set");
        return;
    }
    Frame f = MakeFrame(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        detail::ConvertFrame(Path, f.in.data(), f.width, f.height, f.out.data());
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

void BM_Reference(benchmark::State& state) {
    Frame f = MakeFrame(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        test::ReferenceFrame(f.in.data(), f.width, f.height, f.out.data());
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

void BM_MemcpyOfOutput(benchmark::State& state) {
    Frame f = MakeFrame(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        std::memcpy(f.out.data(), f.copySource.data(), f.out.size());
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}

#if defined(KIV_HAVE_LIBYUV)
void BM_LibyuvI420ToRGB24(benchmark::State& state) {
    Frame f = MakeFrame(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    const int w = f.width;
    const std::uint8_t* y = f.in.data();
    const std::uint8_t* u = y + static_cast<std::size_t>(w) * f.height;
    const std::uint8_t* v = u + w / 2;
    for (auto _ : state) {
        // A negative height stores the picture bottom row first.
        libyuv::I420ToRGB24(y, w, u, w, v, w, f.out.data(), 3 * w, w, -f.height);
        benchmark::ClobberMemory();
    }
    Finish(state, f);
}
BENCHMARK(BM_LibyuvI420ToRGB24)->Args({1280, 720})->Args({1920, 1080});
#else
void BM_LibyuvI420ToRGB24(benchmark::State& state) {
    state.SkipWithError("built without libyuv");
}
BENCHMARK(BM_LibyuvI420ToRGB24)->Args({1280, 720})->Args({1920, 1080});
#endif

BENCHMARK(BM_Transform)->Args({1280, 720})->Args({1920, 1080});
BENCHMARK(BM_Path<detail::YuvPath::Avx512>)->Args({1280, 720})->Args({1920, 1080});
BENCHMARK(BM_Path<detail::YuvPath::Avx2>)->Args({1280, 720})->Args({1920, 1080});
BENCHMARK(BM_Path<detail::YuvPath::Sse2>)->Args({1280, 720})->Args({1920, 1080});
BENCHMARK(BM_Path<detail::YuvPath::Portable>)->Args({1280, 720})->Args({1920, 1080});
BENCHMARK(BM_Reference)->Args({1280, 720})->Args({1920, 1080});
BENCHMARK(BM_MemcpyOfOutput)->Args({1280, 720})->Args({1920, 1080});

}  // namespace

BENCHMARK_MAIN();
