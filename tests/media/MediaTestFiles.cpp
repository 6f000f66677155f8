#include "MediaTestFiles.h"

#include <iconv.h>

#include <cstdint>

namespace kiv::test {
namespace {

constexpr int kKbps[16] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};

void PutBigEndian(std::string& s, std::size_t at, std::uint32_t v) {
    s[at] = static_cast<char>(v >> 24);
    s[at + 1] = static_cast<char>(v >> 16);
    s[at + 2] = static_cast<char>(v >> 8);
    s[at + 3] = static_cast<char>(v);
}

void PutLittle(std::string& s, std::uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        s.push_back(static_cast<char>(v >> (8 * i)));
    }
}

}  // namespace

std::string Encode(const std::string& utf8, const char* charset) {
    iconv_t cd = iconv_open(charset, "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return {};
    }
    std::string out(utf8.size() * 4 + 8, '\0');
    char* in = const_cast<char*>(utf8.data());
    std::size_t inLeft = utf8.size();
    char* to = out.data();
    std::size_t outLeft = out.size();
    const bool ok = iconv(cd, &in, &inLeft, &to, &outLeft) != static_cast<std::size_t>(-1);
    iconv_close(cd);
    out.resize(ok ? out.size() - outLeft : 0);
    return out;
}

std::string MpegFrame(int bitrateIndex, int channelMode, bool padding) {
    const std::size_t size =
        static_cast<std::size_t>(144 * kKbps[bitrateIndex] * 1000 / 44100 + (padding ? 1 : 0));
    std::string frame(size, '\0');
    frame[0] = static_cast<char>(0xFF);
    frame[1] = static_cast<char>(0xFB);  // MPEG-1, layer III, no CRC
    frame[2] = static_cast<char>((bitrateIndex << 4) | (padding ? 2 : 0));
    frame[3] = static_cast<char>(channelMode << 6);
    return frame;
}

std::string MpegStream(const std::vector<int>& bitrates, std::size_t count, int channelMode,
                       bool xing) {
    std::string frames;
    for (std::size_t i = 0; i < count; ++i) {
        frames += MpegFrame(bitrates[i % bitrates.size()], channelMode);
    }
    if (!xing) {
        return frames;
    }
    std::string header = MpegFrame(kKbps128, channelMode);
    // After the side information: 32 bytes for two channels, 17 for one.
    const std::size_t at = 4 + (channelMode == 3 ? 17 : 32);
    header.replace(at, 4, "Xing");
    PutBigEndian(header, at + 4, 0x3);  // frame and byte counts follow
    PutBigEndian(header, at + 8, static_cast<std::uint32_t>(count));
    PutBigEndian(header, at + 12, static_cast<std::uint32_t>(frames.size() + header.size()));
    return header + frames;
}

std::string WavFile(int sampleRate, int channels, int milliseconds) {
    const std::uint32_t blockAlign = static_cast<std::uint32_t>(channels) * 2;
    const std::uint32_t frames =
        static_cast<std::uint32_t>(static_cast<long long>(sampleRate) * milliseconds / 1000);
    const std::uint32_t dataBytes = frames * blockAlign;
    std::string s = "RIFF";
    PutLittle(s, 36 + dataBytes, 4);
    s += "WAVEfmt ";
    PutLittle(s, 16, 4);
    PutLittle(s, 1, 2);  // PCM
    PutLittle(s, static_cast<std::uint32_t>(channels), 2);
    PutLittle(s, static_cast<std::uint32_t>(sampleRate), 4);
    PutLittle(s, static_cast<std::uint32_t>(sampleRate) * blockAlign, 4);
    PutLittle(s, blockAlign, 2);
    PutLittle(s, 16, 2);
    s += "data";
    PutLittle(s, dataBytes, 4);
    s.append(dataBytes, '\0');
    return s;
}

}  // namespace kiv::test
