// The built-in player on real files, reached as an application reaches it:
// through MPlayerManager and the "ms.directshow" driver.
#include "media/MDirectShowPlayer.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <kiv/media/IBrightnessControl.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/IPlayerListener.h>
#include <kiv/media/IStopTimeControl.h>
#include <kiv/media/IVideoControl.h>
#include <kiv/media/IVolumeControl.h>
#include <kiv/media/MPlayerEvent.h>
#include <kiv/media/MPlayerManager.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"

namespace kiv::media {
namespace {

using test::MediaFormat;

class RecordingListener : public IPlayerListener {
public:
    void OnPlayerEvent(const MPlayerEvent& event) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(event.GetEventType());
        if (std::this_thread::get_id() == m_testThread) {
            m_onTestThread = true;
        }
        m_arrived.notify_all();
    }
    // Waits until an event of `type` (or `other`) came; true if it did
    // within 15 s.
    bool WaitFor(unsigned char type, int other = -1) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(lock, std::chrono::seconds(15), [&] {
            return std::find_if(m_events.begin(), m_events.end(), [&](unsigned char e) {
                       return e == type || e == other;
                   }) != m_events.end();
        });
    }
    std::deque<unsigned char> Events() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    bool CalledOnTestThread() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_onTestThread;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<unsigned char> m_events;
    std::thread::id m_testThread = std::this_thread::get_id();
    bool m_onTestThread = false;
};

long ResidentKb() {
    long kb = -1;
    if (FILE* f = std::fopen("/proc/self/status", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, f) != nullptr &&
               std::sscanf(line, "VmRSS: %ld", &kb) != 1) {
        }
        std::fclose(f);
    }
    return kb;
}

int CountEntries(const char* dir) {
    int count = 0;
    if (DIR* d = opendir(dir)) {
        while (readdir(d) != nullptr) {
            ++count;
        }
        closedir(d);
    }
    return count;
}

std::wstring Wide(const std::string& s) {
    return std::wstring(s.begin(), s.end());
}

class MDirectShowPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KIV_AUDIO_SINK", "discard", 1);
        setenv("KIV_VIDEO_SINK", "discard", 1);
        for (const char* extension : {"mp3", "wav", "wma", "avi"}) {
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
        unsetenv("KIV_AUDIO_SINK");
        unsetenv("KIV_VIDEO_SINK");
    }
    IDataSource* Source(const std::string& path) {
        m_sources.push_back(m_manager.CreateDataSource(Wide(path)));
        return m_sources.back();
    }
    IPlayer* Player(const std::string& path) {
        IPlayer* player = m_manager.CreatePlayer(Source(path));
        if (player != nullptr) {
            m_players.push_back(player);
        }
        return player;
    }

    MPlayerManager m_manager;
    IDriver* m_driver = nullptr;
    std::vector<IPlayer*> m_players;
    std::vector<IDataSource*> m_sources;
};

TEST_F(MDirectShowPlayerTest, Mp3PlaysToTheEndWithAudioControlsOnly) {
    const auto file = test::MakeTestMedia(MediaFormat::MP3, 1500);
    IPlayer* player = Player(file.path);
    ASSERT_NE(player, nullptr);
    RecordingListener listener;
    player->AddPlayerListener(&listener);
    EXPECT_EQ(player->GetControl(IVolumeControl::DEFAULT_NAME()), nullptr);

    ASSERT_EQ(player->Initialize(), 0u);
    EXPECT_EQ(player->GetState(), IPlayer::READY);
    EXPECT_NEAR(player->GetDuration(), file.durationMs, file.toleranceMs);
    EXPECT_FALSE(player->HasVideo());
    EXPECT_NE(player->GetControl(IVolumeControl::DEFAULT_NAME()), nullptr);
    EXPECT_NE(player->GetControl(IStopTimeControl::DEFAULT_NAME()), nullptr);
    EXPECT_EQ(player->GetControl(IVideoControl::DEFAULT_NAME()), nullptr);
    EXPECT_EQ(player->GetControl(IBrightnessControl::DEFAULT_NAME()), nullptr);
    EXPECT_FALSE(player->StopVideo());

    auto* volume = static_cast<IVolumeControl*>(player->GetControl("VolumeControl"));
    EXPECT_TRUE(player->SetAudioVolume(40));
    EXPECT_EQ(volume->GetLevel(), 40);
    EXPECT_EQ(volume->SetLevel(150), 100);
    EXPECT_EQ(player->GetAudioVolume(), 100);

    ASSERT_EQ(player->SetMediaTime(file.durationMs - 300), 0u);
    EXPECT_NEAR(player->GetMediaTime(), file.durationMs - 300, file.toleranceMs);
    ASSERT_EQ(player->Start(), 0u);
    ASSERT_TRUE(listener.WaitFor(MPlayerEvent::STOPPED_END_OF_MEDIA));
    EXPECT_EQ(player->GetState(), IPlayer::READY);
    EXPECT_EQ(listener.Events(), (std::deque<unsigned char>{
                                     MPlayerEvent::INITIALIZED, MPlayerEvent::MEDIA_TIME_SET,
                                     MPlayerEvent::STARTED, MPlayerEvent::STOPPED_END_OF_MEDIA}));
    EXPECT_FALSE(listener.CalledOnTestThread());

    // Started again after the end, it plays from the start; Close stops and
    // deinitializes.
    ASSERT_EQ(player->Start(), 0u);
    EXPECT_EQ(player->Close(), 0u);
    EXPECT_EQ(player->GetState(), IPlayer::UNINITIALIZED);
    ASSERT_TRUE(listener.WaitFor(MPlayerEvent::DEINITIALIZED));
    auto events = listener.Events();
    EXPECT_EQ(events[events.size() - 2], MPlayerEvent::STOPPED_BY_REQUEST);
    player->RemovePlayerListener(&listener);
}

// Each generated format, through the whole life of a playback: its length
// within one frame or packet, an accurate seek, a pause that holds the
// position, and the end of the media.
TEST_F(MDirectShowPlayerTest, EveryFormatSeeksPausesAndPlaysToTheEnd) {
    for (MediaFormat format :
         {MediaFormat::MP3, MediaFormat::WAV, MediaFormat::WMA, MediaFormat::AVI}) {
        SCOPED_TRACE(test::MediaExtension(format));
        const auto file = test::MakeTestMedia(format, 1500);
        IPlayer* player = Player(file.path);
        ASSERT_NE(player, nullptr);
        RecordingListener listener;
        player->AddPlayerListener(&listener);
        ASSERT_EQ(player->Initialize(), 0u);
        EXPECT_NEAR(player->GetDuration(), file.durationMs, file.toleranceMs);
        const int from = file.durationMs - 500;
        ASSERT_EQ(player->SetMediaTime(from), 0u);
        EXPECT_NEAR(player->GetMediaTime(), from, file.toleranceMs);
        ASSERT_EQ(player->Start(), 0u);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        ASSERT_EQ(player->Pause(), 0u);
        EXPECT_EQ(player->GetState(), IPlayer::READY);
        const int paused = player->GetMediaTime();
        EXPECT_GT(paused, from);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(player->GetMediaTime(), paused);
        ASSERT_EQ(player->Start(), 0u);
        ASSERT_TRUE(listener.WaitFor(MPlayerEvent::STOPPED_END_OF_MEDIA));
        EXPECT_EQ(player->GetState(), IPlayer::READY);
        EXPECT_EQ(
            listener.Events(),
            (std::deque<unsigned char>{MPlayerEvent::INITIALIZED, MPlayerEvent::MEDIA_TIME_SET,
                                       MPlayerEvent::STARTED, MPlayerEvent::STOPPED_BY_REQUEST,
                                       MPlayerEvent::STARTED, MPlayerEvent::STOPPED_END_OF_MEDIA}));
        player->RemovePlayerListener(&listener);
    }
}

TEST_F(MDirectShowPlayerTest, AviHasVideoControlsAndStopsAtTheStopTime) {
    const auto file = test::MakeTestMedia(MediaFormat::AVI, 1500);
    IPlayer* player = Player(file.path);
    ASSERT_NE(player, nullptr);
    RecordingListener listener;
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Initialize(), 0u);
    EXPECT_TRUE(player->HasVideo());
    auto* video = static_cast<IVideoControl*>(player->GetControl("VideoControl"));
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->GetSourceWidth(), 160);
    EXPECT_EQ(video->GetSourceHeight(), 120);
    auto* brightness = static_cast<IBrightnessControl*>(player->GetControl("BrightnessControl"));
    ASSERT_NE(brightness, nullptr);
    EXPECT_EQ(brightness->GetLevel(), 50);
    EXPECT_EQ(brightness->SetLevel(-5), 0);
    EXPECT_NE(player->GetControl("ContrastControl"), nullptr);
    EXPECT_NE(player->GetControl("SaturationControl"), nullptr);

    auto* stopTime = static_cast<IStopTimeControl*>(player->GetControl("StopTimeControl"));
    ASSERT_NE(stopTime, nullptr);
    EXPECT_EQ(stopTime->GetStopTime(), IStopTimeControl::RESET);
    ASSERT_EQ(stopTime->SetStopTime(600), 0u);
    ASSERT_EQ(player->Start(), 0u);
    EXPECT_NE(stopTime->SetStopTime(900), 0u);  // refused while started with one set
    ASSERT_TRUE(listener.WaitFor(MPlayerEvent::STOPPED_BY_REQUEST));
    EXPECT_EQ(player->GetState(), IPlayer::READY);
    EXPECT_NEAR(player->GetMediaTime(), 600, 70);
    EXPECT_EQ(stopTime->GetStopTime(), IStopTimeControl::RESET);
    EXPECT_EQ(listener.Events().back(), MPlayerEvent::STOPPED_BY_REQUEST);
    player->RemovePlayerListener(&listener);
}

TEST_F(MDirectShowPlayerTest, MissingAndBrokenFilesFailWithAStatus) {
    IPlayer* missing = Player(test::TempPath("absent.wav"));
    ASSERT_NE(missing, nullptr);
    const unsigned int status = missing->Initialize();
    EXPECT_EQ(status & 0xFF000000u, 0x03000000u);
    EXPECT_NE(status, 0u);
    EXPECT_EQ(missing->GetState(), IPlayer::UNINITIALIZED);
    EXPECT_EQ(missing->GetDuration(L"/nonexistent/tone.wav"), -1);

    // A WMA whose middle was overwritten: it fails to open, or playback ends
    // with an error or at the end; it never hangs.
    const auto file = test::MakeTestMedia(MediaFormat::WMA, 1000);
    std::string bytes = test::ReadFileBytes(file.path);
    for (std::size_t i = bytes.size() / 3; i < bytes.size() * 2 / 3; ++i) {
        bytes[i] = static_cast<char>(i * 7);
    }
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("broken.wma"), bytes));
    IPlayer* broken = Player(test::TempPath("broken.wma"));
    RecordingListener listener;
    broken->AddPlayerListener(&listener);
    if (broken->Initialize() == 0 && broken->Start() == 0) {
        EXPECT_TRUE(
            listener.WaitFor(MPlayerEvent::STOPPED_END_OF_MEDIA, MPlayerEvent::STOPPED_ERRORABORT));
        EXPECT_EQ(broken->GetState(), IPlayer::READY);
    }
    broken->RemovePlayerListener(&listener);

    // A file cut in the middle and one of noise under a known extension:
    // the same, never a hang; noise is not taken for media.
    const auto avi = test::MakeTestMedia(MediaFormat::AVI, 1500);
    const std::string aviBytes = test::ReadFileBytes(avi.path);
    ASSERT_TRUE(
        test::WriteFileBytes(test::TempPath("cut.avi"), aviBytes.substr(0, aviBytes.size() / 2)));
    std::string noise(20000, '\0');
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<char>((i * 2654435761u) >> 13);
    }
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("noise.mp3"), noise));
    IPlayer* cut = Player(test::TempPath("cut.avi"));
    RecordingListener cutListener;
    cut->AddPlayerListener(&cutListener);
    if (cut->Initialize() == 0 && cut->Start() == 0) {
        EXPECT_TRUE(cutListener.WaitFor(MPlayerEvent::STOPPED_END_OF_MEDIA,
                                        MPlayerEvent::STOPPED_ERRORABORT));
        EXPECT_EQ(cut->GetState(), IPlayer::READY);
    }
    cut->RemovePlayerListener(&cutListener);
    IPlayer* garbage = Player(test::TempPath("noise.mp3"));
    const unsigned int noiseStatus = garbage->Initialize();
    EXPECT_EQ(noiseStatus & 0xFF000000u, 0x03000000u) << std::hex << noiseStatus;
    EXPECT_EQ(garbage->GetState(), IPlayer::UNINITIALIZED);
}

TEST_F(MDirectShowPlayerTest, SwitchingSourcesKeepsTheOldOneOnFailure) {
    const auto mp3 = test::MakeTestMedia(MediaFormat::MP3, 1000);
    const auto wav = test::MakeTestMedia(MediaFormat::WAV, 2000);
    IPlayer* player = Player(mp3.path);
    ASSERT_EQ(player->Initialize(), 0u);
    EXPECT_EQ(player->GetDuration(Wide(wav.path).c_str()), wav.durationMs);
    EXPECT_NEAR(player->GetDuration(), mp3.durationMs, mp3.toleranceMs);

    ASSERT_EQ(player->SetDataSource(Source(wav.path)), 0u);
    EXPECT_NEAR(player->GetDuration(), wav.durationMs, wav.toleranceMs);
    EXPECT_NE(player->SetDataSource(Source(test::TempPath("absent.mp3"))), 0u);
    EXPECT_NEAR(player->GetDuration(), wav.durationMs, wav.toleranceMs);
    EXPECT_EQ(player->GetState(), IPlayer::READY);

    EXPECT_EQ(player->SetRate(2.0), 0u);
    EXPECT_EQ(player->GetRate(), 2.0);
    EXPECT_NE(player->SetRate(0.0), 0u);
    EXPECT_EQ(player->GetRate(), 2.0);
}

// The engine's thread ends playback at the end of the media while the test's
// thread starts and pauses around that moment. Whatever wins, the events
// must follow the transition table (a stop only from STARTED, a start only
// from READY), and a player left STARTED must still reach its end.
TEST_F(MDirectShowPlayerTest, StartAndPauseRacingTheEndKeepStateAndEventsConsistent) {
    const auto file = test::MakeTestMedia(MediaFormat::WAV, 1000);
    IPlayer* player = Player(file.path);
    RecordingListener listener;
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Initialize(), 0u);
    for (int round = 0; round < 64; ++round) {
        ASSERT_EQ(player->SetMediaTime(file.durationMs - round % 8), 0u);
        player->Start();
        std::this_thread::sleep_for(std::chrono::microseconds(round / 8 % 5 * 1000));
        player->Pause();
        ASSERT_EQ(player->SetMediaTime(file.durationMs - round % 3), 0u);
        player->Start();
        bool ended = false;
        for (int i = 0; i < 500 && !ended; ++i) {
            ended = player->GetState() == IPlayer::READY;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(ended) << "round " << round << ": STARTED at the end of the media";
    }
    // A seek back to the start just as the end arrives: an end read after
    // the seek must not stop the new playback.
    for (int round = 0; round < 32; ++round) {
        ASSERT_EQ(player->SetMediaTime(file.durationMs - round % 8), 0u);
        player->Start();
        std::this_thread::sleep_for(std::chrono::microseconds(round / 8 * 1000));
        ASSERT_EQ(player->SetMediaTime(0), 0u);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        player->Pause();
    }
    ASSERT_EQ(player->Deinitialize(), 0u);
    ASSERT_TRUE(listener.WaitFor(MPlayerEvent::DEINITIALIZED));

    signed char state = IPlayer::UNINITIALIZED;
    bool seekWhilePlaying = false;
    const auto events = listener.Events();
    for (std::size_t i = 0; i < events.size(); ++i) {
        const unsigned char e = events[i];
        signed char from = IPlayer::READY;
        signed char to = IPlayer::READY;
        if (e == MPlayerEvent::INITIALIZED) {
            from = IPlayer::UNINITIALIZED;
        } else if (e == MPlayerEvent::DEINITIALIZED) {
            to = IPlayer::UNINITIALIZED;
        } else if (e == MPlayerEvent::STARTED) {
            to = IPlayer::STARTED;
        } else if (e == MPlayerEvent::STOPPED_BY_REQUEST ||
                   e == MPlayerEvent::STOPPED_END_OF_MEDIA) {
            from = IPlayer::STARTED;
        } else if (e == MPlayerEvent::MEDIA_TIME_SET && state != IPlayer::UNINITIALIZED) {
            from = to = state;
        } else {
            FAIL() << "event " << int(e) << " at " << i;
        }
        ASSERT_EQ(state, from) << "event " << int(e) << " at " << i;
        ASSERT_FALSE(e == MPlayerEvent::STOPPED_END_OF_MEDIA && seekWhilePlaying)
            << "an end from before the seek at " << i - 1 << " stopped the new playback";
        seekWhilePlaying = e == MPlayerEvent::MEDIA_TIME_SET && state == IPlayer::STARTED;
        state = to;
    }
    EXPECT_EQ(state, IPlayer::UNINITIALIZED);
    player->RemovePlayerListener(&listener);
}

TEST_F(MDirectShowPlayerTest, FiftyPlayersLeaveNoThreadDescriptorOrMemoryBehind) {
    const auto file = test::MakeTestMedia(MediaFormat::WAV, 1000);
    auto cycle = [&] {
        IDataSource* source = m_manager.CreateDataSource(Wide(file.path));
        IPlayer* player = m_manager.CreatePlayer(source);
        RecordingListener listener;
        player->AddPlayerListener(&listener);
        ASSERT_EQ(player->Initialize(), 0u);
        ASSERT_EQ(player->Start(), 0u);
        ASSERT_TRUE(listener.WaitFor(MPlayerEvent::STARTED));
        m_driver->ReleasePlayer(player);
        m_driver->ReleaseDataSource(source);
    };
    for (int i = 0; i < 3; ++i) {
        cycle();
    }
    const int threads = CountEntries("/proc/self/task");
    const int fds = CountEntries("/proc/self/fd");
    const long rss = ResidentKb();
    for (int i = 0; i < 50; ++i) {
        cycle();
    }
    // GLib keeps a few idle pool threads for a while; a player that left
    // its engine or dispatcher thread behind would leave fifty.
    bool settled = false;
    for (int i = 0; i < 500 && !settled; ++i) {
        settled = CountEntries("/proc/self/task") <= threads + 2;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(settled) << CountEntries("/proc/self/task") << " threads, " << threads << " before";
    EXPECT_EQ(CountEntries("/proc/self/fd"), fds);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // A pipeline costs megabytes; fifty leaked ones would show.
    EXPECT_LT(ResidentKb() - rss, 8 * 1024) << "kB resident before: " << rss;
#else
    (void)rss;
#endif
}

}  // namespace
}  // namespace kiv::media
