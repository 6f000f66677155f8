#include <kiv/media/IMetaDataControl.h>

namespace kiv::media {

std::string IMetaDataControl::DEFAULT_NAME() {
    return "MetaDataControl";
}

std::string IMetaDataControl::GetName() {
    return DEFAULT_NAME();
}

std::string IMetaDataControl::AUTHOR_KEY() {
    return "author";
}

std::string IMetaDataControl::TITLE_KEY() {
    return "title";
}

std::string IMetaDataControl::DURATION_KEY() {
    return "duration";
}

std::string IMetaDataControl::BITRATE_KEY() {
    return "bitrate";
}

std::string IMetaDataControl::FREQUENCY_KEY() {
    return "frequency";
}

std::string IMetaDataControl::MP3_CHANNEL_MODE_KEY() {
    return "channelMode";
}

std::string IMetaDataControl::PICTURE_KEY() {
    return "coverPicture";
}

std::string IMetaDataControl::COMMENT_KEY() {
    return "comment";
}

std::string IMetaDataControl::YEAR_KEY() {
    return "year";
}

std::string IMetaDataControl::ALBUM_KEY() {
    return "album";
}

std::string IMetaDataControl::TRACK_KEY() {
    return "track";
}

std::string IMetaDataControl::GENRE_KEY() {
    return "genre";
}

}  // namespace kiv::media
