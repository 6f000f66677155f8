// Small media files made by the tests themselves: MPEG-1 layer III frames
// of silence (44.1 kHz), with or without a Xing frame, and PCM WAV files.
// Tags are written into them with TagLib by the tests.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kiv::test {

/// Layer III bit rate indexes of MPEG-1.
inline constexpr int kKbps128 = 9;
inline constexpr int kKbps320 = 14;

/// The bytes of one frame: 44.1 kHz, the given bit rate index and channel
/// mode bits (0 stereo, 1 joint, 2 dual, 3 mono), silent payload.
std::string MpegFrame(int bitrateIndex, int channelMode, bool padding = false);

/// Frames with the bit rate indexes `bitrates`, repeated in turn, `count`
/// frames in all. With `xing`, a Xing frame that counts the frames and bytes
/// comes first (it is not counted itself: players skip it).
std::string MpegStream(const std::vector<int>& bitrates, std::size_t count, int channelMode,
                       bool xing);

/// `utf8` converted to `charset` by the C library (iconv); empty when it
/// cannot be converted.
std::string Encode(const std::string& utf8, const char* charset);

/// A 16-bit PCM WAV file of silence.
std::string WavFile(int sampleRate, int channels, int milliseconds);

}  // namespace kiv::test
