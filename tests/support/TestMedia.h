// Media files for tests, made at test time with GStreamer's own encoders
// (gst-launch-1.0): a sine tone, and for video a red test picture.
#pragma once

#include <string>

namespace kiv::test {

enum class MediaFormat { MP3, WAV, WMA, AVI };

struct TestMediaFile {
    std::string path;  ///< empty when it could not be made
    int durationMs;    ///< the length of the stream in the file
    int toleranceMs;   ///< one frame or packet of the format
};

/// Makes (or reuses, within one test) a file of `format` of about `ms`
/// milliseconds in the test's temporary directory. An MP3 carries ID3v2
/// tags (title "KivTone", artist "Kiv"); its length counts the encoder's
/// delay and padding frames, as read from the frames in the file. An AVI has
/// 160x120 MJPEG video at 15 frames/s and a mono PCM sound track.
TestMediaFile MakeTestMedia(MediaFormat format, int ms);

/// The file's extension without the dot ("mp3", ...).
const char* MediaExtension(MediaFormat format);

/// The playing time of the MPEG-1 Layer III frames of a file, skipping an
/// ID3v2 tag; -1 when the file holds none.
int Mp3FramesDurationMs(const std::string& path);

}  // namespace kiv::test
