// The built-in player on real files, reached as an application reaches it:
// through MPlayerManager and the "ms.directshow" driver.
#include "media/MDirectShowPlayer.h"

#include <gtest/gtest.h>
#include <kiv/media/IBrightnessControl.h>
#include <kiv/media/IStopTimeControl.h>
#include <kiv/media/IVideoControl.h>
#include <kiv/media/IVolumeControl.h>
#include <kiv/media/MPlayerEvent.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "BuiltInPlayerFixture.h"
#include "RecordingPlayer.h"
#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"
#include "support/ThreadState.h"

namespace kiv::media {
namespace {

using test::MediaFormat;
using Events = std::vector<unsigned char>;

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

using MDirectShowPlayerTest = BuiltInPlayerFixture;

// An MP3 gets the audio controls only, and only once initialized; an AVI
// gets the video ones too, and stops at a stop time.
TEST_F(MDirectShowPlayerTest, ControlsFollowTheStreamsAndTheStopTimeEndsPlayback) {
    const auto mp3 = test::MakeTestMedia(MediaFormat::MP3, 1500);
    IPlayer* player = Player(mp3.path);
    ASSERT_NE(player, nullptr);
    EXPECT_EQ(player->GetControl(IVolumeControl::DEFAULT_NAME()), nullptr);
    ASSERT_EQ(player->Initialize(), 0u);
    EXPECT_FALSE(player->HasVideo());
    EXPECT_NE(player->GetControl(IStopTimeControl::DEFAULT_NAME()), nullptr);
    EXPECT_EQ(player->GetControl(IVideoControl::DEFAULT_NAME()), nullptr);
    EXPECT_EQ(player->GetControl(IBrightnessControl::DEFAULT_NAME()), nullptr);
    EXPECT_FALSE(player->StopVideo());
    auto* volume = static_cast<IVolumeControl*>(player->GetControl("VolumeControl"));
    ASSERT_NE(volume, nullptr);
    EXPECT_TRUE(player->SetAudioVolume(40));
    EXPECT_EQ(volume->GetLevel(), 40);
    EXPECT_EQ(volume->SetLevel(150), 100);
    EXPECT_EQ(player->GetAudioVolume(), 100);

    const auto avi = test::MakeTestMedia(MediaFormat::AVI, 1500);
    player = Player(avi.path);
    test::RecordingListener listener;
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
    ASSERT_TRUE(listener.WaitForType(MPlayerEvent::STOPPED_BY_REQUEST));
    EXPECT_EQ(player->GetState(), IPlayer::READY);
    EXPECT_NEAR(player->GetMediaTime(), 600, 70);
    EXPECT_EQ(stopTime->GetStopTime(), IStopTimeControl::RESET);
    EXPECT_EQ(listener.Types().back(), MPlayerEvent::STOPPED_BY_REQUEST);
    player->RemovePlayerListener(&listener);
}

// Each generated format, through the whole life of a playback: its length
// within one frame or packet, an accurate seek, a pause (that it holds the
// position is the engine's own test), the end of the media told on the engine's thread, and a Close
// that stops a playback started again and deinitializes.
TEST_F(MDirectShowPlayerTest, EveryFormatSeeksPausesPlaysToTheEndAndCloses) {
    for (MediaFormat format :
         {MediaFormat::MP3, MediaFormat::WAV, MediaFormat::WMA, MediaFormat::AVI}) {
        SCOPED_TRACE(test::MediaExtension(format));
        const auto file = test::MakeTestMedia(format, 1500);
        IPlayer* player = Player(file.path);
        ASSERT_NE(player, nullptr);
        test::RecordingListener listener;
        player->AddPlayerListener(&listener);
        ASSERT_EQ(player->Initialize(), 0u);
        EXPECT_EQ(player->GetState(), IPlayer::READY);
        EXPECT_NEAR(player->GetDuration(), file.durationMs, file.toleranceMs);
        const int from = file.durationMs - 500;
        ASSERT_EQ(player->SetMediaTime(from), 0u);
        EXPECT_NEAR(player->GetMediaTime(), from, file.toleranceMs);
        ASSERT_EQ(player->Start(), 0u);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        ASSERT_EQ(player->Pause(), 0u);
        EXPECT_EQ(player->GetState(), IPlayer::READY);
        EXPECT_GT(player->GetMediaTime(), from);
        ASSERT_EQ(player->Start(), 0u);
        ASSERT_TRUE(listener.WaitForType(MPlayerEvent::STOPPED_END_OF_MEDIA));
        EXPECT_EQ(player->GetState(), IPlayer::READY);
        EXPECT_EQ(listener.Types(),
                  (Events{MPlayerEvent::INITIALIZED, MPlayerEvent::MEDIA_TIME_SET,
                          MPlayerEvent::STARTED, MPlayerEvent::STOPPED_BY_REQUEST,
                          MPlayerEvent::STARTED, MPlayerEvent::STOPPED_END_OF_MEDIA}));
        for (const auto& delivery : listener.WaitFor(0)) {
            EXPECT_NE(delivery.thread, std::this_thread::get_id());
        }

        ASSERT_EQ(player->Start(), 0u);
        EXPECT_EQ(player->Close(), 0u);
        EXPECT_EQ(player->GetState(), IPlayer::UNINITIALIZED);
        ASSERT_TRUE(listener.WaitForType(MPlayerEvent::DEINITIALIZED));
        const auto events = listener.Types();
        EXPECT_EQ(events[events.size() - 2], MPlayerEvent::STOPPED_BY_REQUEST);
        player->RemovePlayerListener(&listener);
    }
}

TEST_F(MDirectShowPlayerTest, MissingAndBrokenFilesFailWithAStatus) {
    IPlayer* missing = Player(test::TempPath("absent.wav"));
    ASSERT_NE(missing, nullptr);
    const unsigned int status = missing->Initialize();
    EXPECT_EQ(status & 0xFF000000u, 0x03000000u);
    EXPECT_NE(status, 0u);
    EXPECT_EQ(missing->GetState(), IPlayer::UNINITIALIZED);
    EXPECT_EQ(missing->GetDuration(L"/nonexistent/tone.wav"), -1);

    // A WMA whose middle was overwritten and an AVI cut in the middle: they
    // fail to open, or playback ends with an error or at the end; never a hang.
    std::string wma = test::ReadFileBytes(test::MakeTestMedia(MediaFormat::WMA, 1000).path);
    for (std::size_t i = wma.size() / 3; i < wma.size() * 2 / 3; ++i) {
        wma[i] = static_cast<char>(i * 7);
    }
    const std::string avi = test::ReadFileBytes(test::MakeTestMedia(MediaFormat::AVI, 1500).path);
    for (const auto& [name, bytes] :
         {std::pair{"broken.wma", wma}, std::pair{"cut.avi", avi.substr(0, avi.size() / 2)}}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(test::WriteFileBytes(test::TempPath(name), bytes));
        IPlayer* broken = Player(test::TempPath(name));
        test::RecordingListener listener;
        broken->AddPlayerListener(&listener);
        if (broken->Initialize() == 0 && broken->Start() == 0) {
            EXPECT_TRUE(listener.WaitForType(MPlayerEvent::STOPPED_END_OF_MEDIA,
                                             MPlayerEvent::STOPPED_ERRORABORT));
            EXPECT_EQ(broken->GetState(), IPlayer::READY);
        }
        broken->RemovePlayerListener(&listener);
    }
}

TEST_F(MDirectShowPlayerTest, SwitchingSourcesKeepsTheOldOneOnFailure) {
    const auto mp3 = test::MakeTestMedia(MediaFormat::MP3, 1000);
    const auto wav = test::MakeTestMedia(MediaFormat::WAV, 2000);
    IPlayer* player = Player(mp3.path);
    ASSERT_EQ(player->Initialize(), 0u);
    EXPECT_EQ(player->GetDuration(text::FromUtf8(wav.path).c_str()), wav.durationMs);
    EXPECT_NEAR(player->GetDuration(), mp3.durationMs, mp3.toleranceMs);

    ASSERT_EQ(player->SetDataSource(Source(wav.path)), 0u);
    EXPECT_NEAR(player->GetDuration(), wav.durationMs, wav.toleranceMs);
    EXPECT_NE(player->SetDataSource(Source(test::TempPath("absent.mp3"))), 0u);
    EXPECT_NEAR(player->GetDuration(), wav.durationMs, wav.toleranceMs);
    EXPECT_EQ(player->GetState(), IPlayer::READY);
}

// The engine's thread ends playback at the end of the media while the test's
// thread starts and pauses around that moment. Whatever wins, the events
// must follow the transition table (a stop only from STARTED, a start only
// from READY), and a player left STARTED must still reach its end.
TEST_F(MDirectShowPlayerTest, StartAndPauseRacingTheEndKeepStateAndEventsConsistent) {
    const auto file = test::MakeTestMedia(MediaFormat::WAV, 1000);
    IPlayer* player = Player(file.path);
    test::RecordingListener listener;
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
    ASSERT_TRUE(listener.WaitForType(MPlayerEvent::DEINITIALIZED));

    signed char state = IPlayer::UNINITIALIZED;
    bool seekWhilePlaying = false;
    const auto events = listener.Types();
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
        IDataSource* source = m_manager.CreateDataSource(text::FromUtf8(file.path));
        IPlayer* player = m_manager.CreatePlayer(source);
        test::RecordingListener listener;
        player->AddPlayerListener(&listener);
        ASSERT_EQ(player->Initialize(), 0u);
        ASSERT_EQ(player->Start(), 0u);
        ASSERT_TRUE(listener.WaitForType(MPlayerEvent::STARTED));
        m_driver->ReleasePlayer(player);
        m_driver->ReleaseDataSource(source);
    };
    const auto fdCount = [] {
        const std::filesystem::directory_iterator fds("/proc/self/fd");
        return std::distance(begin(fds), end(fds));
    };
    for (int i = 0; i < 3; ++i) {
        cycle();
    }
    const int threads = test::ThreadCount();
    const auto fds = fdCount();
    const long rss = ResidentKb();
    for (int i = 0; i < 50; ++i) {
        cycle();
    }
    // GLib keeps a few idle pool threads for a while; a player that left
    // its engine or dispatcher thread behind would leave fifty.
    EXPECT_TRUE(test::Eventually([&] { return test::ThreadCount() <= threads + 2; }, 5000))
        << test::ThreadCount() << " threads, " << threads << " before";
    EXPECT_EQ(fdCount(), fds);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // A pipeline costs megabytes; fifty leaked ones would show.
    EXPECT_LT(ResidentKb() - rss, 8 * 1024) << "kB resident before: " << rss;
#else
    (void)rss;
#endif
}

}  // namespace
}  // namespace kiv::media
