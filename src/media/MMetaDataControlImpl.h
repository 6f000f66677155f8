// The metadata control of the built-in player. It reads the tags of the
// player's source when first asked, not when the source is set, so that a
// player that is only played pays nothing; the values need no initialized
// player. Files the tag reader does not know (AVI, ...) are opened once in
// a playback engine of their own and give the demuxer's tags.
#pragma once

#include <kiv/media/IMetaDataControl.h>

#include <mutex>
#include <string>
#include <vector>

#include "media/MediaMetaData.h"

namespace kiv::media {

class MMetaDataControlImpl final : public IMetaDataControl {
public:
    /// Forgets the values of the last source; the next question reads the
    /// file at `locator` (a path or a URI).
    void SetLocator(const std::wstring& locator);

    void GetKeys(std::vector<std::string>& keys) override;
    std::wstring GetKeyValue(std::string key) override;
    /// NOT_FOUND when the source has no picture.
    unsigned int GetPicture(std::vector<unsigned char>& bytes, std::string& mimeType) override;

    /// Reads the tags of `locator` into `meta`, through the engine for the
    /// formats the tag reader does not know; false when neither can.
    static bool Read(const std::wstring& locator, MediaMetaData& meta);

private:
    // Reads the source if that has not been done; m_mutex held.
    const MediaMetaData& LoadedLocked();

    std::mutex m_mutex;
    std::wstring m_locator;
    bool m_loaded = false;
    MediaMetaData m_meta;
};

}  // namespace kiv::media
