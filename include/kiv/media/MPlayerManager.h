// Turns a locator (a file path) into a data source and a player, through the
// driver registered for the locator's extension.
//
// The driver list is shared by the whole process and holds the built-in
// driver "ms.directshow" from the moment the library is loaded. Each manager
// has its own table of extensions: nothing is registered at first, so an
// application calls RegisterMediaType("mp3", "ms.directshow") and so on.
// The extension of a locator is the text after its last dot, lowercased.
// Not thread-safe: register drivers before other threads use a manager.
#pragma once

#include <kiv/platform/KivApi.h>

#include <map>
#include <string>
#include <vector>

namespace kiv::media {

class IDataSource;
class IDriver;
class IPlayer;

class KIV_API MPlayerManager {
public:
    /// A manager with no extension registered.
    MPlayerManager();
    MPlayerManager(const MPlayerManager& other);
    MPlayerManager& operator=(const MPlayerManager& other);
    virtual ~MPlayerManager();

    /// Appends a driver (not owned; it must outlive every manager). A driver
    /// registered twice is listed twice.
    static void RegisterDriver(IDriver* driver);
    /// Appends the names of all drivers, in registration order, to `names`.
    static void ListDrivers(std::vector<std::string>& names);
    /// The first driver named exactly `name` (case-sensitive); null if none.
    static IDriver* GetDriver(std::string name);

    /// Maps `extension` (without the dot) to the driver `driverName`. The
    /// first mapping of an extension stays. Only lower-case extensions can
    /// ever match a locator, since locators are lowercased for the lookup.
    void RegisterMediaType(std::string extension, std::string driverName);
    /// The data source that the locator's driver makes; null when the
    /// extension is not registered or its driver is unknown.
    IDataSource* CreateDataSource(std::wstring locator);
    /// The player that the driver of the source's locator makes; null when
    /// the extension is not registered, its driver is unknown or `source`
    /// is null.
    IPlayer* CreatePlayer(IDataSource* source);

private:
    IDriver* GetDriverByLocale(std::wstring locator);

    static std::vector<IDriver*> m_drivers;
    std::map<std::string, std::string> m_mediaTypes;
};

}  // namespace kiv::media
