#include <kiv/media/IPlayer.h>
#include <kiv/media/IVolumeControl.h>
#include <kiv/media/MPlayerBase.h>
#include <kiv/media/MPlayerEvent.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "media/MDirectShowDataSource.h"
#include "media/RecordingPlayer.h"

namespace {

using kiv::media::IControl;
using kiv::media::IPlayer;
using kiv::media::IVolumeControl;
using kiv::media::MDirectShowDataSource;
using kiv::media::MPlayerEvent;
using kiv::test::RecordingListener;
using kiv::test::RecordingPlayer;
using Calls = std::vector<std::string>;
using Types = std::vector<unsigned char>;

constexpr unsigned int kFailure = 0x03000042;

class FakeVolume : public IVolumeControl {
public:
    short SetLevel(short level) override { return level; }
    short GetLevel() override { return 0; }
    void SetMute(bool) override {}
    bool IsMuted() override { return false; }
};

class NamedControl : public IControl {
public:
    explicit NamedControl(std::string name) : m_name(std::move(name)) {}
    std::string GetName() override { return m_name; }

private:
    std::string m_name;
};

TEST(MPlayerBase, NewPlayerIsUninitializedAndOnlyInitializeReachesAPrimitive) {
    RecordingPlayer player;
    RecordingListener listener;
    player.AddPlayerListener(&listener);

    EXPECT_EQ(player.GetState(), IPlayer::UNINITIALIZED);
    EXPECT_EQ(player.GetRate(), -1.0);
    EXPECT_EQ(player.GetMediaTime(), -1);
    EXPECT_EQ(player.GetDuration(), -1);
    EXPECT_EQ(player.GetOption(), 0);
    EXPECT_EQ(player.Start(), 0u);
    EXPECT_EQ(player.Pause(), 0u);
    EXPECT_EQ(player.Stop(), 0u);
    EXPECT_EQ(player.Deinitialize(), 0u);
    EXPECT_EQ(player.SetRate(2.0), 0u);
    EXPECT_EQ(player.SetMediaTime(500), 0u);
    EXPECT_EQ(player.GetState(), IPlayer::UNINITIALIZED);
    EXPECT_EQ(player.TakeCalls(), Calls{});
    EXPECT_EQ(listener.Settle(player), Types{});
}

TEST(MPlayerBase, EachTransitionCallsItsPrimitiveOnceAndFiresItsEvent) {
    RecordingPlayer player;
    RecordingListener listener;
    player.AddPlayerListener(&listener);

    EXPECT_EQ(player.Initialize(), 0u);
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(player.Initialize(), 0u);  // already READY: nothing
    EXPECT_EQ(player.Pause(), 0u);       // not playing: nothing
    EXPECT_EQ(player.Stop(), 0u);
    EXPECT_EQ(player.TakeCalls(), Calls{"DoInitialize"});
    EXPECT_EQ(listener.Settle(player), Types{MPlayerEvent::INITIALIZED});

    EXPECT_EQ(player.Start(), 0u);
    EXPECT_EQ(player.GetState(), IPlayer::STARTED);
    EXPECT_EQ(player.Start(), 0u);
    EXPECT_EQ(player.Initialize(), 0u);
    EXPECT_EQ(player.Deinitialize(), 0u);  // only from READY
    EXPECT_EQ(player.Pause(), 0u);
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(player.Start(), 0u);
    EXPECT_EQ(player.Stop(), 0u);
    EXPECT_EQ(player.Deinitialize(), 0u);
    EXPECT_EQ(player.GetState(), IPlayer::UNINITIALIZED);
    EXPECT_EQ(player.TakeCalls(),
              (Calls{"DoStart", "DoPause", "DoStart", "DoStop", "DoDeinitialize"}));
    EXPECT_EQ(listener.Settle(player),
              (Types{MPlayerEvent::STARTED, MPlayerEvent::STOPPED_BY_REQUEST, MPlayerEvent::STARTED,
                     MPlayerEvent::STOPPED_BY_REQUEST, MPlayerEvent::DEINITIALIZED}));
}

TEST(MPlayerBase, OpenStatesAnswerQueriesFromThePrimitivesAndSeeksFireMediaTimeSet) {
    RecordingPlayer player;
    RecordingListener listener;
    player.AddPlayerListener(&listener);
    player.Initialize();
    player.TakeCalls();
    listener.Settle(player);

    for (const signed char state : {IPlayer::READY, IPlayer::STARTED}) {
        if (state == IPlayer::STARTED) {
            player.Start();
            listener.Settle(player);
        }
        player.TakeCalls();
        EXPECT_EQ(player.GetRate(), 1.5);
        EXPECT_EQ(player.GetMediaTime(), 1200);
        EXPECT_EQ(player.GetDuration(), 9000);
        EXPECT_EQ(player.SetRate(2.0), 0u);
        EXPECT_EQ(player.SetMediaTime(3000), 0u);
        EXPECT_EQ(player.GetState(), state);
        EXPECT_EQ(player.TakeCalls(), (Calls{"DoGetRate", "DoGetMediaTime", "DoGetDuration",
                                             "DoSetRate", "DoSetMediaTime"}));
        EXPECT_EQ(listener.Settle(player), Types{MPlayerEvent::MEDIA_TIME_SET});
    }
    // A refused rate is only a status.
    player.Fail("DoSetRate", kFailure);
    EXPECT_EQ(player.SetRate(8.0), kFailure);
    EXPECT_EQ(player.GetState(), IPlayer::STARTED);
}

TEST(MPlayerBase, AFailingPrimitiveReturnsItsStatusKeepsTheStateAndFiresNothing) {
    RecordingPlayer player;
    RecordingListener listener;
    player.AddPlayerListener(&listener);

    player.Fail("DoInitialize", kFailure);
    EXPECT_EQ(player.Initialize(), kFailure);
    EXPECT_EQ(player.GetState(), IPlayer::UNINITIALIZED);
    player.Fail("DoInitialize", 0);
    player.Initialize();

    player.Fail("DoStart", kFailure);
    EXPECT_EQ(player.Start(), kFailure);
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    player.Fail("DoSetMediaTime", kFailure);
    EXPECT_EQ(player.SetMediaTime(10), kFailure);
    player.Fail("DoDeinitialize", kFailure);
    EXPECT_EQ(player.Deinitialize(), kFailure);
    EXPECT_EQ(player.GetState(), IPlayer::READY);

    player.Fail("DoStart", 0);
    player.Start();
    player.Fail("DoPause", kFailure);
    player.Fail("DoStop", kFailure);
    EXPECT_EQ(player.Pause(), kFailure);
    EXPECT_EQ(player.Stop(), kFailure);
    EXPECT_EQ(player.GetState(), IPlayer::STARTED);

    EXPECT_EQ(listener.Settle(player), (Types{MPlayerEvent::INITIALIZED, MPlayerEvent::STARTED}));
}

TEST(MPlayerBase, SetDataSourceOnAStartedPlayerStopsLoadsRestartsAndTellsInThatOrder) {
    RecordingPlayer player;
    RecordingListener listener;
    MDirectShowDataSource first(L"/media/a.wav");
    MDirectShowDataSource second(L"/media/b.wav");
    player.AddPlayerListener(&listener);

    // Not initialized: the source is only noted, without loading.
    EXPECT_EQ(player.SetDataSource(&first), 0u);
    EXPECT_EQ(player.GetDataSource(), &first);
    EXPECT_EQ(player.TakeCalls(), Calls{});
    EXPECT_EQ(listener.Settle(player), Types{MPlayerEvent::RESTARTED});

    player.Initialize();
    player.Start();
    player.TakeCalls();
    listener.Settle(player);
    EXPECT_EQ(player.SetDataSource(&second), 0u);
    EXPECT_EQ(player.GetState(), IPlayer::STARTED);
    EXPECT_EQ(player.GetDataSource(), &second);
    EXPECT_EQ(player.loaded, &second);
    EXPECT_EQ(player.TakeCalls(), (Calls{"DoStop", "DoSetDataSource", "DoStart"}));
    EXPECT_EQ(listener.Settle(player), (Types{MPlayerEvent::STOPPED_BY_REQUEST,
                                              MPlayerEvent::STARTED, MPlayerEvent::RESTARTED}));

    // A load that fails keeps the old source; the player stays stopped.
    player.Fail("DoSetDataSource", kFailure);
    EXPECT_EQ(player.SetDataSource(&first), kFailure);
    EXPECT_EQ(player.GetDataSource(), &second);
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(listener.Settle(player), Types{MPlayerEvent::STOPPED_BY_REQUEST});

    // Null forgets the source and tells nobody.
    EXPECT_EQ(player.SetDataSource(nullptr), 0u);
    EXPECT_EQ(player.GetDataSource(), nullptr);
    EXPECT_EQ(listener.Settle(player), Types{});
}

// Reports the end of the media from another thread inside its Start and
// Pause primitives, as an engine thread may.
class EndingPlayer : public RecordingPlayer {
public:
    bool endDuringPrimitive = false;

protected:
    unsigned int DoStart() override { return EndMeanwhile(RecordingPlayer::DoStart()); }
    unsigned int DoPause() override { return EndMeanwhile(RecordingPlayer::DoPause()); }

private:
    unsigned int EndMeanwhile(unsigned int status) {
        if (endDuringPrimitive) {
            std::thread([this] { EndPlayback(MPlayerEvent::STOPPED_END_OF_MEDIA); }).join();
        }
        return status;
    }
};

TEST(MPlayerBase, EventsBeforeTheFirstListenerAreLostAndEndPlaybackOnlyEndsAStartedPlayer) {
    EndingPlayer player;
    player.Initialize();
    player.Start();
    RecordingListener listener;
    player.AddPlayerListener(&listener);
    EXPECT_EQ(listener.Settle(player), Types{});
    EXPECT_EQ(player.GetState(), IPlayer::STARTED);

    EXPECT_EQ(player.EndPlayback(MPlayerEvent::STOPPED_END_OF_MEDIA), 1);
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(player.EndPlayback(MPlayerEvent::STOPPED_ERRORABORT), 0);
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(listener.Settle(player), Types{MPlayerEvent::STOPPED_END_OF_MEDIA});

    // An engine thread that ends playback while Start or Pause is in its
    // primitive: after Start the end still comes, after Pause it is the
    // same stop and not a second one.
    player.endDuringPrimitive = true;
    player.Start();
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(listener.Settle(player),
              (Types{MPlayerEvent::STARTED, MPlayerEvent::STOPPED_END_OF_MEDIA}));
    player.endDuringPrimitive = false;
    player.Start();
    player.endDuringPrimitive = true;
    player.Pause();
    EXPECT_EQ(player.GetState(), IPlayer::READY);
    EXPECT_EQ(listener.Settle(player),
              (Types{MPlayerEvent::STARTED, MPlayerEvent::STOPPED_BY_REQUEST}));
    player.RemovePlayerListener(&listener);
}

TEST(MPlayerBase, GetControlFindsTheFirstControlOfExactlyThatName) {
    RecordingPlayer player;
    FakeVolume volume;
    NamedControl lower("volumecontrol");
    NamedControl second("VolumeControl");
    NamedControl other("LrcControl");
    EXPECT_EQ(player.GetControl("VolumeControl"), nullptr);

    player.AddControl(&lower);
    player.AddControl(&volume);
    player.AddControl(&second);
    player.AddControl(&other);
    EXPECT_EQ(player.GetControl("VolumeControl"), &volume);
    EXPECT_EQ(player.GetControl(IVolumeControl::DEFAULT_NAME()), &volume);
    EXPECT_EQ(player.GetControl("VOLUMECONTROL"), nullptr);
    EXPECT_EQ(player.GetControl("StopTimeControl"), nullptr);

    std::vector<IControl*> controls{&other};
    player.GetControls(controls);
    EXPECT_EQ(controls, (std::vector<IControl*>{&other, &lower, &volume, &second, &other}));

    player.RemoveControl(&volume);
    EXPECT_EQ(player.GetControl("VolumeControl"), &second);
}

}  // namespace
