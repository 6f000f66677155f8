// The tags of the current media (ID3, RIFF INFO, ...).
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

#include <vector>

namespace kiv::media {

class KIV_API IMetaDataControl : public IControl {
public:
    /// "MetaDataControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    static std::string AUTHOR_KEY();            ///< "author"
    static std::string TITLE_KEY();             ///< "title"
    static std::string DURATION_KEY();          ///< "duration"
    static std::string BITRATE_KEY();           ///< "bitrate"
    static std::string FREQUENCY_KEY();         ///< "frequency"
    static std::string MP3_CHANNEL_MODE_KEY();  ///< "channelMode"
    static std::string PICTURE_KEY();           ///< "coverPicture"
    static std::string COMMENT_KEY();           ///< "comment"
    static std::string YEAR_KEY();              ///< "year"
    static std::string ALBUM_KEY();             ///< "album"
    static std::string TRACK_KEY();             ///< "track"
    static std::string GENRE_KEY();             ///< "genre"

    /// Appends the keys that have a value in the current media.
    virtual void GetKeys(std::vector<std::string>& keys) = 0;
    /// The value under `key` as text; empty if the media has none.
    virtual std::wstring GetKeyValue(std::string key) = 0;
    /// The cover picture: its bytes replace `bytes`, its MIME type
    /// ("image/jpeg", ...) `mimeType`. A status if there is no picture.
    virtual unsigned int GetPicture(std::vector<unsigned char>& bytes, std::string& mimeType) = 0;
};

}  // namespace kiv::media
