// Frame positioning and audio stream choice of the built-in player, on
// files the test makes: the AVI of the test media (15 frames/s) and a
// Matroska file with two audio tracks in two languages.
#include "media/MDirectShowStreamControls.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "BuiltInPlayerFixture.h"
#include "RecordingPlayer.h"
#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"

namespace kiv::media {
namespace {

// Two Vorbis tracks of one second, English at 440 Hz then German at 880 Hz,
// and French subtitles.
std::string MakeTwoLanguageFile() {
    const std::string subtitles = test::TempPath("two.srt");
    const std::string path = test::TempPath("two.mkv");
    if (!test::WriteFileBytes(subtitles, "1\n00:00:00,000 --> 00:00:00,900\nBonjour\n\n")) {
        return {};
    }
    std::string command = "gst-launch-1.0 -q matroskamux name=m ! filesink location=" + path +
                          " filesrc location=" + subtitles +
                          " ! subparse ! taginject tags=language-code=fra ! m.";
    for (const char* track : {"freq=440 ! audio/x-raw,rate=22050,channels=1 ! vorbisenc ! "
                              "taginject tags=language-code=eng",
                              "freq=880 ! audio/x-raw,rate=22050,channels=1 ! vorbisenc ! "
                              "taginject tags=language-code=deu"}) {
        command +=
            std::string(" audiotestsrc num-buffers=10 samplesperbuffer=2205 ") + track + " ! m.";
    }
    return test::RunProcess("/bin/sh", {"-c", command}) == 0 ? path : std::string();
}

class MDirectShowStreamControlsTest : public BuiltInPlayerFixture {
protected:
    // An initialized player of `path`; null if it does not open.
    IPlayer* Open(const std::string& path) {
        IPlayer* player = Player(path);
        return player != nullptr && player->Initialize() == 0 ? player : nullptr;
    }
};

TEST_F(MDirectShowStreamControlsTest, FramesMapToTimesAndSeekWithinTheVideo) {
    const auto file = test::MakeTestMedia(test::MediaFormat::AVI, 2000);  // frames 0..29
    ASSERT_FALSE(file.path.empty());
    IPlayer* player = Open(file.path);
    ASSERT_NE(player, nullptr);
    auto* frames = static_cast<IFrameControl*>(player->GetControl(IFrameControl::DEFAULT_NAME()));
    ASSERT_NE(frames, nullptr);

    for (const auto& [frame, ms] :
         {std::pair{0, 0}, {1, 67}, {15, 1000}, {29, 1934}, {30, -1}, {-1, -1}}) {
        EXPECT_EQ(frames->MapFrameToTime(frame), ms) << "frame " << frame;
    }
    for (const auto& [ms, frame] :
         {std::pair{66, 0}, {67, 1}, {999, 14}, {1000, 15}, {-5, -1}, {60000, -1}}) {
        EXPECT_EQ(frames->MapTimeToFrame(ms), frame) << ms << " ms";
    }

    EXPECT_EQ(frames->Seek(10), 10);
    EXPECT_EQ(player->GetMediaTime(), 667);
    EXPECT_EQ(frames->Skip(5), 5);
    EXPECT_EQ(player->GetMediaTime(), 1000);
    EXPECT_EQ(frames->Skip(-3), -3);
    EXPECT_EQ(frames->MapTimeToFrame(player->GetMediaTime()), 12);
    // Past either end the first or last frame is taken.
    EXPECT_EQ(frames->Skip(-100), -12);
    EXPECT_EQ(frames->Seek(1000), 29);
    EXPECT_EQ(frames->Seek(-4), 0);

    // Sound only: no frames.
    const auto wav = test::MakeTestMedia(test::MediaFormat::WAV, 1000);
    ASSERT_EQ(player->SetDataSource(Source(wav.path)), 0u);
    EXPECT_EQ(player->GetControl(IFrameControl::DEFAULT_NAME()), nullptr);
}

TEST_F(MDirectShowStreamControlsTest, StreamsCarryTheirLanguagesAndSwitchDuringPlayback) {
    const std::string path = MakeTwoLanguageFile();
    ASSERT_FALSE(path.empty());
    IPlayer* player = Open(path);
    ASSERT_NE(player, nullptr);
    EXPECT_EQ(player->GetControl(IFrameControl::DEFAULT_NAME()), nullptr);
    auto* select =
        static_cast<IMediaSelectControl*>(player->GetControl(IMediaSelectControl::DEFAULT_NAME()));
    ASSERT_NE(select, nullptr);

    ASSERT_EQ(select->GetStreamCount(), 3);
    EXPECT_EQ(select->GetStreamType(0), IMediaSelectControl::AUDIO_STREAM);
    EXPECT_EQ(select->GetStreamType(1), IMediaSelectControl::AUDIO_STREAM);
    EXPECT_EQ(select->GetStreamType(2), IMediaSelectControl::SUBTITLE_STREAM);
    EXPECT_EQ(select->GetStreamType(3), -1);
    // The demuxer may give the codes as written or in their two-letter form.
    EXPECT_EQ(select->GetStreamLanguage(0).substr(0, 2), "en");
    EXPECT_EQ(select->GetStreamLanguage(1).substr(0, 2), "de");
    EXPECT_EQ(select->GetStreamLanguage(2).substr(0, 2), "fr");
    EXPECT_NE(select->GetStreamName(1).find(text::FromUtf8(select->GetStreamLanguage(1))),
              std::wstring::npos);
    EXPECT_EQ(select->GetStreamName(3), L"");
    EXPECT_EQ(select->GetStreamLanguage(-1), "");
    EXPECT_EQ(select->GetSelectedStream(), 0);
    EXPECT_EQ(select->GetSelectedSubtitle(), -1);

    test::RecordingListener listener;
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Start(), 0u);
    EXPECT_EQ(select->SelectStream(1), 0u);
    EXPECT_EQ(select->GetSelectedStream(), 1);
    EXPECT_EQ(select->SelectStream(2), 0u);
    EXPECT_EQ(select->GetSelectedSubtitle(), 2);
    EXPECT_EQ(select->GetSelectedStream(), 1) << "subtitles leave the sound as it is";
    EXPECT_NE(select->SelectStream(3), 0u);
    select->HideSubtitles();
    EXPECT_EQ(select->GetSelectedSubtitle(), -1);
    EXPECT_EQ(select->SelectStream(2), 0u);
    // With subtitles shown the media still plays to its end.
    const auto events = listener.WaitFor(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events.back().type, MPlayerEvent::STOPPED_END_OF_MEDIA);
    player->RemovePlayerListener(&listener);
    select->Reset();
    EXPECT_EQ(select->GetSelectedStream(), 0);
    EXPECT_EQ(select->GetSelectedSubtitle(), -1);
}

}  // namespace
}  // namespace kiv::media
