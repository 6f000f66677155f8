// The lyrics control of the built-in player: lyrics found beside the media or
// named by the application, and the line and word events as a generated
// sound file plays, checked against the media clock.
#include "media/MLrcControlImpl.h"

#include <gtest/gtest.h>
#include <kiv/media/IDataSource.h>
#include <kiv/media/IDriver.h>
#include <kiv/media/ILrcControl.h>
#include <kiv/media/IPlayer.h>
#include <kiv/media/IPlayerListener.h>
#include <kiv/media/MPlayerEvent.h>
#include <kiv/media/MPlayerManager.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "MediaTestFiles.h"
#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"
#include "support/TestMedia.h"
#include "support/ThreadState.h"

namespace kiv::media {
namespace {

// How far behind its time on the media clock an event may arrive: the
// dispatcher's delivery and the thread's wake-up. Sanitizers slow both.
constexpr int kLateMs = test::kUnderSanitizer ? 250 : 100;
// The clock's own jitter: no event may come earlier than this.
constexpr int kEarlyMs = 10;

constexpr unsigned char LINE = 8;  // MPlayerEvent::LRC_LINE_CHANGE
constexpr unsigned char WORD = 9;  // MPlayerEvent::LRC_WORD_CHANGE

const char kSong[] =
    "[ti:Counting]\n"
    "[00:00.40]<00:00.40>one <00:00.70>two <00:01.00>three\n"
    "[00:01.30]a plain line\n"
    "[00:01.80]<00:01.80>four <00:02.10>five\n";

// What a listener saw of one lyrics event, asked at its arrival.
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
        Seen seen{type, -1, -1, -1};
        if (type == LINE || type == WORD) {
            seen.mediaMs = m_player.GetMediaTime();
            auto* lyrics = static_cast<ILrcControl*>(m_player.GetControl("LrcControl"));
            seen.line = lyrics->GetCurrentLine();
            seen.word = lyrics->GetCurrentWord();
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        (type == LINE || type == WORD ? m_lyrics : m_other).push_back(seen);
        m_arrived.notify_all();
    }
    // Waits for the count of lyrics events to reach `count`, or for the end
    // of the media; false after 15 s.
    bool WaitForLyrics(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(lock, std::chrono::seconds(15),
                                  [&] { return m_lyrics.size() >= count; });
    }
    bool WaitForEnd() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(lock, std::chrono::seconds(15), [&] {
            for (const Seen& s : m_other) {
                if (s.type == MPlayerEvent::STOPPED_END_OF_MEDIA) {
                    return true;
                }
            }
            return false;
        });
    }
    std::vector<Seen> Lyrics() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lyrics;
    }

private:
    IPlayer& m_player;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<Seen> m_lyrics;
    std::vector<Seen> m_other;
};

// An expected event: its type, its time on the media clock, and the line
// and word current then.
struct Due {
    unsigned char type;
    int timeMs;
    int line;
    int word;
};

void ExpectEvents(const std::vector<Seen>& seen, std::size_t from, const std::vector<Due>& due) {
    ASSERT_GE(seen.size(), from + due.size());
    for (std::size_t i = 0; i < due.size(); ++i) {
        const Seen& s = seen[from + i];
        SCOPED_TRACE("event " + std::to_string(from + i) + " due at " +
                     std::to_string(due[i].timeMs) + " ms");
        EXPECT_EQ(s.type, due[i].type);
        EXPECT_GE(s.mediaMs, due[i].timeMs - kEarlyMs);
        EXPECT_LE(s.mediaMs, due[i].timeMs + kLateMs);
        EXPECT_EQ(s.line, due[i].line);
        EXPECT_EQ(s.word, due[i].word);
    }
}

class MLrcControlTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KIV_AUDIO_SINK", "discard", 1);
        m_manager.RegisterMediaType("wav", "ms.directshow");
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
    IPlayer* Player(const std::string& path) {
        m_sources.push_back(m_manager.CreateDataSource(text::FromUtf8(path)));
        m_players.push_back(m_manager.CreatePlayer(m_sources.back()));
        return m_players.back();
    }

    MPlayerManager m_manager;
    IDriver* m_driver = nullptr;
    std::vector<IPlayer*> m_players;
    std::vector<IDataSource*> m_sources;
};

TEST_F(MLrcControlTest, LyricsBesideTheMediaOrNamedAreLoadedAndFailuresEmptyThem) {
    EXPECT_EQ(MLrcControlImpl::DefaultPath(L"/music/a.b/song.mp3"), L"/music/a.b/song.lrc");
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

    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("other.txt"), "[00:05.00]elsewhere\n"));
    ASSERT_EQ(lyrics->LoadLyrics(text::FromUtf8(test::TempPath("other.txt"))), 0u);
    ASSERT_EQ(lyrics->GetLineCount(), 1);
    EXPECT_EQ(lyrics->GetLineText(0), L"elsewhere");

    EXPECT_NE(lyrics->LoadLyrics(text::FromUtf8(test::TempPath("absent.lrc"))), 0u);
    EXPECT_EQ(lyrics->GetLineCount(), 0);
    ASSERT_TRUE(test::WriteFileBytes(test::TempPath("junk.lrc"), std::string(3000, '\x01')));
    EXPECT_NE(lyrics->LoadLyrics(text::FromUtf8(test::TempPath("junk.lrc"))), 0u);
    EXPECT_EQ(lyrics->GetLineCount(), 0);
    ASSERT_EQ(lyrics->LoadLyrics(L""), 0u);  // the default again
    EXPECT_EQ(lyrics->GetLineCount(), 3);

    EXPECT_EQ(player->SetDataSource(nullptr), 0u);
    EXPECT_EQ(player->GetControl(ILrcControl::DEFAULT_NAME()), nullptr);
}

TEST_F(MLrcControlTest, EventsFollowTheMediaClockThroughPauseSeeksAndARateChange) {
    const auto tone = test::MakeTestMedia(test::MediaFormat::WAV, 3000);
    ASSERT_FALSE(tone.path.empty());
    const std::string base = tone.path.substr(0, tone.path.size() - 4);
    ASSERT_TRUE(test::WriteFileBytes(base + ".lrc", kSong));
    IPlayer* player = Player(tone.path);
    ASSERT_NE(player, nullptr);
    LyricsListener listener(*player);
    player->AddPlayerListener(&listener);
    ASSERT_EQ(player->Initialize(), 0u);
    ASSERT_EQ(player->Start(), 0u);

    // Played from the start: every line and word in turn.
    ASSERT_TRUE(listener.WaitForLyrics(4));
    ASSERT_EQ(player->Pause(), 0u);
    ExpectEvents(listener.Lyrics(), 0,
                 {{LINE, 400, 0, 0}, {WORD, 400, 0, 0}, {WORD, 700, 0, 1}, {WORD, 1000, 0, 2}});

    // A seek while paused says where it landed; playing on continues from
    // there.
    ASSERT_EQ(player->SetMediaTime(1350), 0u);
    ASSERT_TRUE(listener.WaitForLyrics(5));
    ExpectEvents(listener.Lyrics(), 4, {{LINE, 1350, 1, -1}});
    ASSERT_EQ(player->Start(), 0u);
    ASSERT_TRUE(listener.WaitForLyrics(8));
    ExpectEvents(listener.Lyrics(), 5,
                 {{LINE, 1800, 2, 0}, {WORD, 1800, 2, 0}, {WORD, 2100, 2, 1}});

    // Backwards while playing, then at double speed: the events keep to the
    // media clock.
    ASSERT_EQ(player->SetMediaTime(600), 0u);
    ASSERT_EQ(player->SetRate(2.0), 0u);
    ASSERT_TRUE(listener.WaitForEnd());
    ExpectEvents(listener.Lyrics(), 8,
                 {{LINE, 600, 0, 0},
                  {WORD, 600, 0, 0},
                  {WORD, 700, 0, 1},
                  {WORD, 1000, 0, 2},
                  {LINE, 1300, 1, -1},
                  {LINE, 1800, 2, 0},
                  {WORD, 1800, 2, 0},
                  {WORD, 2100, 2, 1}});
    EXPECT_EQ(listener.Lyrics().size(), 16u);
    player->RemovePlayerListener(&listener);
}

}  // namespace
}  // namespace kiv::media
