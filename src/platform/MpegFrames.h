// MPEG audio frame headers, and a walk over the frames of a stream for the
// files whose duration cannot be taken from a header (variable bit rate
// without a Xing or VBRI frame).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace kiv::platform {

struct MpegFrameHeader {
    int version = 0;  ///< 10 for MPEG-1, 20 for MPEG-2, 25 for MPEG-2.5
    int layer = 0;    ///< 1..3
    int bitrateKbps = 0;
    int sampleRateHz = 0;
    int samplesPerFrame = 0;
    int channelMode = 0;  ///< the header's two bits: 0 stereo, 1 joint, 2 dual, 3 mono
    std::size_t frameBytes = 0;
};

/// Parses the four bytes at `bytes`; false unless they are a valid header of
/// a frame with a known bit rate (free-format frames are not walked).
bool ParseMpegFrameHeader(const std::uint8_t* bytes, MpegFrameHeader& header);

struct MpegStreamSummary {
    std::uint64_t frames = 0;
    std::uint64_t samples = 0;
    std::uint64_t bytes = 0;  ///< bytes of the frames counted
    int sampleRateHz = 0;
    int firstBitrateKbps = 0;
    bool variableBitrate = false;  ///< frames of more than one bit rate seen
    int DurationMs() const;
    int AverageBitrateKbps() const;
};

/// Reads up to `size` bytes at `offset` into `buffer`; returns how many it read.
using ByteReader =
    std::function<std::size_t(std::uint64_t offset, std::uint8_t* buffer, std::size_t size)>;

/// Walks the frames in [begin, end), counting frames of the first frame's
/// version, layer and sample rate (a first frame counts only when another
/// header follows it, so that stray sync bits are not taken for one), and stops after `maxFrames`
/// frames, at `end`, or after 64 KiB without a frame. Always ends: every step moves on.
MpegStreamSummary WalkMpegFrames(const ByteReader& read, std::uint64_t begin, std::uint64_t end,
                                 std::uint64_t maxFrames);

}  // namespace kiv::platform
