#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/MPlayerManager.h>

#include "media/LocatorExtension.h"
#include "media/MDirectShowDriver.h"

namespace kiv::media {

// Constant-initialized, so it exists before any static constructor runs and
// outlives the built-in driver below.
std::vector<IDriver*> MPlayerManager::m_drivers;

namespace {

// The built-in driver joins the list while the library loads, before any
// application code runs, so it is always the first. It lives in this file so
// that every program that uses the manager also gets the driver.
struct BuiltInDriverRegistration {
    MDirectShowDriver driver;
    BuiltInDriverRegistration() { MPlayerManager::RegisterDriver(&driver); }
};

BuiltInDriverRegistration g_builtInDriver;

}  // namespace

MPlayerManager::MPlayerManager() = default;

MPlayerManager::MPlayerManager(const MPlayerManager& other) = default;

MPlayerManager& MPlayerManager::operator=(const MPlayerManager& other) = default;

MPlayerManager::~MPlayerManager() = default;

void MPlayerManager::RegisterDriver(IDriver* driver) {
    m_drivers.push_back(driver);
}

void MPlayerManager::ListDrivers(std::vector<std::string>& names) {
    for (IDriver* driver : m_drivers) {
        names.push_back(driver->GetName());
    }
}

IDriver* MPlayerManager::GetDriver(std::string name) {
    for (IDriver* driver : m_drivers) {
        if (driver->GetName() == name) {
            return driver;
        }
    }
    return nullptr;
}

void MPlayerManager::RegisterMediaType(std::string extension, std::string driverName) {
    // emplace keeps the first mapping of an extension. The key is stored as
    // given, while lookups are lowercased: an upper-case key never matches,
    // and that is intended.
    m_mediaTypes.emplace(std::move(extension), std::move(driverName));
}

IDriver* MPlayerManager::GetDriverByLocale(std::wstring locator) {
    if (IsCaptureLocator(locator)) {
        // An input has no extension to register.
        return GetDriver(MDirectShowDriver::NAME);
    }
    const auto extension = LocatorExtension(locator);
    if (!extension) {
        return nullptr;
    }
    const auto found = m_mediaTypes.find(*extension);
    return found != m_mediaTypes.end() ? GetDriver(found->second) : nullptr;
}

IDataSource* MPlayerManager::CreateDataSource(std::wstring locator) {
    IDriver* driver = GetDriverByLocale(locator);
    return driver != nullptr ? driver->CreateDataSource(std::move(locator)) : nullptr;
}

IPlayer* MPlayerManager::CreatePlayer(IDataSource* source) {
    if (source == nullptr) {
        return nullptr;
    }
    IDriver* driver = GetDriverByLocale(source->GetLocator());
    return driver != nullptr ? driver->CreatePlayer(source) : nullptr;
}

}  // namespace kiv::media
