// Tags and audio properties of a media file, as the file stores them. The
// media layer turns this record into the metadata keys and values that
// applications read (numbered genres through the device's list, the MPEG
// channel mode in words).
#pragma once

#include <string>
#include <vector>

namespace kiv::platform {

enum class MpegChannelMode { None, Stereo, JointStereo, DualChannel, Mono };

struct TagFields {
    std::wstring title;
    std::wstring artist;
    std::wstring album;
    std::wstring comment;
    unsigned int year = 0;   ///< 0 when absent
    unsigned int track = 0;  ///< 0 when absent
    /// Every genre text the tags store, in their order: free text, a number
    /// ("17", also ID3v1's byte) or references ("(17)Rock").
    std::vector<std::wstring> genres;
    int durationMs = -1;  ///< -1 when unknown
    int bitrateKbps = 0;  ///< 0 when unknown
    int sampleRateHz = 0;
    int channels = 0;
    MpegChannelMode channelMode = MpegChannelMode::None;  ///< MPEG audio only
    std::string pictureMime;                              ///< the cover, if any
    std::vector<unsigned char> picture;
};

/// Reads the tags and audio properties of the file at `path` (UTF-8): MPEG
/// audio with ID3v1/ID3v2 (and APE) tags, WAV with RIFF INFO or ID3v2, ASF
/// (WMA), and the other formats the tag library knows. False when the file
/// is not a regular file or not a media file it recognises; broken tags give
/// what could be read.
bool ReadTagFields(const std::string& path, TagFields& fields);

/// The duration of the file at `path` in milliseconds; -1 when unknown.
int ReadDurationMs(const std::string& path);

}  // namespace kiv::platform
