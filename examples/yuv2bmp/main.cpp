// yuv2bmp: converts a frame with MVideoCodec and writes it as a BMP file.
//
//   yuv2bmp FRAME.yuv WIDTH HEIGHT OUT.bmp      a raw frame in the codec's
//                                               input layout
//   yuv2bmp --bars WIDTH HEIGHT OUT.bmp [RAW]   generated colour bars (and
//                                               the raw frame, if RAW is given)
//
// The codec's output is what a bottom-up 24-bit bitmap holds; the file only
// adds the headers and pads each row to a multiple of 4 bytes.
#include <kiv/media/MVideoCodec.h>
#include <kiv/media/MVideoFormat.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

std::size_t InputSize(int w, int h) {
    return static_cast<std::size_t>(w) * h + static_cast<std::size_t>(h / 2) * w;
}

struct YCbCr {
    int y, cb, cr;
};

// Studio-range encoding of an RGB colour (0..255), the way a video source
// would label it.
YCbCr Encode(double r, double g, double b) {
    const double y = 16 + (65.481 * r + 128.553 * g + 24.966 * b) / 255;
    const double cb = 128 + (-37.797 * r - 74.203 * g + 112.0 * b) / 255;
    const double cr = 128 + (112.0 * r - 93.786 * g - 18.214 * b) / 255;
    return {static_cast<int>(std::lround(y)), static_cast<int>(std::lround(cb)),
            static_cast<int>(std::lround(cr))};
}

// 75% colour bars over the top two thirds (white, yellow, cyan, green,
// magenta, red, blue, black), a full-saturation red, green and blue strip,
// and a luma ramp at the bottom.
Bytes ColourBars(int w, int h) {
    Bytes frame(InputSize(w, h), 128);
    const double bars[8][3] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                               {191, 0, 191},   {191, 0, 0},   {0, 0, 191},   {0, 0, 0}};
    const double primaries[3][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    auto colourAt = [&](int x, int y) -> YCbCr {
        if (y < 2 * h / 3) {
            const double* c = bars[x * 8 / w];
            return Encode(c[0], c[1], c[2]);
        }
        if (y < 5 * h / 6) {
            const double* c = primaries[x * 3 / w];
            return Encode(c[0], c[1], c[2]);
        }
        const double v = 255.0 * x / std::max(1, w - 1);
        return Encode(v, v, v);
    };
    std::uint8_t* chroma = frame.data() + static_cast<std::size_t>(w) * h;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const YCbCr p = colourAt(x, y);
            frame[static_cast<std::size_t>(y) * w + x] = static_cast<std::uint8_t>(p.y);
            if (y % 2 == 0 && x % 2 == 0 && y / 2 < h / 2 && x / 2 < w / 2) {
                std::uint8_t* row = chroma + static_cast<std::size_t>(y / 2) * w;
                row[x / 2] = static_cast<std::uint8_t>(p.cb);
                row[w / 2 + x / 2] = static_cast<std::uint8_t>(p.cr);
            }
        }
    }
    return frame;
}

void PutLittleEndian(Bytes& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
}

Bytes BitmapFile(const Bytes& bgr, int w, int h) {
    const std::uint32_t stride = (3 * static_cast<std::uint32_t>(w) + 3) & ~3u;
    const std::uint32_t imageSize = stride * static_cast<std::uint32_t>(h);
    Bytes file;
    file.push_back('B');
    file.push_back('M');
    PutLittleEndian(file, 54 + imageSize, 4);
    PutLittleEndian(file, 0, 4);
    PutLittleEndian(file, 54, 4);
    PutLittleEndian(file, 40, 4);  // the info header
    PutLittleEndian(file, static_cast<std::uint32_t>(w), 4);
    PutLittleEndian(file, static_cast<std::uint32_t>(h), 4);  // positive: bottom row first
    PutLittleEndian(file, 1, 2);
    PutLittleEndian(file, 24, 2);
    PutLittleEndian(file, 0, 4);  // uncompressed
    PutLittleEndian(file, imageSize, 4);
    PutLittleEndian(file, 2835, 4);  // 72 dpi
    PutLittleEndian(file, 2835, 4);
    PutLittleEndian(file, 0, 4);
    PutLittleEndian(file, 0, 4);
    for (int row = 0; row < h; ++row) {
        const std::uint8_t* src = bgr.data() + static_cast<std::size_t>(row) * 3 * w;
        file.insert(file.end(), src, src + 3 * static_cast<std::size_t>(w));
        file.resize(file.size() + (stride - 3 * static_cast<std::uint32_t>(w)), 0);
    }
    return file;
}

bool WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

int Usage() {
    std::fprintf(stderr,
                 "usage: yuv2bmp FRAME.yuv WIDTH HEIGHT OUT.bmp\n"
                 "       yuv2bmp --bars WIDTH HEIGHT OUT.bmp [RAW.yuv]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        return Usage();
    }
    const int w = std::atoi(argv[2]);
    const int h = std::atoi(argv[3]);
    if (w <= 0 || h <= 0 || w > 16384 || h > 16384) {
        std::fprintf(stderr, "yuv2bmp: width and height must be 1..16384\n");
        return 2;
    }
    Bytes frame;
    if (std::strcmp(argv[1], "--bars") == 0) {
        frame = ColourBars(w, h);
        if (argc > 5 && !WriteFile(argv[5], frame)) {
            std::fprintf(stderr, "yuv2bmp: cannot write %s\n", argv[5]);
            return 1;
        }
    } else {
        std::ifstream in(argv[1], std::ios::binary);
        frame.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (frame.size() < InputSize(w, h)) {
            std::fprintf(stderr, "yuv2bmp: %s holds %zu bytes, a %d x %d frame needs %zu\n",
                         argv[1], frame.size(), w, h, InputSize(w, h));
            return 1;
        }
    }

    // Callers label the input 0 and the output 3: the codec's own convention.
    kiv::media::MVideoFormat input(w, h, kiv::media::IFormat::FORMAT_RGB_888);
    kiv::media::MVideoFormat output(w, h, kiv::media::IFormat::FORMAT_YUV_420);
    kiv::media::MVideoCodec codec;
    codec.SetInputFormat(&input);
    codec.SetOutputFormat(&output);
    Bytes bgr(3 * static_cast<std::size_t>(w) * h);
    codec.Transform(frame.data(), static_cast<int>(frame.size()), bgr.data(),
                    static_cast<int>(bgr.size()));

    if (!WriteFile(argv[4], BitmapFile(bgr, w, h))) {
        std::fprintf(stderr, "yuv2bmp: cannot write %s\n", argv[4]);
        return 1;
    }
    return 0;
}
