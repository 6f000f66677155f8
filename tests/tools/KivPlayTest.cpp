// kivplay as a user runs it, its output redirected (so one line per event),
// on files made for the test.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"

namespace {

using kiv::test::MediaFormat;
using kiv::test::TempPath;

// Runs kivplay with discarding outputs; returns its exit status (-2 if it
// had to be killed) and fills `lines` with its standard output.
int RunKivplay(const std::vector<std::string>& args, std::vector<std::string>& lines) {
    std::vector<std::string> shell = {
        "-c",
        "KIV_AUDIO_SINK=discard KIV_VIDEO_SINK=discard exec \"$@\" </dev/null >'" +
            TempPath("out.txt") + "' 2>'" + TempPath("err.txt") + "'",
        "sh", kiv::test::HelperPath("kivplay")};
    shell.insert(shell.end(), args.begin(), args.end());
    kiv::test::ChildProcess child("/bin/sh", shell);
    const int status = child.Wait(60000);
    std::istringstream out(kiv::test::ReadFileBytes(TempPath("out.txt")));
    lines.clear();
    for (std::string line; std::getline(out, line);) {
        lines.push_back(line);
    }
    return status;
}

// "tone.mp3: STARTED at 0:00.0 of 0:01.5, volume 100" -> "tone.mp3: STARTED"
std::vector<std::string> FileAndEvent(const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (const auto& line : lines) {
        result.push_back(line.substr(0, line.find(" at ")));
    }
    return result;
}

TEST(KivPlayTest, PlaysEachFileToItsEndAndReportsTheUnplayable) {
    const auto mp3 = kiv::test::MakeTestMedia(MediaFormat::MP3, 1000);
    const auto avi = kiv::test::MakeTestMedia(MediaFormat::AVI, 1000);
    std::vector<std::string> lines;
    ASSERT_EQ(RunKivplay({"--duration", "30", mp3.path, TempPath("absent.wav"), avi.path,
                          TempPath("notes.txt")},
                         lines),
              0);
    EXPECT_EQ(FileAndEvent(lines),
              (std::vector<std::string>{
                  "tone1000.mp3: title \"KivTone\", author \"Kiv\", duration 0:01.0",
                  "tone1000.mp3: INITIALIZED", "tone1000.mp3: STARTED",
                  "tone1000.mp3: STOPPED_END_OF_MEDIA", "tone1000.mp3: DEINITIALIZED",
                  "absent.wav: cannot play (0x03000002)", "tone1000.avi: duration 0:01.0",
                  "tone1000.avi: INITIALIZED", "tone1000.avi: STARTED",
                  "tone1000.avi: STOPPED_END_OF_MEDIA", "tone1000.avi: DEINITIALIZED",
                  "notes.txt: cannot play: unknown file type"}));
    // The end of media is reported at the end of the file.
    ASSERT_GE(lines.size(), 4u);
    EXPECT_NE(lines[3].find(" at 0:01.0 of 0:01.0"), std::string::npos) << lines[3];
}

TEST(KivPlayTest, DurationEndsPlaybackEarlyAndNothingPlayableFails) {
    const auto wav = kiv::test::MakeTestMedia(MediaFormat::WAV, 3000);
    std::vector<std::string> lines;
    ASSERT_EQ(RunKivplay({"--duration", "0.5", wav.path}, lines), 0);
    EXPECT_EQ(FileAndEvent(lines), (std::vector<std::string>{
                                       "tone3000.wav: duration 0:03.0", "tone3000.wav: INITIALIZED",
                                       "tone3000.wav: STARTED", "tone3000.wav: STOPPED_BY_REQUEST",
                                       "tone3000.wav: DEINITIALIZED"}));

    EXPECT_EQ(RunKivplay({TempPath("absent.mp3")}, lines), 1);
    EXPECT_EQ(RunKivplay({"--duration"}, lines), 2);
}

TEST(KivPlayTest, ShowsTheLyricsLinesBesideTheFileAndInfoPrintsEveryTag) {
    const auto wav = kiv::test::MakeTestMedia(MediaFormat::WAV, 2000);
    const auto mp3 = kiv::test::MakeTestMedia(MediaFormat::MP3, 1000);
    ASSERT_TRUE(kiv::test::WriteFileBytes(TempPath("tone2000.lrc"),
                                          "[00:00.30]first\n"
                                          "[00:00.90]<00:00.90>sec<00:01.10>ond\n"
                                          "[00:01.50]third \x1b[2J line\n"));
    std::vector<std::string> lines;
    ASSERT_EQ(RunKivplay({"--duration", "30", wav.path}, lines), 0);
    std::vector<std::string> lyrics;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(lyrics),
                 [](const std::string& line) { return line.find("LRC_") != std::string::npos; });
    // One line per lyrics line, with its text; word events are not printed.
    ASSERT_EQ(lyrics.size(), 3u);
    EXPECT_TRUE(lyrics[0].ends_with(", line 0 \"first\"")) << lyrics[0];
    EXPECT_TRUE(lyrics[1].ends_with(", line 1 \"second\"")) << lyrics[1];
    // Control characters of a lyric are not passed to the terminal.
    EXPECT_TRUE(lyrics[2].ends_with(", line 2 \"third  [2J line\"")) << lyrics[2];

    ASSERT_EQ(RunKivplay({"--info", mp3.path, wav.path, TempPath("absent.mp3")}, lines), 0);
    // In this order, among the MP3's measured properties.
    auto next = lines.begin();
    for (const std::string& want :
         {mp3.path + ":", std::string("  author: Kiv"), std::string("  title: KivTone"),
          std::string("  channelMode: Joint Stereo"), wav.path + ":",
          std::string("  duration: 2000"), std::string("  bitrate: 128"),
          std::string("  frequency: 8000"), std::string("  lyrics: 3 lines"),
          TempPath("absent.mp3") + ":", std::string("  (no tags or properties can be read)")}) {
        next = std::find(next, lines.end(), want);
        ASSERT_NE(next, lines.end()) << "missing or out of order: " << want;
    }
    EXPECT_EQ(lines.end() - next, 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "  frequency: 8000"), 1);
}

}  // namespace
