// Delivery of player events on the dispatcher thread, from several threads,
// and the end of delivery when a player is destroyed.
#include <kiv/media/MPlayerEvent.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "media/RecordingPlayer.h"
#include "support/ThreadState.h"

namespace {

using kiv::media::IPlayerListener;
using kiv::media::MPlayerEvent;
using kiv::test::Delivery;
using kiv::test::RecordingListener;
using kiv::test::RecordingPlayer;

// Holds its first call until opened, then hands every event to `then`.
class GateListener : public IPlayerListener {
public:
    explicit GateListener(std::function<void(const MPlayerEvent&)> then = nullptr)
        : m_then(std::move(then)) {}
    void OnPlayerEvent(const MPlayerEvent& event) override {
        {
            std::unique_lock<std::mutex> hold(m_lock);
            ++m_calls;
            m_changed.notify_all();
            m_changed.wait(hold, [&] { return m_open; });
        }
        if (m_then) {
            m_then(event);
        }
    }
    void WaitUntilInside() {
        std::unique_lock<std::mutex> hold(m_lock);
        m_changed.wait(hold, [&] { return m_calls > 0; });
    }
    void Open() {
        std::lock_guard<std::mutex> hold(m_lock);
        m_open = true;
        m_changed.notify_all();
    }
    int Calls() {
        std::lock_guard<std::mutex> hold(m_lock);
        return m_calls;
    }

private:
    std::function<void(const MPlayerEvent&)> m_then;
    std::mutex m_lock;
    std::condition_variable m_changed;
    int m_calls = 0;
    bool m_open = false;
};

TEST(MPlayerListenerDispatcher, ListenersRunInListOrderOnOneThreadThatIsNotTheCallers) {
    RecordingPlayer player;
    // Which listener saw which event, across the two.
    std::mutex lock;
    std::vector<std::pair<int, unsigned char>> log;
    std::vector<std::pair<int, unsigned char>> expected;
    auto logAs = [&](int id) {
        return [&, id](const MPlayerEvent& event) {
            std::lock_guard<std::mutex> hold(lock);
            log.emplace_back(id, event.GetEventType());
        };
    };
    GateListener first(logAs(1));
    GateListener second(logAs(2));
    first.Open();
    second.Open();
    RecordingListener recorder;
    player.AddPlayerListener(&first);
    player.AddPlayerListener(&second);
    player.AddPlayerListener(&recorder);

    constexpr int kEvents = 300;
    for (int i = 0; i < kEvents; ++i) {
        const auto type = static_cast<unsigned char>(i % 13);
        player.FireEvent(type);
        expected.insert(expected.end(), {{1, type}, {2, type}});
    }
    const auto deliveries = recorder.WaitFor(kEvents);
    ASSERT_EQ(deliveries.size(), static_cast<std::size_t>(kEvents));
    for (int i = 0; i < kEvents; ++i) {
        EXPECT_EQ(deliveries[i].type, i % 13);
        EXPECT_EQ(deliveries[i].player, &player);
        EXPECT_EQ(deliveries[i].thread, deliveries[0].thread);
    }
    EXPECT_NE(deliveries[0].thread, std::this_thread::get_id());
    std::lock_guard<std::mutex> hold(lock);
    EXPECT_EQ(log, expected);
}

TEST(MPlayerListenerDispatcher, EventsFiredByAnEngineThreadKeepThatThreadsOrder) {
    RecordingPlayer player;
    RecordingListener recorder;
    player.AddPlayerListener(&recorder);
    player.Initialize();
    player.Start();
    recorder.Settle(player);

    // The engine thread fires its own events and ends playback while the
    // application thread fires others.
    constexpr int kEach = 200;
    std::thread engine([&] {
        for (int i = 0; i < kEach; ++i) {
            player.FireEvent(MPlayerEvent::LRC_LINE_CHANGE);
        }
        player.EndPlayback(MPlayerEvent::STOPPED_END_OF_MEDIA);
    });
    for (int i = 0; i < kEach; ++i) {
        player.FireEvent(MPlayerEvent::MOUSE_CLICK_VIDEO);
    }
    engine.join();
    const auto deliveries = recorder.WaitFor(2 * kEach + 1);
    ASSERT_EQ(deliveries.size(), 2u * kEach + 1);
    int lines = 0;
    int clicks = 0;
    for (const Delivery& d : deliveries) {
        if (d.type == MPlayerEvent::LRC_LINE_CHANGE) {
            ++lines;
        } else if (d.type == MPlayerEvent::MOUSE_CLICK_VIDEO) {
            ++clicks;
        } else {
            EXPECT_EQ(d.type, MPlayerEvent::STOPPED_END_OF_MEDIA);
            EXPECT_EQ(lines, kEach);  // after every event of its own thread
        }
    }
    EXPECT_EQ(lines, kEach);
    EXPECT_EQ(clicks, kEach);
    EXPECT_EQ(player.GetState(), kiv::media::IPlayer::READY);
}

TEST(MPlayerListenerDispatcher, ARemovedListenerIsNotCalledAgain) {
    RecordingPlayer player;
    RecordingListener kept;
    RecordingListener removed;
    RecordingPlayer untouched;
    untouched.RemovePlayerListener(&kept);  // never had a listener: nothing

    // A listener that removes itself on its first event.
    GateListener once([&](const MPlayerEvent&) { player.RemovePlayerListener(&once); });
    once.Open();
    player.AddPlayerListener(&once);
    player.AddPlayerListener(&removed);
    player.AddPlayerListener(&kept);
    player.FireEvent(MPlayerEvent::STARTED);
    EXPECT_EQ(kept.Settle(player), std::vector<unsigned char>{MPlayerEvent::STARTED});
    player.RemovePlayerListener(&removed);
    player.FireEvent(MPlayerEvent::STOPPED_BY_REQUEST);
    EXPECT_EQ(kept.Settle(player), std::vector<unsigned char>{MPlayerEvent::STOPPED_BY_REQUEST});
    // The event and the marker that came before the removal.
    EXPECT_EQ(removed.WaitFor(0).size(), 2u);
    EXPECT_EQ(once.Calls(), 1);
}

TEST(MPlayerListenerDispatcher, DestroyingAPlayerWaitsForTheCurrentCallAndDropsTheQueue) {
    auto player = std::make_unique<RecordingPlayer>();
    GateListener gate;
    player->AddPlayerListener(&gate);
    for (int i = 0; i < 100; ++i) {
        player->FireEvent(MPlayerEvent::MEDIA_TIME_SET);
    }
    gate.WaitUntilInside();

    std::atomic<int> destroyerTid{0};
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
        destroyerTid = kiv::test::CurrentThreadId();
        player.reset();
        destroyed = true;
    });
    while (destroyerTid.load() == 0) {
        std::this_thread::yield();
    }
    // The destructor waits for the listener that is still running.
    ASSERT_TRUE(kiv::test::WaitUntilInFutexWait(destroyerTid.load()));
    EXPECT_FALSE(destroyed.load());
    gate.Open();
    destroyer.join();
    EXPECT_EQ(gate.Calls(), 1);
}

TEST(MPlayerListenerDispatcher, AListenerMayDestroyThePlayerThatCalledIt) {
    // Held at the first event until every event is queued, the listener
    // destroys the player on the end of media: the event queued after it is
    // dropped.
    auto* player = new RecordingPlayer;
    std::atomic<bool> done{false};
    GateListener destroyer([&](const MPlayerEvent& event) {
        if (event.GetEventType() == MPlayerEvent::STOPPED_END_OF_MEDIA) {
            delete player;
            done = true;
        }
    });
    player->AddPlayerListener(&destroyer);
    player->Initialize();
    player->Start();
    player->EndPlayback(MPlayerEvent::STOPPED_END_OF_MEDIA);
    player->FireEvent(MPlayerEvent::MEDIA_TIME_SET);
    destroyer.Open();
    ASSERT_TRUE(kiv::test::Eventually([&] { return done.load(); }));
    EXPECT_EQ(destroyer.Calls(), 3);
}

}  // namespace
