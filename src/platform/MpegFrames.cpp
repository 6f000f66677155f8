#include "platform/MpegFrames.h"

#include <vector>

namespace kiv::platform {
namespace {

constexpr int kBitrates[5][16] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},  // MPEG-1 layer I
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},     // MPEG-1 layer II
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},      // MPEG-1 layer III
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},  // MPEG-2/2.5 layer I
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},  // MPEG-2/2.5 layer II, III
};

constexpr int kSampleRates[3][3] = {
    {44100, 48000, 32000},  // MPEG-1
    {22050, 24000, 16000},  // MPEG-2
    {11025, 12000, 8000},   // MPEG-2.5
};

constexpr std::uint64_t kLostSyncLimit = 64 * 1024;
// Reads of 8 KiB: a sample of the first frames needs a few, a whole walk
// is not slowed by them.
constexpr std::size_t kBlock = 8 * 1024;

bool SameStream(const MpegFrameHeader& a, const MpegFrameHeader& b) {
    return a.version == b.version && a.layer == b.layer && a.sampleRateHz == b.sampleRateHz;
}

// A window on the stream, refilled from the reader when a header would
// cross its end.
class Window {
public:
    Window(const ByteReader& read, std::uint64_t end) : m_read(read), m_end(end), m_data(kBlock) {}

    // The `span` bytes at `offset` (at most a block), or null past the end of
    // the stream. A refill starts at `offset`, so the window only moves on.
    const std::uint8_t* At(std::uint64_t offset, std::size_t span = 4) {
        if (offset + span > m_end) {
            return nullptr;
        }
        if (offset < m_start || offset + span > m_start + m_size) {
            m_start = offset;
            const std::uint64_t left = m_end - offset;
            m_size = m_read(offset, m_data.data(),
                            left < kBlock ? static_cast<std::size_t>(left) : kBlock);
            if (m_size < span) {
                return nullptr;
            }
        }
        return m_data.data() + (offset - m_start);
    }

private:
    const ByteReader& m_read;
    std::uint64_t m_end;
    std::vector<std::uint8_t> m_data;
    std::uint64_t m_start = 0;
    std::size_t m_size = 0;
};

}  // namespace

bool ParseMpegFrameHeader(const std::uint8_t* b, MpegFrameHeader& h) {
    if (b[0] != 0xFF || (b[1] & 0xE0) != 0xE0) {
        return false;
    }
    const int versionBits = (b[1] >> 3) & 3;
    const int layerBits = (b[1] >> 1) & 3;
    const int bitrateIndex = b[2] >> 4;
    const int rateIndex = (b[2] >> 2) & 3;
    if (versionBits == 1 || layerBits == 0 || bitrateIndex == 0 || bitrateIndex == 15 ||
        rateIndex == 3) {
        return false;
    }
    h.version = versionBits == 3 ? 10 : versionBits == 2 ? 20 : 25;
    h.layer = 4 - layerBits;
    const bool mpeg1 = h.version == 10;
    const int table = mpeg1 ? h.layer - 1 : (h.layer == 1 ? 3 : 4);
    h.bitrateKbps = kBitrates[table][bitrateIndex];
    h.sampleRateHz = kSampleRates[mpeg1 ? 0 : h.version == 20 ? 1 : 2][rateIndex];
    h.channelMode = b[3] >> 6;
    const int padding = (b[2] >> 1) & 1;
    const long bitsPerSecond = h.bitrateKbps * 1000L;
    if (h.layer == 1) {
        h.samplesPerFrame = 384;
        h.frameBytes =
            static_cast<std::size_t>((12 * bitsPerSecond / h.sampleRateHz + padding) * 4);
    } else {
        h.samplesPerFrame = (h.layer == 3 && !mpeg1) ? 576 : 1152;
        const long factor = h.samplesPerFrame / 8;
        h.frameBytes = static_cast<std::size_t>(factor * bitsPerSecond / h.sampleRateHz + padding);
    }
    return h.frameBytes >= 4;
}

int MpegStreamSummary::DurationMs() const {
    if (sampleRateHz <= 0) {
        return -1;
    }
    return static_cast<int>(samples * 1000 / static_cast<std::uint64_t>(sampleRateHz));
}

int MpegStreamSummary::AverageBitrateKbps() const {
    const int ms = DurationMs();
    if (ms <= 0) {
        return 0;
    }
    return static_cast<int>((bytes * 8 + static_cast<std::uint64_t>(ms) / 2) /
                            static_cast<std::uint64_t>(ms));
}

MpegStreamSummary WalkMpegFrames(const ByteReader& read, std::uint64_t begin, std::uint64_t end,
                                 std::uint64_t maxFrames) {
    MpegStreamSummary summary;
    Window window(read, end);
    MpegFrameHeader first;
    std::uint64_t offset = begin;
    std::uint64_t lostSince = begin;
    while (summary.frames < maxFrames) {
        const std::uint8_t* bytes = window.At(offset);
        if (bytes == nullptr) {
            break;
        }
        MpegFrameHeader header;
        bool counted = ParseMpegFrameHeader(bytes, header) && offset + header.frameBytes <= end &&
                       (summary.frames == 0 || SameStream(header, first));
        if (counted && summary.frames == 0) {
            MpegFrameHeader next;
            const std::uint8_t* both = window.At(offset, header.frameBytes + 4);
            counted = both == nullptr || (ParseMpegFrameHeader(both + header.frameBytes, next) &&
                                          SameStream(header, next));
        }
        if (counted) {
            if (summary.frames == 0) {
                first = header;
                summary.sampleRateHz = header.sampleRateHz;
                summary.firstBitrateKbps = header.bitrateKbps;
            } else if (header.bitrateKbps != first.bitrateKbps) {
                summary.variableBitrate = true;
            }
            ++summary.frames;
            summary.samples += static_cast<std::uint64_t>(header.samplesPerFrame);
            summary.bytes += header.frameBytes;
            offset += header.frameBytes;
            lostSince = offset;
            continue;
        }
        if (offset - lostSince >= kLostSyncLimit) {
            break;
        }
        ++offset;
    }
    return summary;
}

}  // namespace kiv::platform
