#include "platform/MediaEngine.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"

namespace kiv::platform {
namespace {

using test::MediaFormat;
using Event = MediaEngine::Event;

// Events of the engine thread, in arrival order.
class EventLog {
public:
    void Attach(MediaEngine& engine) {
        engine.SetEventCallback([this](Event e) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(e);
            m_arrived.notify_all();
        });
    }
    // Waits for the next event; false if none came within `seconds`.
    bool Next(Event& event, int seconds = 15) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_arrived.wait_for(lock, std::chrono::seconds(seconds),
                                [this] { return !m_events.empty(); })) {
            return false;
        }
        event = m_events.front();
        m_events.pop_front();
        return true;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<Event> m_events;
};

class MediaEngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KIV_AUDIO_SINK", "discard", 1);
        setenv("KIV_VIDEO_SINK", "discard", 1);
    }
    void TearDown() override {
        unsetenv("KIV_AUDIO_SINK");
        unsetenv("KIV_VIDEO_SINK");
    }
};

class MediaEngineFormatTest : public MediaEngineTest,
                              public ::testing::WithParamInterface<MediaFormat> {};

TEST_P(MediaEngineFormatTest, OpensSeeksPausesAndReachesTheEnd) {
    const auto file = test::MakeTestMedia(GetParam(), 1500);
    ASSERT_FALSE(file.path.empty());
    ASSERT_GT(file.durationMs, 1000);
    if (GetParam() == MediaFormat::MP3) {
        // Its length comes from walking its frames: the tone's plus at most
        // three frames of encoder delay and padding.
        ASSERT_GE(file.durationMs, 1500);
        ASSERT_LE(file.durationMs, 1500 + 3 * 27);
    }
    auto engine = MediaEngine::Create();
    EventLog events;
    events.Attach(*engine);
    ASSERT_EQ(engine->Open(file.path), 0u);
    EXPECT_NEAR(engine->Duration(), file.durationMs, file.toleranceMs);
    EXPECT_EQ(engine->Position(), 0);
    EXPECT_TRUE(engine->HasAudio());
    EXPECT_EQ(engine->HasVideo(), GetParam() == MediaFormat::AVI);

    // Accurate seek while paused lands where asked.
    ASSERT_EQ(engine->Seek(700), 0u);
    EXPECT_NEAR(engine->Position(), 700, file.toleranceMs);

    ASSERT_EQ(engine->Play(), 0u);
    ASSERT_TRUE(test::Eventually([&] { return engine->Position() > 750; }));
    ASSERT_EQ(engine->Pause(), 0u);
    const int paused = engine->Position();
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_EQ(engine->Position(), paused);

    // A position past the end is taken as the end.
    ASSERT_EQ(engine->Seek(file.durationMs + 5000), 0u);
    ASSERT_EQ(engine->Seek(file.durationMs - 300), 0u);
    ASSERT_EQ(engine->Play(), 0u);
    Event event{};
    ASSERT_TRUE(events.Next(event));
    EXPECT_EQ(event, Event::END_OF_STREAM);

    // After the end, Play starts over from the beginning.
    ASSERT_EQ(engine->Play(), 0u);
    ASSERT_TRUE(test::Eventually([&] {
        const int p = engine->Position();
        return p >= 0 && p < 1000;
    }));
    ASSERT_EQ(engine->Stop(), 0u);
    EXPECT_NEAR(engine->Position(), 0, file.toleranceMs);
    engine->Close();
    EXPECT_FALSE(engine->IsOpen());
    EXPECT_EQ(engine->Duration(), -1);
}

INSTANTIATE_TEST_SUITE_P(Formats, MediaEngineFormatTest,
                         ::testing::Values(MediaFormat::MP3, MediaFormat::WAV, MediaFormat::WMA,
                                           MediaFormat::AVI),
                         [](const auto& p) { return test::MediaExtension(p.param); });

TEST_F(MediaEngineTest, MissingGarbageAndTruncatedFilesFailCleanly) {
    auto engine = MediaEngine::Create();
    EXPECT_EQ(engine->Open(test::TempPath("absent.mp3")), MediaStatus::NOT_FOUND);
    EXPECT_EQ(engine->Open(test::TestRoot()), MediaStatus::NOT_FOUND);
    EXPECT_FALSE(engine->IsOpen());
    EXPECT_EQ(engine->Play(), MediaStatus::INVALID_ARGUMENT);

    std::string garbage(64 * 1024, '\0');
    unsigned int seed = 12345;
    for (auto& c : garbage) {
        seed = seed * 1103515245u + 12345u;
        c = static_cast<char>(seed >> 24);
    }
    // Under either extension: MPEG audio is found by a lenient search for
    // frame headers, which must not take noise for frames.
    for (const std::string name : {"garbage.wma", "garbage.mp3"}) {
        ASSERT_TRUE(test::WriteFileBytes(test::TempPath(name), garbage));
        EXPECT_EQ(engine->Open(test::TempPath(name)), MediaStatus::UNKNOWN_FORMAT) << name;
        EXPECT_FALSE(engine->IsOpen());
    }

    // A file cut in the middle plays what it has, or fails; it never hangs.
    for (MediaFormat format : {MediaFormat::MP3, MediaFormat::WMA, MediaFormat::AVI}) {
        const auto file = test::MakeTestMedia(format, 1000);
        const std::string whole = test::ReadFileBytes(file.path);
        const std::string cut = test::TempPath(std::string("cut.") + test::MediaExtension(format));
        ASSERT_TRUE(test::WriteFileBytes(cut, whole.substr(0, whole.size() / 2)));
        EventLog events;
        events.Attach(*engine);
        if (engine->Open(cut) == 0 && engine->Play() == 0) {
            Event event{};
            EXPECT_TRUE(events.Next(event)) << test::MediaExtension(format);
        }
        engine->Close();
    }
}

TEST_F(MediaEngineTest, AFileWhoseDecoderIsMissingSaysSo) {
    const auto file = test::MakeTestMedia(MediaFormat::WMA, 1000);
    // With its only decoder ranked out of automatic use, the WMA cannot be
    // decoded. A fresh process reads the ranking when GStreamer starts.
    setenv("GST_PLUGIN_FEATURE_RANK", "avdec_wmav2:NONE", 1);
    const std::string out = test::TempPath("status.txt");
    const int exit = test::RunProcess(
        "/bin/sh",
        {"-c", "exec \"$0\" \"$1\" >\"$2\"", test::HelperPath("kiv_media_open"), file.path, out});
    unsetenv("GST_PLUGIN_FEATURE_RANK");
    ASSERT_EQ(exit, 0);
    EXPECT_EQ(test::ReadFileBytes(out), "03000004\n");
}

TEST_F(MediaEngineTest, StopTimeAndRate) {
    const auto file = test::MakeTestMedia(MediaFormat::WAV, 2000);
    auto engine = MediaEngine::Create();
    EventLog events;
    events.Attach(*engine);
    ASSERT_EQ(engine->Open(file.path), 0u);
    EXPECT_EQ(engine->SetRate(0.0), MediaStatus::INVALID_ARGUMENT);
    ASSERT_EQ(engine->SetRate(2.0), 0u);
    EXPECT_EQ(engine->Rate(), 2.0);

    ASSERT_EQ(engine->SetStopTime(600), 0u);
    ASSERT_EQ(engine->Play(), 0u);
    Event event{};
    ASSERT_TRUE(events.Next(event));
    EXPECT_EQ(event, Event::STOP_TIME);
    EXPECT_NEAR(engine->Position(), 600, 20);

    // The stop time is used once: playing on reaches the end.
    ASSERT_EQ(engine->Play(), 0u);
    ASSERT_TRUE(events.Next(event));
    EXPECT_EQ(event, Event::END_OF_STREAM);
}

TEST_F(MediaEngineTest, VideoSnapshotAndPictureLevels) {
    auto engine = MediaEngine::Create();
    ASSERT_EQ(engine->Open(test::MakeTestMedia(MediaFormat::MP3, 1000).path), 0u);
    std::vector<unsigned char> rgb;
    int width = 0;
    int height = 0;
    EXPECT_EQ(engine->Snapshot(rgb, width, height), MediaStatus::NO_VIDEO);
    EXPECT_EQ(engine->PictureLevel(MediaEngine::Picture::BRIGHTNESS), -1);
    EXPECT_FALSE(engine->VideoSize(width, height));

    ASSERT_EQ(engine->Open(test::MakeTestMedia(MediaFormat::AVI, 1000).path), 0u);
    ASSERT_TRUE(engine->VideoSize(width, height));
    EXPECT_EQ(width, 160);
    EXPECT_EQ(height, 120);
    ASSERT_EQ(engine->Snapshot(rgb, width, height), 0u);
    ASSERT_EQ(rgb.size(), 160u * 120u * 3u);
    auto mean = [&](int channel) {
        long sum = 0;
        for (std::size_t i = static_cast<std::size_t>(channel); i < rgb.size(); i += 3) {
            sum += rgb[i];
        }
        return sum / (160 * 120);
    };
    // The picture is red (JPEG moves the values a little).
    EXPECT_GT(mean(0), 200);
    EXPECT_LT(mean(1), 60);
    EXPECT_LT(mean(2), 60);

    for (auto level : {MediaEngine::Picture::BRIGHTNESS, MediaEngine::Picture::CONTRAST,
                       MediaEngine::Picture::SATURATION}) {
        EXPECT_EQ(engine->PictureLevel(level), 50);
    }
    EXPECT_EQ(engine->SetPictureLevel(MediaEngine::Picture::BRIGHTNESS, 101),
              MediaStatus::INVALID_ARGUMENT);
    ASSERT_EQ(engine->SetPictureLevel(MediaEngine::Picture::SATURATION, 0), 0u);
    EXPECT_EQ(engine->PictureLevel(MediaEngine::Picture::SATURATION), 0);
    // Without saturation the red turns grey: the channels come together.
    ASSERT_EQ(engine->Seek(100), 0u);
    ASSERT_EQ(engine->Snapshot(rgb, width, height), 0u);
    EXPECT_LT(mean(0) - mean(1), 30);
}

}  // namespace
}  // namespace kiv::platform
