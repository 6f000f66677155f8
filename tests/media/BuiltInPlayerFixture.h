// Players of the built-in driver made through MPlayerManager, as an
// application makes them, with discarding outputs; released after the test.
#pragma once

#include <gtest/gtest.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/IPlayer.h>
#include <kiv/media/MPlayerManager.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "foundation/Text.h"

namespace kiv::media {

class BuiltInPlayerFixture : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KIV_AUDIO_SINK", "discard", 1);
        setenv("KIV_VIDEO_SINK", "discard", 1);
        for (const char* extension : {"mp3", "wav", "wma", "avi", "mkv"}) {
            m_manager.RegisterMediaType(extension, "ms.directshow");
        }
        m_driver = MPlayerManager::GetDriver("ms.directshow");
    }
    void TearDown() override {
        for (IPlayer* player : m_players) {
            m_driver->ReleasePlayer(player);
        }
        for (IDataSource* source : m_sources) {
            m_driver->ReleaseDataSource(source);
        }
    }
    IDataSource* Source(const std::string& path) {
        m_sources.push_back(m_manager.CreateDataSource(text::FromUtf8(path)));
        return m_sources.back();
    }
    /// A player with the source `path`; null without a source.
    IPlayer* Player(const std::string& path) {
        m_players.push_back(path.empty() ? m_driver->CreatePlayer(nullptr)
                                         : m_manager.CreatePlayer(Source(path)));
        return m_players.back();
    }

    MPlayerManager m_manager;
    IDriver* m_driver = nullptr;
    std::vector<IPlayer*> m_players;
    std::vector<IDataSource*> m_sources;
};

}  // namespace kiv::media
