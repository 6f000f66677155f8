#include "media/MediaMetaData.h"

#include "foundation/Text.h"
#include "media/GenreList.h"

namespace kiv::media {
namespace {

void Join(std::wstring& into, const std::wstring& part) {
    if (part.empty()) {
        return;
    }
    if (!into.empty()) {
        into += L" / ";
    }
    into += part;
}

// A picture stored without a MIME type is named by its first bytes.
std::string PictureType(const platform::TagFields& fields) {
    if (!fields.pictureMime.empty()) {
        return fields.pictureMime;
    }
    const std::vector<unsigned char>& p = fields.picture;
    if (p.size() >= 3 && p[0] == 0xFF && p[1] == 0xD8 && p[2] == 0xFF) {
        return "image/jpeg";
    }
    if (p.size() >= 4 && p[0] == 0x89 && p[1] == 'P' && p[2] == 'N' && p[3] == 'G') {
        return "image/png";
    }
    return "application/octet-stream";
}

}  // namespace

const wchar_t* MediaMetaData::ChannelModeName(platform::MpegChannelMode mode) {
    switch (mode) {
        case platform::MpegChannelMode::Stereo:
            return L"Stereo";
        case platform::MpegChannelMode::JointStereo:
            return L"Joint Stereo";
        case platform::MpegChannelMode::DualChannel:
            return L"Dual Channel";
        case platform::MpegChannelMode::Mono:
            return L"Mono";
        case platform::MpegChannelMode::None:
            break;
    }
    return nullptr;
}

bool MediaMetaData::Read(const std::wstring& path) {
    platform::TagFields fields;
    const bool ok = platform::ReadTagFields(text::ToUtf8(path), fields);
    Assign(ok ? fields : platform::TagFields{});
    return ok;
}

void MediaMetaData::Assign(const platform::TagFields& fields) {
    m_values.clear();
    m_rawGenre.clear();
    const auto add = [this](const char* key, std::wstring value) {
        if (!value.empty()) {
            m_values.emplace_back(key, std::move(value));
        }
    };
    const auto number = [](long long n) { return n > 0 ? std::to_wstring(n) : std::wstring(); };

    std::wstring genre;
    for (const std::wstring& stored : fields.genres) {
        Join(m_rawGenre, stored);
        Join(genre, ResolveGenre(stored));
    }
    const wchar_t* mode = ChannelModeName(fields.channelMode);

    add("author", fields.artist);
    add("title", fields.title);
    // A file of zero length has a duration, unlike one whose length is unknown.
    add("duration", fields.durationMs >= 0 ? std::to_wstring(fields.durationMs) : std::wstring());
    add("bitrate", number(fields.bitrateKbps));
    add("frequency", number(fields.sampleRateHz));
    add("channelMode", mode != nullptr ? mode : L"");
    m_picture = fields.picture;
    m_pictureMime = fields.picture.empty() ? std::string() : PictureType(fields);
    add("coverPicture", text::FromUtf8(m_pictureMime));
    add("comment", fields.comment);
    add("year", number(fields.year));
    add("album", fields.album);
    add("track", number(fields.track));
    add("genre", genre);
}

std::vector<std::string> MediaMetaData::Keys() const {
    std::vector<std::string> keys;
    keys.reserve(m_values.size());
    for (const auto& [key, value] : m_values) {
        keys.push_back(key);
    }
    return keys;
}

const std::wstring* MediaMetaData::Value(std::string_view key) const {
    for (const auto& [name, value] : m_values) {
        if (name == key) {
            return &value;
        }
    }
    return nullptr;
}

}  // namespace kiv::media
