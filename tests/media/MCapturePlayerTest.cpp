// Recording from "capture://audio" with the test tone as the input (no
// sound card needed), and playing the recording back in the same library.
#include "media/MCapturePlayer.h"

#include <gtest/gtest.h>
#include <kiv/media/IRecordControl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "BuiltInPlayerFixture.h"
#include "RecordingPlayer.h"
#include "support/KivTestEnvironment.h"

namespace kiv::media {
namespace {

using Events = std::vector<unsigned char>;
using text::FromUtf8;

std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

std::uint32_t Le(const std::string& bytes, std::size_t at, int size) {
    std::uint32_t value = 0;
    for (int i = size - 1; i >= 0; --i) {
        value = (value << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
    }
    return value;
}

// The types of the events that arrived, once `count` have.
Events Types(test::RecordingListener& listener, std::size_t count) {
    listener.WaitFor(count);
    return listener.Types();
}

class MCapturePlayerTest : public BuiltInPlayerFixture {
protected:
    void SetUp() override {
        BuiltInPlayerFixture::SetUp();
        setenv("KIV_AUDIO_SOURCE", "test", 1);
        m_dir = test::TempPath("recordings");
        mkdir(m_dir.c_str(), 0700);
    }
    void TearDown() override {
        BuiltInPlayerFixture::TearDown();
        unsetenv("KIV_AUDIO_SOURCE");
    }
    IRecordControl* Recorder(IPlayer* player) {
        return static_cast<IRecordControl*>(player->GetControl(IRecordControl::DEFAULT_NAME()));
    }
    // Waits until the player has captured `ms` more media time; false after
    // 20 s without it.
    static bool Capture(IPlayer* player, int ms) {
        const int until = player->GetMediaTime() + ms;
        return test::Eventually([&] { return player->GetMediaTime() >= until; });
    }

    std::string m_dir;
};

TEST_F(MCapturePlayerTest, RecordedToneIsCommittedAsWavAndPlaysBackWithItsLength) {
    IPlayer* player = Player(text::ToUtf8(MCapturePlayer::AUDIO_LOCATOR));
    ASSERT_NE(player, nullptr) << "capture://audio needs no registered extension";
    test::RecordingListener listener;
    player->AddPlayerListener(&listener);
    EXPECT_EQ(Recorder(player), nullptr);
    ASSERT_EQ(player->Initialize(), 0u);
    IRecordControl* recorder = Recorder(player);
    ASSERT_NE(recorder, nullptr);
    EXPECT_EQ(recorder->GetContentType(), "audio/x-wav");
    EXPECT_EQ(player->GetDuration(), IPlayer::UNKNOWN_TIME);
    EXPECT_NE(recorder->StartRecord(), 0u) << "no location yet";

    const std::string path = m_dir + "/take.wav";
    ASSERT_EQ(recorder->SetRecordLocation(FromUtf8(path)), 0u);
    ASSERT_EQ(player->Start(), 0u);
    ASSERT_EQ(recorder->StartRecord(), 0u);
    EXPECT_NE(recorder->SetRecordLocation(FromUtf8(m_dir + "/other.wav")), 0u);
    ASSERT_TRUE(Capture(player, 1000));
    // Stopping the player pauses the recording; what is captured meanwhile
    // is not recorded.
    ASSERT_EQ(player->Stop(), 0u);
    ASSERT_EQ(player->Start(), 0u);
    ASSERT_EQ(recorder->StopRecord(), 0u);
    ASSERT_TRUE(Capture(player, 600));
    ASSERT_EQ(recorder->StartRecord(), 0u);
    ASSERT_TRUE(Capture(player, 1000));
    EXPECT_EQ(Entries(m_dir), std::vector<std::string>{"take.wav.part"});
    ASSERT_EQ(recorder->Commit(), 0u);
    const int captured = player->GetMediaTime();
    ASSERT_EQ(player->Stop(), 0u);
    EXPECT_EQ(
        Types(listener, 11),
        (Events{MPlayerEvent::INITIALIZED, MPlayerEvent::STARTED, MPlayerEvent::RECORD_STARTED,
                MPlayerEvent::RECORD_STOPPED, MPlayerEvent::STOPPED_BY_REQUEST,
                MPlayerEvent::STARTED, MPlayerEvent::RECORD_STARTED, MPlayerEvent::RECORD_STOPPED,
                MPlayerEvent::RECORD_STARTED, MPlayerEvent::RECORD_STOPPED,
                MPlayerEvent::STOPPED_BY_REQUEST}));
    player->RemovePlayerListener(&listener);
    EXPECT_EQ(Entries(m_dir), std::vector<std::string>{"take.wav"});

    // A 16-bit PCM file whose sizes agree with its length, holding sound.
    const std::string bytes = test::ReadFileBytes(path);
    ASSERT_GT(bytes.size(), 44u);
    EXPECT_EQ(bytes.compare(0, 4, "RIFF"), 0);
    EXPECT_EQ(bytes.compare(8, 8, "WAVEfmt "), 0);
    EXPECT_EQ(Le(bytes, 4, 4), bytes.size() - 8);
    EXPECT_EQ(Le(bytes, 20, 2), 1u);
    EXPECT_EQ(Le(bytes, 34, 2), 16u);
    EXPECT_EQ(bytes.compare(36, 4, "data"), 0);
    const std::uint32_t dataBytes = Le(bytes, 40, 4);
    EXPECT_EQ(dataBytes, bytes.size() - 44);
    const std::uint32_t channels = Le(bytes, 22, 2);
    const std::uint32_t byteRate = Le(bytes, 28, 4);
    ASSERT_EQ(byteRate, Le(bytes, 24, 4) * channels * 2);
    int loudest = 0;
    for (std::size_t i = 44; i + 1 < bytes.size(); i += 2) {
        loudest = std::max(loudest,
                           std::abs(static_cast<int>(static_cast<std::int16_t>(Le(bytes, i, 2)))));
    }
    EXPECT_GT(loudest, 8000) << "the test tone is loud, not silence";
    const int recordedMs = static_cast<int>(std::uint64_t{dataBytes} * 1000 / byteRate);
    // Two stretches of at least a second each, without the 600 ms captured
    // between them (less a block that may have been on its way).
    EXPECT_GE(recordedMs, 1900);
    EXPECT_LE(recordedMs, captured - 550);

    IPlayer* playback = Player(path);
    ASSERT_NE(playback, nullptr);
    test::RecordingListener playbackListener;
    playback->AddPlayerListener(&playbackListener);
    ASSERT_EQ(playback->Initialize(), 0u);
    EXPECT_NEAR(playback->GetDuration(), recordedMs, 2);
    ASSERT_EQ(playback->SetMediaTime(recordedMs - 200), 0u);
    ASSERT_EQ(playback->Start(), 0u);
    EXPECT_EQ(Types(playbackListener, 4).back(), MPlayerEvent::STOPPED_END_OF_MEDIA);
    playback->RemovePlayerListener(&playbackListener);
}

TEST_F(MCapturePlayerTest, SizeLimitCommitsWhatFitsAndEndsTheRecording) {
    IPlayer* player = Player(text::ToUtf8(MCapturePlayer::AUDIO_LOCATOR));
    ASSERT_NE(player, nullptr);
    test::RecordingListener listener;
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Initialize(), 0u);
    IRecordControl* recorder = Recorder(player);
    ASSERT_NE(recorder, nullptr);
    EXPECT_EQ(recorder->SetRecordSizeLimit(20000), 20000);
    EXPECT_EQ(recorder->SetRecordSizeLimit(0), 20000);
    EXPECT_EQ(recorder->SetRecordSizeLimit(10), 44);
    EXPECT_EQ(recorder->SetRecordSizeLimit(-1), -1);
    EXPECT_EQ(recorder->SetRecordSizeLimit(20000), 20000);

    const std::string path = m_dir + "/limited.wav";
    ASSERT_EQ(recorder->SetRecordLocation(FromUtf8(path)), 0u);
    ASSERT_EQ(recorder->StartRecord(), 0u);  // waits for Start
    ASSERT_EQ(player->Start(), 0u);
    const auto events = Types(listener, 4);
    EXPECT_EQ(events, (Events{MPlayerEvent::INITIALIZED, MPlayerEvent::STARTED,
                              MPlayerEvent::RECORD_STARTED, MPlayerEvent::RECORD_STOPPED}));
    EXPECT_EQ(player->GetState(), IPlayer::STARTED) << "the limit stops the recording only";
    EXPECT_EQ(Entries(m_dir), std::vector<std::string>{"limited.wav"});
    const std::string bytes = test::ReadFileBytes(path);
    EXPECT_LE(bytes.size(), 20000u);
    EXPECT_GT(bytes.size(), 20000u - 4096u) << "it stops at the limit, not before";
    EXPECT_EQ(Le(bytes, 40, 4), bytes.size() - 44);
    EXPECT_NE(recorder->StartRecord(), 0u) << "a committed file is not recorded into again";
    player->RemovePlayerListener(&listener);
}

TEST_F(MCapturePlayerTest, RecordingsNotCommittedLeaveNoFile) {
    IPlayer* player = Player(text::ToUtf8(MCapturePlayer::AUDIO_LOCATOR));
    ASSERT_NE(player, nullptr);
    ASSERT_EQ(player->Initialize(), 0u);
    IRecordControl* recorder = Recorder(player);
    ASSERT_NE(recorder, nullptr);
    ASSERT_EQ(player->Start(), 0u);

    // Reset discards, and a new location may then be set.
    ASSERT_EQ(recorder->SetRecordLocation(FromUtf8(m_dir + "/first.wav")), 0u);
    ASSERT_EQ(recorder->StartRecord(), 0u);
    ASSERT_TRUE(Capture(player, 200));
    recorder->Reset();
    EXPECT_TRUE(Entries(m_dir).empty());

    // Stopped and closed without Commit: nothing stays either.
    ASSERT_EQ(recorder->SetRecordLocation(FromUtf8(m_dir + "/second.wav")), 0u);
    ASSERT_EQ(recorder->StartRecord(), 0u);
    ASSERT_TRUE(Capture(player, 200));
    ASSERT_EQ(recorder->StopRecord(), 0u);
    EXPECT_EQ(player->Close(), 0u);
    EXPECT_EQ(player->GetState(), IPlayer::UNINITIALIZED);
    EXPECT_TRUE(Entries(m_dir).empty());

    // A location that cannot be written, and an input that does not exist.
    ASSERT_EQ(player->Initialize(), 0u);
    EXPECT_NE(Recorder(player)->SetRecordLocation(FromUtf8(m_dir + "/missing/dir/x.wav")), 0u);
    IPlayer* video = Player("capture://video");
    ASSERT_NE(video, nullptr);
    EXPECT_NE(video->Initialize(), 0u);
    EXPECT_EQ(video->GetState(), IPlayer::UNINITIALIZED);
}

TEST_F(MCapturePlayerTest, AnInputThatFailsOrEndsStopsThePlayerAndStartOpensItAgain) {
    // Five blocks, then an error.
    setenv("KIV_AUDIO_SOURCE", "audiotestsrc is-live=true ! identity error-after=5", 1);
    IPlayer* failing = Player(text::ToUtf8(MCapturePlayer::AUDIO_LOCATOR));
    ASSERT_NE(failing, nullptr);
    test::RecordingListener listener;
    failing->AddPlayerListener(&listener);
    ASSERT_EQ(failing->Initialize(), 0u);
    IRecordControl* recorder = Recorder(failing);
    ASSERT_EQ(recorder->SetRecordLocation(FromUtf8(m_dir + "/broken.wav")), 0u);
    ASSERT_EQ(recorder->StartRecord(), 0u);
    ASSERT_EQ(failing->Start(), 0u);
    const Events once{MPlayerEvent::INITIALIZED, MPlayerEvent::STARTED,
                      MPlayerEvent::RECORD_STARTED, MPlayerEvent::RECORD_STOPPED,
                      MPlayerEvent::STOPPED_ERRORABORT};
    EXPECT_EQ(Types(listener, 5), once);
    EXPECT_EQ(failing->GetState(), IPlayer::READY);
    // The recording waits in the same file and resumes with the next Start.
    ASSERT_EQ(failing->Start(), 0u);
    Events twice = once;
    twice.insert(twice.end(), once.begin() + 1, once.end());
    EXPECT_EQ(Types(listener, 9), twice);
    failing->RemovePlayerListener(&listener);
    ASSERT_EQ(recorder->Commit(), 0u);
    const std::string bytes = test::ReadFileBytes(m_dir + "/broken.wav");
    ASSERT_GT(bytes.size(), 44u);
    EXPECT_EQ(Le(bytes, 40, 4), bytes.size() - 44);

    setenv("KIV_AUDIO_SOURCE", "audiotestsrc is-live=true num-buffers=5", 1);
    IPlayer* ending = Player(text::ToUtf8(MCapturePlayer::AUDIO_LOCATOR));
    test::RecordingListener endListener;
    ending->AddPlayerListener(&endListener);
    ASSERT_EQ(ending->Initialize(), 0u);
    ASSERT_EQ(ending->Start(), 0u);
    EXPECT_EQ(Types(endListener, 3).back(), MPlayerEvent::STOPPED_END_OF_MEDIA);
    ending->RemovePlayerListener(&endListener);
}

}  // namespace
}  // namespace kiv::media
