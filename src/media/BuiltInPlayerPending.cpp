// Stand-in until the engine-backed player is built: the built-in driver
// makes no player yet. The engine's player replaces this file.
#include <kiv/media/IPlayer.h>

#include "media/BuiltInPlayer.h"

namespace kiv::media {

IPlayer* CreateBuiltInPlayer(IDataSource* /*source*/) {
    return nullptr;
}

void ReleaseBuiltInPlayer(IPlayer* player) {
    delete player;
}

}  // namespace kiv::media
