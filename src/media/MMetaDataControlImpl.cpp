#include "media/MMetaDataControlImpl.h"

#include "foundation/Text.h"
#include "platform/MediaEngine.h"
#include "platform/TagReader.h"

namespace kiv::media {

using platform::MediaStatus;

bool MMetaDataControlImpl::Read(const std::wstring& locator, MediaMetaData& meta) {
    const std::string path = text::ToUtf8(locator);
    platform::TagFields fields;
    if (platform::ReadTagFields(path, fields)) {
        meta.Assign(fields);
        return true;
    }
    auto engine = platform::MediaEngine::Create();
    if (engine->Open(path) == 0 && engine->ReadTags(fields)) {
        meta.Assign(fields);
        return true;
    }
    meta.Assign(platform::TagFields{});
    return false;
}

void MMetaDataControlImpl::SetLocator(const std::wstring& locator) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (locator == m_locator && m_loaded) {
        return;
    }
    m_locator = locator;
    m_loaded = false;
    m_meta.Assign(platform::TagFields{});
}

const MediaMetaData& MMetaDataControlImpl::LoadedLocked() {
    if (!m_loaded) {
        // A file that cannot be read is not read again for every key.
        Read(m_locator, m_meta);
        m_loaded = true;
    }
    return m_meta;
}

void MMetaDataControlImpl::GetKeys(std::vector<std::string>& keys) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (std::string& key : LoadedLocked().Keys()) {
        keys.push_back(std::move(key));
    }
}

std::wstring MMetaDataControlImpl::GetKeyValue(std::string key) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::wstring* value = LoadedLocked().Value(key);
    return value != nullptr ? *value : std::wstring();
}

unsigned int MMetaDataControlImpl::GetPicture(std::vector<unsigned char>& bytes,
                                              std::string& mimeType) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const MediaMetaData& meta = LoadedLocked();
    if (meta.Picture().empty()) {
        return MediaStatus::NOT_FOUND;
    }
    bytes = meta.Picture();
    mimeType = meta.PictureMime();
    return 0;
}

}  // namespace kiv::media
