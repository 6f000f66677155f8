#include "media/MediaMetaData.h"

#include <gtest/gtest.h>
#include <taglib/asffile.h>
#include <taglib/asfpicture.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/wavfile.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <map>

#include "MediaTestFiles.h"
#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"

using kiv::media::MediaMetaData;
namespace test = kiv::test;

namespace {

using Values = std::map<std::string, std::wstring>;

// 1152 samples per MPEG-1 layer III frame at 44.1 kHz.
int FramesMs(int frames) {
    return static_cast<int>(frames * 1152LL * 1000 / 44100);
}

std::string MakeMp3(const std::string& name, int frames, int channelMode = 1) {
    const std::string path = test::TempPath(name);
    EXPECT_TRUE(
        test::WriteFileBytes(path, test::MpegStream({test::kKbps128}, frames, channelMode, false)));
    return path;
}

Values ReadAll(const std::string& path, MediaMetaData& meta) {
    Values values;
    EXPECT_TRUE(meta.Read(kiv::text::FromUtf8(path))) << path;
    for (const std::string& key : meta.Keys()) {
        values[key] = *meta.Value(key);
    }
    return values;
}

// Takes a numeric value out of `values`, for a comparison with a tolerance.
int Take(Values& values, const std::string& key) {
    const auto it = values.find(key);
    if (it == values.end()) {
        return -1;
    }
    const int n = std::stoi(it->second);
    values.erase(it);
    return n;
}

bool Contains(const std::string& haystack, const std::string& needle) {
    return haystack.find(needle) != std::string::npos;
}

// Writes an ID3v2 tag of `version` whose text frames use `encoding`.
void WriteId3v2(const std::string& path, TagLib::ID3v2::Version version,
                TagLib::String::Type encoding,
                const std::function<void(TagLib::ID3v2::Tag&)>& fill) {
    TagLib::ID3v2::FrameFactory::instance()->setDefaultTextEncoding(encoding);
    {
        TagLib::MPEG::File file(path.c_str(), false);
        ASSERT_TRUE(file.isValid());
        fill(*file.ID3v2Tag(true));
        ASSERT_TRUE(file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers, version,
                              TagLib::File::DoNotDuplicate));
    }
    TagLib::ID3v2::FrameFactory::instance()->setDefaultTextEncoding(TagLib::String::Latin1);
}

// The text tags the tests write, and the keys they read back as.
struct TextTags {
    const wchar_t* title;
    const char* artist;
    const char* album;
    const char* comment;
    unsigned int year;
    unsigned int track;
    const char* genre;  // as written
};

void Fill(TagLib::Tag& tag, const TextTags& t) {
    tag.setTitle(TagLib::String(t.title));
    tag.setArtist(TagLib::String(t.artist, TagLib::String::UTF8));
    tag.setAlbum(TagLib::String(t.album, TagLib::String::UTF8));
    tag.setComment(TagLib::String(t.comment, TagLib::String::UTF8));
    tag.setYear(t.year);
    tag.setTrack(t.track);
    tag.setGenre(t.genre);
}

// The keys of `t` with the genre as read, and the audio properties `more`.
Values Expected(const TextTags& t, const wchar_t* genre, const Values& more) {
    Values values{{"title", t.title},
                  {"author", kiv::text::FromUtf8(t.artist)},
                  {"album", kiv::text::FromUtf8(t.album)},
                  {"comment", kiv::text::FromUtf8(t.comment)},
                  {"year", std::to_wstring(t.year)},
                  {"track", std::to_wstring(t.track)},
                  {"genre", genre}};
    values.insert(more.begin(), more.end());
    return values;
}

void WriteId3v1(const std::string& path, const std::function<void(TagLib::ID3v1::Tag&)>& fill) {
    TagLib::MPEG::File file(path.c_str(), false);
    ASSERT_TRUE(file.isValid());
    fill(*file.ID3v1Tag(true));
    ASSERT_TRUE(file.save(TagLib::MPEG::File::ID3v1, TagLib::File::StripOthers, TagLib::ID3v2::v4,
                          TagLib::File::DoNotDuplicate));
}

}  // namespace

TEST(MediaMetaData, Id3v1OnlyMp3HasEveryTextKeyAndTheAudioProperties) {
    const std::string path = MakeMp3("v1.mp3", 400);
    const TextTags tags{L"Night Drive", "The Testers", "Generated", "made by a test", 1999, 7,
                        "Rock"};
    WriteId3v1(path, [&](TagLib::ID3v1::Tag& tag) { Fill(tag, tags); });
    MediaMetaData meta;
    Values values = ReadAll(path, meta);
    EXPECT_EQ(meta.Keys(), (std::vector<std::string>{"author", "title", "duration", "bitrate",
                                                     "frequency", "channelMode", "comment", "year",
                                                     "album", "track", "genre"}));
    EXPECT_NEAR(Take(values, "duration"), FramesMs(400), FramesMs(400) / 100);
    EXPECT_EQ(
        values,
        Expected(tags, L"Rock",
                 {{"bitrate", L"128"}, {"frequency", L"44100"}, {"channelMode", L"Joint Stereo"}}));
    EXPECT_TRUE(meta.Picture().empty());
}

TEST(MediaMetaData, Id3v23InUtf16KeepsNonLatinTextAndReadsGenreReferences) {
    const std::string path = MakeMp3("v23.mp3", 100, 0);
    // TagLib writes UTF-16 units as given: a character beyond the first plane
    // goes in as its surrogate pair.
    TextTags tags{L"Ünïcödé 歌 \xD83C\xDFB5", "Артист", "Ελληνικά", "コメント", 2004, 12, "(147)"};
    WriteId3v2(path, TagLib::ID3v2::v3, TagLib::String::UTF16,
               [&](TagLib::ID3v2::Tag& tag) { Fill(tag, tags); });
    EXPECT_TRUE(Contains(test::ReadFileBytes(path), kiv::text::ToUtf16Le(L"Артист")))
        << "the tag was not written as UTF-16";
    MediaMetaData meta;
    Values values = ReadAll(path, meta);
    EXPECT_NEAR(Take(values, "duration"), FramesMs(100), FramesMs(100) / 100);
    tags.title = L"Ünïcödé 歌 \U0001F3B5";
    EXPECT_EQ(values,
              Expected(tags, L"Synthpop",
                       {{"bitrate", L"128"}, {"frequency", L"44100"}, {"channelMode", L"Stereo"}}));
}

TEST(MediaMetaData, Id3v24InUtf8GivesTheFrontCoverWithItsMimeType) {
    const std::string path = MakeMp3("v24.mp3", 100, 3);
    const std::string back = "\xFF\xD8\xFF\xE0 back cover";
    const std::string front = std::string("\x89PNG\r\n\x1A\n", 8) + std::string(3000, '\x5A');
    WriteId3v2(path, TagLib::ID3v2::v4, TagLib::String::UTF8, [&](TagLib::ID3v2::Tag& tag) {
        tag.setTitle(TagLib::String("Überschrift", TagLib::String::UTF8));
        tag.setArtist(TagLib::String("陈奕迅", TagLib::String::UTF8));
        tag.setGenre("Lo-Fi Beats");
        for (const auto& [bytes, type, mime] :
             {std::tuple{back, TagLib::ID3v2::AttachedPictureFrame::BackCover, "image/jpeg"},
              std::tuple{front, TagLib::ID3v2::AttachedPictureFrame::FrontCover, "image/png"}}) {
            auto* frame = new TagLib::ID3v2::AttachedPictureFrame;
            frame->setMimeType(mime);
            frame->setType(type);
            frame->setPicture(
                TagLib::ByteVector(bytes.data(), static_cast<unsigned int>(bytes.size())));
            tag.addFrame(frame);
        }
    });
    EXPECT_TRUE(Contains(test::ReadFileBytes(path), "陈奕迅"))
        << "the tag was not written as UTF-8";
    MediaMetaData meta;
    Values values = ReadAll(path, meta);
    Take(values, "duration");
    EXPECT_EQ(values, (Values{{"title", L"Überschrift"},
                              {"author", L"陈奕迅"},
                              {"genre", L"Lo-Fi Beats"},
                              {"coverPicture", L"image/png"},
                              {"bitrate", L"128"},
                              {"frequency", L"44100"},
                              {"channelMode", L"Mono"}}));
    EXPECT_EQ(meta.PictureMime(), "image/png");
    EXPECT_EQ(std::string(meta.Picture().begin(), meta.Picture().end()), front);
}

TEST(MediaMetaData, WavInfoChunkGivesTheTextKeysAndPcmProperties) {
    const std::string path = test::TempPath("info.wav");
    const TextTags tags{L"Field Recording", "Microphone", "Outdoors", "rain", 2003, 2, "8"};
    ASSERT_TRUE(test::WriteFileBytes(path, test::WavFile(22050, 1, 1500)));
    {
        TagLib::RIFF::WAV::File file(path.c_str(), false);
        ASSERT_TRUE(file.isValid());
        Fill(*file.InfoTag(), tags);
        ASSERT_TRUE(file.save(TagLib::RIFF::WAV::File::Info));
    }
    MediaMetaData meta;
    // No channel mode: that is an MPEG property. 352.8 kbit/s is rounded.
    EXPECT_EQ(ReadAll(path, meta),
              Expected(tags, L"Jazz",
                       {{"duration", L"1500"}, {"frequency", L"22050"}, {"bitrate", L"353"}}));
}

TEST(MediaMetaData, WmaAttributesGiveTheTextKeysTheCoverAndTheProperties) {
    // GStreamer's encoder makes the audio: one second of a tone, WMA version 2.
    const char* gst = "/usr/bin/gst-launch-1.0";
    if (::access(gst, X_OK) != 0) {
        GTEST_SKIP() << "no gst-launch-1.0 to make a WMA file";
    }
    const std::string path = test::TempPath("tone.wma");
    if (test::RunProcess(
            gst, {"-q", "audiotestsrc", "num-buffers=43", "samplesperbuffer=1024", "!",
                  "audio/x-raw,rate=44100,channels=2", "!", "audioconvert", "!", "avenc_wmav2",
                  "bitrate=128000", "!", "avmux_asf", "!", "filesink", "location=" + path}) != 0) {
        GTEST_SKIP() << "GStreamer has no WMA encoder or ASF muxer here";
    }
    const std::string cover = "\xFF\xD8\xFF\xE0 a cover";
    const TextTags tags{L"Ton à l'essai", "Oscillator", "Signals", "sine", 2011, 4, "(52)"};
    {
        TagLib::ASF::File file(path.c_str(), false);
        ASSERT_TRUE(file.isValid());
        TagLib::ASF::Tag* tag = file.tag();
        Fill(*tag, tags);
        TagLib::ASF::Picture picture;
        picture.setMimeType("image/jpeg");
        picture.setType(TagLib::ASF::Picture::FrontCover);
        picture.setPicture(
            TagLib::ByteVector(cover.data(), static_cast<unsigned int>(cover.size())));
        tag->setAttribute("WM/Picture", TagLib::ASF::Attribute(picture));
        ASSERT_TRUE(file.save());
    }
    MediaMetaData meta;
    Values values = ReadAll(path, meta);
    // 43 buffers of 1024 samples: 998 ms, give or take the encoder's frames.
    EXPECT_NEAR(Take(values, "duration"), 998, 100);
    EXPECT_NEAR(Take(values, "bitrate"), 128, 8);
    EXPECT_EQ(values, Expected(tags, L"Electronic",
                               {{"frequency", L"44100"}, {"coverPicture", L"image/jpeg"}}));
    EXPECT_EQ(std::string(meta.Picture().begin(), meta.Picture().end()), cover);
}

TEST(MediaMetaData, NumericGenresUseTheDevicesListOfOneHundredFortyEight) {
    struct Case {
        unsigned int number;
        const wchar_t* genre;  // null: no genre key
    };
    for (const Case& c :
         {Case{0, L"Blues"}, Case{147, L"Synthpop"}, Case{148, nullptr}, Case{191, nullptr}}) {
        SCOPED_TRACE(c.number);
        const std::string v1 = MakeMp3("g1.mp3", 20);
        WriteId3v1(v1, [&](TagLib::ID3v1::Tag& tag) {
            tag.setTitle("g");
            tag.setGenreNumber(c.number);
        });
        const std::string v2 = MakeMp3("g2.mp3", 20);
        WriteId3v2(v2, TagLib::ID3v2::v4, TagLib::String::Latin1, [&](TagLib::ID3v2::Tag& tag) {
            tag.setTitle("g");
            tag.setGenre(TagLib::String::number(static_cast<int>(c.number)));
        });
        for (const std::string& path : {v1, v2}) {
            MediaMetaData meta;
            const Values values = ReadAll(path, meta);
            EXPECT_EQ(values.count("genre") ? values.at("genre") : L"<none>",
                      c.genre ? c.genre : L"<none>");
            EXPECT_EQ(meta.RawGenre(), std::to_wstring(c.number)) << path;
        }
    }
}

TEST(MediaMetaData, VariableBitrateDurationIsWithinOnePercentWithAndWithoutAXingFrame) {
    constexpr int kFrames = 600;
    const std::vector<int> pattern = {test::kKbps128, test::kKbps320, test::kKbps320};
    const std::string vbr = test::MpegStream(pattern, kFrames, 1, false);
    // Encoders often start with a run of equal frames: the check must look further in.
    const std::string leadIn = test::MpegStream({test::kKbps128}, 60, 1, false);
    struct Case {
        const char* name;
        std::string bytes;
        int frames;
        int kbps;  // two frames of 320 for one of 128: 256 on average
    };
    for (const Case& c : {Case{"Xing", test::MpegStream(pattern, kFrames, 1, true), kFrames, 256},
                          Case{"no Xing", vbr, kFrames, 256},
                          Case{"no Xing, constant start", leadIn + vbr, kFrames + 60, 244}}) {
        SCOPED_TRACE(c.name);
        const std::string path = test::TempPath("vbr.mp3");
        ASSERT_TRUE(test::WriteFileBytes(path, c.bytes));
        MediaMetaData meta;
        Values values = ReadAll(path, meta);
        EXPECT_NEAR(Take(values, "duration"), FramesMs(c.frames), FramesMs(c.frames) / 100);
        EXPECT_NEAR(Take(values, "bitrate"), c.kbps, 3);
    }
}

TEST(MediaMetaData, BrokenMissingAndSpecialFilesGiveNoKeysOrWhatCouldBeRead) {
    MediaMetaData meta;
    EXPECT_FALSE(meta.Read(kiv::text::FromUtf8(test::TempPath("missing.mp3"))));
    EXPECT_TRUE(meta.Keys().empty());
    EXPECT_FALSE(meta.Read(kiv::text::FromUtf8(test::TestRoot()))) << "a directory";
    const std::string fifo = test::TempPath("pipe.mp3");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(meta.Read(kiv::text::FromUtf8(fifo))) << "a pipe must not block the reader";

    // An ID3v2 header and a frame that claim far more bytes than the file has.
    const std::string lying =
        std::string("ID3\x03\x00\x00\x7F\x7F\x7F\x7FTIT2\x00\x10\x00\x00\x00\x00", 20) +
        std::string(64, 'x');
    const std::string frames = test::MpegStream({test::kKbps128}, 50, 1, false);
    for (const std::string& bytes :
         {lying + frames, lying, std::string(5000, '\xA5'), std::string()}) {
        const std::string path = test::TempPath("broken.mp3");
        ASSERT_TRUE(test::WriteFileBytes(path, bytes));
        meta.Read(kiv::text::FromUtf8(path));
    }
    const std::string truncated = test::TempPath("truncated.mp3");
    ASSERT_TRUE(test::WriteFileBytes(truncated, frames.substr(0, 700)));
    ASSERT_TRUE(meta.Read(kiv::text::FromUtf8(truncated)));
    EXPECT_EQ(*meta.Value("frequency"), L"44100");
}
