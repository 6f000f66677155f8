// How far a stream can be positioned.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API MSeekType {
public:
    static const int NOT_SEEKABLE;       ///< 0
    static const int SEEKABLE_TOStart;   ///< 1: only back to the beginning
    static const int RANDOM_ACCESSABLE;  ///< 2
};

}  // namespace kiv::media
