// Decides, for one file a directory search found, whether it belongs in the
// result.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system {

class KIV_API IFileFilter {
public:
    virtual ~IFileFilter();
    /// 1 keeps the file at `path`, 0 drops it. `findData` points to the
    /// file's WIN32_FIND_DATAW record.
    virtual unsigned char IsMatching(const wchar_t* path, void* findData) = 0;
};

}  // namespace kiv::system
