// The lyrics control of the built-in player: lyrics found beside the media or
// named by the application, and the line and word events as a generated
// sound file plays, checked against the media clock.
#include "media/MLrcControlImpl.h"

#include <kiv/media/ILrcControl.h>
#include <kiv/media/IPlayerListener.h>
#include <kiv/media/MPlayerEvent.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "BuiltInPlayerFixture.h"
#include "MediaTestFiles.h"
#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"
#include "support/ThreadState.h"

namespace kiv::media {
namespace {

// How far behind its time on the media clock an event may arrive: the
// dispatcher's delivery and the thread's wake-up. Sanitizers slow both. No
// event may come before its time, beyond the clock's jitter.
constexpr int kLateMs = test::kUnderSanitizer ? 250 : 100;
constexpr int kEarlyMs = 10;

constexpr unsigned char LINE = 8;  // MPlayerEvent::LRC_LINE_CHANGE
constexpr unsigned char WORD = 9;  // MPlayerEvent::LRC_WORD_CHANGE

const char kSong[] =
    "[ti:Counting]\n"
    "[00:00.40]<00:00.40>one <00:00.70>two <00:01.00>three\n"
    "[00:01.30]a plain line\n"
    "[00:01.80]<00:01.80>four <00:02.10>five\n";

// A lyrics event as the listener saw it: the media time, line and word
// asked at its arrival (or, expected, when it is due).
struct Seen {
    unsigned char type;
    int mediaMs;
    int line;
    int word;
};

class LyricsListener : public IPlayerListener {
public:
    explicit LyricsListener(IPlayer& player) : m_player(player) {}
    void OnPlayerEvent(const MPlayerEvent& event) override {
        const unsigned char type = event.GetEventType();
        std::lock_guard<std::mutex> lock(m_mutex);
        if (type == LINE || type == WORD) {
            auto* lyrics = static_cast<ILrcControl*>(m_player.GetControl("LrcControl"));
            m_seen.push_back({type, m_player.GetMediaTime(), lyrics->GetCurrentLine(),
                              lyrics->GetCurrentWord()});
        }
        m_ended = m_ended || type == MPlayerEvent::STOPPED_END_OF_MEDIA;
        m_arrived.notify_all();
    }
    // Waits for `count` lyrics events, or with 0 for the end of the media.
    std::vector<Seen> WaitFor(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrived.wait_for(lock, std::chrono::seconds(15),
                           [&] { return count > 0 ? m_seen.size() >= count : m_ended; });
        return m_seen;
    }

private:
    IPlayer& m_player;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<Seen> m_seen;
    bool m_ended = false;
};

void ExpectEvents(const std::vector<Seen>& seen, std::size_t from, const std::vector<Seen>& due) {
    ASSERT_GE(seen.size(), from + due.size());
    for (std::size_t i = 0; i < due.size(); ++i) {
        const Seen& s = seen[from + i];
        SCOPED_TRACE("event " + std::to_string(from + i) + " due at " +
                     std::to_string(due[i].mediaMs) + " ms");
        EXPECT_EQ(s.type, due[i].type);
        EXPECT_GE(s.mediaMs, due[i].mediaMs - kEarlyMs);
        EXPECT_LE(s.mediaMs, due[i].mediaMs + kLateMs);
        EXPECT_EQ(s.line, due[i].line);
        EXPECT_EQ(s.word, due[i].word);
    }
}

class MLrcControlTest : public BuiltInPlayerFixture {};

TEST_F(MLrcControlTest, LyricsBesideTheMediaOrNamedAreLoadedAndFailuresEmptyThem) {
    EXPECT_EQ(MLrcControlImpl::DefaultPath(L"/music/a.b/song"), L"/music/a.b/song.lrc");
    const std::string wav = test::TempPath("quiet.wav");
    ASSERT_TRUE(test::WriteFileBytes(wav, test::WavFile(8000, 1, 500)));
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("quiet.lrc"), kSong));
    IPlayer* player = Player(wav);
    auto* lyrics = static_cast<ILrcControl*>(player->GetControl(ILrcControl::DEFAULT_NAME()));
    ASSERT_NE(lyrics, nullptr);
    ASSERT_EQ(lyrics->GetLineCount(), 3);
    EXPECT_EQ(lyrics->GetLineText(2), L"four five");
    EXPECT_EQ(lyrics->GetLineTime(1), 1300);
    EXPECT_EQ(lyrics->GetLineTime(3), -1);
    EXPECT_EQ(lyrics->GetLineText(-1), L"");
    EXPECT_EQ(lyrics->GetCurrentLine(), -1);  // not initialized: no media time

    const auto load = [&](const std::string& name) {
        return lyrics->LoadLyrics(text::FromUtf8(test::TempPath(name)));
    };
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("other.txt"), "[00:05.00]elsewhere\n"));
    ASSERT_EQ(load("other.txt"), 0u);
    ASSERT_EQ(lyrics->GetLineCount(), 1);
    EXPECT_EQ(lyrics->GetLineText(0), L"elsewhere");
    EXPECT_NE(load("absent.lrc"), 0u);
    EXPECT_EQ(lyrics->GetLineCount(), 0);
    ASSERT_EQ(lyrics->LoadLyrics(L""), 0u);  // the default again
    EXPECT_EQ(lyrics->GetLineCount(), 3);

    EXPECT_EQ(player->SetDataSource(nullptr), 0u);
    EXPECT_EQ(player->GetControl(ILrcControl::DEFAULT_NAME()), nullptr);
}

TEST_F(MLrcControlTest, ASourceSwitchedWhilePlayingBringsItsOwnLyrics) {
    const std::string silent = test::TempPath("silent.wav");
    ASSERT_TRUE(test::WriteFileBytes(silent, test::WavFile(8000, 1, 3000)));
    const auto tone = test::MakeTestMedia(test::MediaFormat::WAV, 1000);
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("tone1000.lrc"), "[00:00.30]switched\n"));
    IPlayer* player = Player(silent);
    LyricsListener listener(*player);
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Initialize(), 0u);
    ASSERT_EQ(player->Start(), 0u);
    ASSERT_EQ(player->SetDataSource(Source(tone.path)), 0u);
    ASSERT_EQ(player->GetState(), IPlayer::STARTED);
    ExpectEvents(listener.WaitFor(1), 0, {{LINE, 300, 0, -1}});
    player->RemovePlayerListener(&listener);
}

TEST_F(MLrcControlTest, EventsFollowTheMediaClockThroughPauseSeeksAndARateChange) {
    const auto tone = test::MakeTestMedia(test::MediaFormat::WAV, 3000);
    ASSERT_FALSE(tone.path.empty());
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("tone3000.lrc"), kSong));
    IPlayer* player = Player(tone.path);
    ASSERT_NE(player, nullptr);
    LyricsListener listener(*player);
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Initialize(), 0u);
    ASSERT_EQ(player->Start(), 0u);

    // Played from the start: every line and word in turn.
    listener.WaitFor(4);
    ASSERT_EQ(player->Pause(), 0u);
    ExpectEvents(listener.WaitFor(4), 0,
                 {{LINE, 400, 0, 0}, {WORD, 400, 0, 0}, {WORD, 700, 0, 1}, {WORD, 1000, 0, 2}});

    // A seek while paused says where it landed; playing on continues from
    // there.
    ASSERT_EQ(player->SetMediaTime(1350), 0u);
    ExpectEvents(listener.WaitFor(5), 4, {{LINE, 1350, 1, -1}});
    ASSERT_EQ(player->Start(), 0u);
    ExpectEvents(listener.WaitFor(8), 5,
                 {{LINE, 1800, 2, 0}, {WORD, 1800, 2, 0}, {WORD, 2100, 2, 1}});

    // Backwards while playing, then at double speed: the events keep to the
    // media clock.
    ASSERT_EQ(player->SetMediaTime(600), 0u);
    ASSERT_EQ(player->SetRate(2.0), 0u);
    const std::vector<Seen> seen = listener.WaitFor(0);
    ExpectEvents(seen, 8,
                 {{LINE, 600, 0, 0},
                  {WORD, 600, 0, 0},
                  {WORD, 700, 0, 1},
                  {WORD, 1000, 0, 2},
                  {LINE, 1300, 1, -1},
                  {LINE, 1800, 2, 0},
                  {WORD, 1800, 2, 0},
                  {WORD, 2100, 2, 1}});
    EXPECT_EQ(seen.size(), 16u);
    player->RemovePlayerListener(&listener);
}

}  // namespace
}  // namespace kiv::media
