// The metadata of one media file under the keys applications ask for:
// "author", "title", "duration" (ms), "bitrate" (kbit/s), "frequency" (Hz),
// "channelMode" (MPEG audio: "Stereo", "Joint Stereo", "Dual Channel",
// "Mono"), "coverPicture" (its MIME type; the bytes through Picture()),
// "comment", "year", "album", "track", "genre". Values are wide text;
// a key is present only when the file has a value for it.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/TagReader.h"

namespace kiv::media {

class MediaMetaData {
public:
    /// Reads the file at `path`; false (and no keys) when it cannot be read
    /// as media.
    bool Read(const std::wstring& path);

    /// Replaces the values with those of `fields`.
    void Assign(const platform::TagFields& fields);

    /// The keys present, in the order of the key list above.
    std::vector<std::string> Keys() const;
    /// The value of `key`; null when the file has none.
    const std::wstring* Value(std::string_view key) const;

    const std::vector<unsigned char>& Picture() const { return m_picture; }
    const std::string& PictureMime() const { return m_pictureMime; }
    /// The genre texts as the tags store them, joined with " / ".
    const std::wstring& RawGenre() const { return m_rawGenre; }

    /// The words for an MPEG channel mode; null for None.
    static const wchar_t* ChannelModeName(platform::MpegChannelMode mode);

private:
    std::vector<std::pair<std::string, std::wstring>> m_values;
    std::vector<unsigned char> m_picture;
    std::string m_pictureMime;
    std::wstring m_rawGenre;
};

}  // namespace kiv::media
