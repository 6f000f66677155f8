// The player behind the built-in driver "ms.directshow", backed by the
// playback engine. The driver hands the player its source through
// SetDataSource after creating it; the player reads it with GetDataSource()
// when it is initialized.
#pragma once

namespace kiv::media {

class IDataSource;
class IPlayer;

/// A new engine-backed player for `source`; null if none can be made.
IPlayer* CreateBuiltInPlayer(IDataSource* source);
/// Destroys a player that CreateBuiltInPlayer made; null is ignored.
void ReleaseBuiltInPlayer(IPlayer* player);

}  // namespace kiv::media
