// Filters found files by the extension of their name.
//
// The extension is what follows the last dot of the last path component
// ("/music/a.b/song.MP3" has "MP3"; "/music/README" and "/music/end." have
// none). It is compared with the listed extensions without regard to ASCII
// letter case, and a listed extension may be written with or without its dot
// ("mp3" and ".mp3" are the same entry). A name without an extension never
// matches. Only the path is looked at: the file need not exist.
#pragma once

#include <kiv/files/IFileFilter.h>
#include <kiv/platform/KivApi.h>

#include <string>
#include <vector>

namespace kiv::system {

class KIV_API MFileExtensionFilter : public IFileFilter {
public:
    /// Keeps a copy of `extensions`.
    explicit MFileExtensionFilter(std::vector<std::string>& extensions);
    ~MFileExtensionFilter() override;

    /// 1 when the extension of `path` is listed, 0 otherwise or for null.
    unsigned char IsMatching(const wchar_t* path, void* findData) override;

private:
    std::vector<std::string> m_extensions;
};

}  // namespace kiv::system
