// A factory for the players and data sources of one playback technology.
// Drivers are listed by MPlayerManager; the library's own is "ms.directshow".
#pragma once

#include <kiv/platform/KivApi.h>

#include <string>

namespace kiv::media {

class IDataSource;
class IPlayer;

class KIV_API IDriver {
public:
    virtual ~IDriver();
    /// A new player for `source`; null if the driver cannot make one.
    virtual IPlayer* CreatePlayer(IDataSource* source) = 0;
    /// Destroys a player this driver made; null is ignored.
    virtual void ReleasePlayer(IPlayer* player) = 0;
    /// A new data source for `locator`; null if the driver cannot make one.
    virtual IDataSource* CreateDataSource(std::wstring locator) = 0;
    /// Destroys a data source this driver made; null is ignored.
    virtual void ReleaseDataSource(IDataSource* source) = 0;
    /// The driver's unique name.
    virtual std::string GetName() = 0;
};

}  // namespace kiv::media
