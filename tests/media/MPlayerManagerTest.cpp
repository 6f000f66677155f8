#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/MPlayerManager.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "media/MDirectShowDataSource.h"

namespace {

using kiv::media::IDataSource;
using kiv::media::IDriver;
using kiv::media::IPlayer;
using kiv::media::MDirectShowDataSource;
using kiv::media::MPlayerManager;

// A driver that makes sources for any locator and remembers them; its
// "players" are markers, never used as players.
class FakeDriver : public IDriver {
public:
    explicit FakeDriver(std::string name) : m_name(std::move(name)) {}
    IPlayer* CreatePlayer(IDataSource* source) override {
        playerSources.push_back(source);
        return reinterpret_cast<IPlayer*>(&m_marker);
    }
    void ReleasePlayer(IPlayer*) override {}
    IDataSource* CreateDataSource(std::wstring locator) override {
        locators.push_back(locator);
        sources.emplace_back(std::make_unique<MDirectShowDataSource>(std::move(locator)));
        return sources.back().get();
    }
    void ReleaseDataSource(IDataSource*) override {}
    std::string GetName() override { return m_name; }

    IPlayer* Marker() { return reinterpret_cast<IPlayer*>(&m_marker); }

    std::vector<std::wstring> locators;
    std::vector<IDataSource*> playerSources;
    std::vector<std::unique_ptr<MDirectShowDataSource>> sources;

private:
    std::string m_name;
    int m_marker = 0;
};

// A fake driver of that name, registered once for the process (drivers stay
// listed for good), with its records cleared.
FakeDriver& Driver(const std::string& name) {
    static std::map<std::string, std::unique_ptr<FakeDriver>> drivers;
    auto& driver = drivers[name];
    if (driver == nullptr) {
        driver = std::make_unique<FakeDriver>(name);
        MPlayerManager::RegisterDriver(driver.get());
    }
    driver->locators.clear();
    driver->playerSources.clear();
    return *driver;
}

TEST(MPlayerManager, TheBuiltInDriverIsListedFirstAndRegisteredDriversFollowInOrder) {
    std::vector<std::string> names{"kept"};
    MPlayerManager::ListDrivers(names);
    ASSERT_GE(names.size(), 2u);
    EXPECT_EQ(names[0], "kept");
    EXPECT_EQ(names[1], "ms.directshow");
    ASSERT_NE(MPlayerManager::GetDriver("ms.directshow"), nullptr);
    EXPECT_EQ(MPlayerManager::GetDriver("MS.DIRECTSHOW"), nullptr);
    EXPECT_EQ(MPlayerManager::GetDriver("ms.directshow "), nullptr);

    static FakeDriver twice("test.listing");
    MPlayerManager::RegisterDriver(&twice);
    MPlayerManager::RegisterDriver(&twice);
    std::vector<std::string> after;
    MPlayerManager::ListDrivers(after);
    EXPECT_EQ(after.size(), names.size() + 1);
    ASSERT_GE(after.size(), 3u);
    EXPECT_EQ(after[after.size() - 2], "test.listing");
    EXPECT_EQ(after.back(), "test.listing");
    EXPECT_EQ(MPlayerManager::GetDriver("test.listing"), &twice);
}

TEST(MPlayerManager, ExtensionsAreLookedUpLowercasedAfterTheLastDotOfTheLocator) {
    FakeDriver& first = Driver("test.first");
    FakeDriver& second = Driver("test.second");
    MPlayerManager manager;
    manager.RegisterMediaType("mp3", "test.first");
    manager.RegisterMediaType("mp3", "test.second");  // the first mapping stays
    manager.RegisterMediaType("WAV", "test.first");   // upper case never matches
    manager.RegisterMediaType("v2/track", "test.second");
    manager.RegisterMediaType("", "test.second");
    manager.RegisterMediaType("ogg", "test.unknown");

    EXPECT_NE(manager.CreateDataSource(L"/music/a.mp3"), nullptr);
    EXPECT_NE(manager.CreateDataSource(L"/music/B.MP3"), nullptr);
    EXPECT_EQ(first.locators, (std::vector<std::wstring>{L"/music/a.mp3", L"/music/B.MP3"}));

    EXPECT_EQ(manager.CreateDataSource(L"/music/c.WAV"), nullptr);
    EXPECT_EQ(manager.CreateDataSource(L"/music/c.wav"), nullptr);
    EXPECT_EQ(manager.CreateDataSource(L"/music/song.ogg"), nullptr);  // driver unknown
    EXPECT_EQ(manager.CreateDataSource(L"/music/song"), nullptr);      // no dot
    EXPECT_EQ(manager.CreateDataSource(L"/music/song.flac"), nullptr);

    // The dot of a directory, and a locator ending in a dot.
    EXPECT_NE(manager.CreateDataSource(L"/music/dir.V2/track"), nullptr);
    EXPECT_NE(manager.CreateDataSource(L"/music/song."), nullptr);
    EXPECT_EQ(second.locators,
              (std::vector<std::wstring>{L"/music/dir.V2/track", L"/music/song."}));
}

TEST(MPlayerManager, CreatePlayerUsesTheDriverOfTheSourcesLocator) {
    FakeDriver& driver = Driver("test.players");
    MPlayerManager manager;
    manager.RegisterMediaType("avi", "test.players");

    MDirectShowDataSource clip(L"/video/clip.Avi");
    MDirectShowDataSource song(L"/music/song.mp3");
    EXPECT_EQ(manager.CreatePlayer(&clip), driver.Marker());
    EXPECT_EQ(driver.playerSources, std::vector<IDataSource*>{&clip});
    EXPECT_EQ(manager.CreatePlayer(&song), nullptr);
    EXPECT_EQ(manager.CreatePlayer(nullptr), nullptr);

    // Each manager has its own table; a copy starts with the original's.
    MPlayerManager fresh;
    EXPECT_EQ(fresh.CreatePlayer(&clip), nullptr);
    MPlayerManager copy(manager);
    manager.RegisterMediaType("mp3", "test.players");
    EXPECT_EQ(copy.CreatePlayer(&clip), driver.Marker());
    EXPECT_EQ(copy.CreatePlayer(&song), nullptr);
    fresh = manager;
    EXPECT_EQ(fresh.CreatePlayer(&song), driver.Marker());
}

TEST(MPlayerManager, TheBuiltInDriverMakesFileSourcesWithTheirContentType) {
    MPlayerManager manager;
    manager.RegisterMediaType("mp3", "ms.directshow");
    IDataSource* source = manager.CreateDataSource(L"/music/Song.MP3");
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->GetLocator(), L"/music/Song.MP3");
    EXPECT_EQ(source->GetContentType(), "audio/mepg");
    EXPECT_EQ(source->GetStream(), nullptr);
    const std::pair<const wchar_t*, const char*> types[] = {{L"/music/a.b.Wav", "audio/x-wav"},
                                                            {L"voice.wma", "audio/x-ms-wma"},
                                                            {L"/video/clip.avi", "video/x-msvideo"},
                                                            {L"/music/song.ogg", ""},
                                                            {L"/music/song", ""},
                                                            {L"/music/song.", ""},
                                                            {L"/music.mp3/song", ""},
                                                            {L"/music/song.mp3x", ""}};
    for (const auto& [locator, type] : types) {
        EXPECT_EQ(MDirectShowDataSource(locator).GetContentType(), type) << locator;
    }
    IDriver* driver = MPlayerManager::GetDriver("ms.directshow");
    ASSERT_NE(driver, nullptr);
    driver->ReleaseDataSource(source);
    driver->ReleaseDataSource(nullptr);
    driver->ReleasePlayer(nullptr);
}

}  // namespace
