// The metadata control of the built-in player and GetDuration(path), as an
// application reaches them: a player from the manager, values read before
// the player is initialized.
#include "media/MMetaDataControlImpl.h"

#include <kiv/media/IMetaDataControl.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <map>

#include "BuiltInPlayerFixture.h"
#include "MediaTestFiles.h"
#include "support/KivTestEnvironment.h"

namespace kiv::media {
namespace {

using Values = std::map<std::string, std::wstring>;

IMetaDataControl* Control(IPlayer* player) {
    return static_cast<IMetaDataControl*>(player->GetControl(IMetaDataControl::DEFAULT_NAME()));
}

// Every key the control lists, with its value.
Values All(IMetaDataControl& control) {
    std::vector<std::string> keys{"already there"};
    control.GetKeys(keys);
    EXPECT_EQ(keys.front(), "already there");  // appended, not replaced
    Values values;
    for (std::size_t i = 1; i < keys.size(); ++i) {
        values[keys[i]] = control.GetKeyValue(keys[i]);
    }
    return values;
}

class MMetaDataControlTest : public BuiltInPlayerFixture {};

TEST_F(MMetaDataControlTest, ValuesOfTheSourceWithoutInitializingAndAfterASwitch) {
    // 190 frames, joint stereo, an ID3v2.4 tag with a UTF-8 title, a
    // numbered genre and a PNG cover.
    const std::string mp3 = test::TempPath("song.mp3");
    ASSERT_TRUE(test::WriteFileBytes(mp3, test::MpegStream({test::kKbps128}, 190, 1, false)));
    const std::string cover = "\x89PNG\r\n\x1a\n" + std::string(300, 'p');
    {
        TagLib::MPEG::File file(mp3.c_str(), false);
        TagLib::ID3v2::Tag* tag = file.ID3v2Tag(true);
        tag->setTitle(TagLib::String("Wörter 歌", TagLib::String::UTF8));
        tag->setArtist("Someone");
        tag->setGenre("(17)");
        auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
        picture->setMimeType("image/png");
        picture->setPicture(TagLib::ByteVector(cover.data(), static_cast<unsigned>(cover.size())));
        tag->addFrame(picture);
        ASSERT_TRUE(file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers));
    }
    IPlayer* player = Player(mp3);
    ASSERT_NE(player, nullptr);
    ASSERT_EQ(player->GetState(), IPlayer::UNINITIALIZED);
    IMetaDataControl* control = Control(player);
    ASSERT_NE(control, nullptr);

    Values values = All(*control);
    ASSERT_EQ(values.count("duration"), 1u);
    EXPECT_NEAR(std::stoi(values["duration"]), 4963, 26);  // 190 frames of 26 ms
    values.erase("duration");
    EXPECT_EQ(values, (Values{{"author", L"Someone"},
                              {"title", L"Wörter 歌"},
                              {"bitrate", L"128"},
                              {"frequency", L"44100"},
                              {"channelMode", L"Joint Stereo"},
                              {"coverPicture", L"image/png"},
                              {"genre", L"Rock"}}));
    EXPECT_EQ(control->GetKeyValue(IMetaDataControl::ALBUM_KEY()), L"");
    EXPECT_EQ(control->GetKeyValue("no such key"), L"");
    std::vector<unsigned char> bytes;
    std::string mime;
    ASSERT_EQ(control->GetPicture(bytes, mime), 0u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), cover);
    EXPECT_EQ(mime, "image/png");
    EXPECT_EQ(player->GetState(), IPlayer::UNINITIALIZED);

    // Another source: the control answers for it alone.
    const std::string wav = test::TempPath("plain.wav");
    ASSERT_TRUE(test::WriteFileBytes(wav, test::WavFile(8000, 1, 1500)));
    ASSERT_EQ(player->SetDataSource(Source(wav)), 0u);
    control = Control(player);
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(All(*control),
              (Values{{"duration", L"1500"}, {"bitrate", L"128"}, {"frequency", L"8000"}}));
    EXPECT_NE(control->GetPicture(bytes, mime), 0u);

    // Without a source, or before one, there is no control.
    EXPECT_EQ(player->SetDataSource(nullptr), 0u);
    EXPECT_EQ(Control(player), nullptr);
    EXPECT_EQ(Control(Player("")), nullptr);

    // A source that cannot be read has the control, without keys.
    ASSERT_EQ(player->SetDataSource(Source(test::TempPath("absent.mp3"))), 0u);
    ASSERT_NE(Control(player), nullptr);
    EXPECT_EQ(All(*Control(player)), Values{});
}

TEST_F(MMetaDataControlTest, AviTagsComeFromTheEngineAndDurationsNeedNoPlayer) {
    // An AVI with a RIFF INFO list, which the tag reader does not know.
    const std::string avi = test::TempPath("tagged.avi");
    const std::string launch =
        "videotestsrc num-buffers=15 ! video/x-raw,width=160,height=120,framerate=15/1 ! jpegenc "
        "! taginject tags=title=Clip,artist=Maker,genre=Rock ! avimux name=mux ! filesink "
        "location=" +
        avi +
        " audiotestsrc num-buffers=10 samplesperbuffer=1100 ! "
        "audio/x-raw,format=S16LE,rate=11000,channels=1 ! mux.";
    ASSERT_EQ(test::RunProcess("/bin/sh", {"-c", "gst-launch-1.0 -q " + launch}), 0);
    IPlayer* player = Player(avi);
    ASSERT_NE(player, nullptr);
    IMetaDataControl* control = Control(player);
    ASSERT_NE(control, nullptr);
    Values values = All(*control);
    EXPECT_EQ(values["title"], L"Clip");
    EXPECT_EQ(values["author"], L"Maker");
    EXPECT_EQ(values["genre"], L"Rock");
    EXPECT_EQ(values["frequency"], L"11000");
    EXPECT_EQ(values["bitrate"], L"176");  // 16-bit mono PCM at 11 kHz
    ASSERT_EQ(values.count("duration"), 1u);
    EXPECT_NEAR(std::stoi(values["duration"]), 1000, 67);
    EXPECT_EQ(values.count("channelMode"), 0u);  // not MPEG audio
    EXPECT_EQ(player->GetState(), IPlayer::UNINITIALIZED);

    // GetDuration(path): the reader's figure for the formats it knows (a
    // variable bit rate MP3 without a Xing frame, where an estimate from the
    // first frame would be far off), the engine's for the others.
    const std::string vbr = test::TempPath("vbr.mp3");
    ASSERT_TRUE(test::WriteFileBytes(
        vbr, test::MpegStream({test::kKbps128, test::kKbps320, test::kKbps320}, 600, 1, false)));
    const int vbrMs = static_cast<int>(600 * 1152LL * 1000 / 44100);
    EXPECT_NEAR(player->GetDuration(text::FromUtf8(vbr).c_str()), vbrMs, vbrMs / 100);
    EXPECT_NEAR(player->GetDuration(text::FromUtf8(avi).c_str()), 1000, 67);
    EXPECT_EQ(player->GetDuration(text::FromUtf8(test::TempPath("absent.mp3")).c_str()), -1);
    EXPECT_EQ(player->GetDuration(nullptr), -1);
    EXPECT_EQ(player->GetDuration(), -1);  // its own source is still not open
}

}  // namespace
}  // namespace kiv::media
