// The player of the built-in driver: the state machine of MPlayerBase over
// one playback engine. The engine's thread ends playback by itself at the end
// of the media (STOPPED_END_OF_MEDIA), on an error (STOPPED_ERRORABORT) and
// at a stop time (STOPPED_BY_REQUEST); the player is READY after each.
//
// Controls exist once the player is initialized and only where they apply:
// volume and the audio stream choice with sound; video, brightness, contrast
// and saturation with a picture, frames with a picture at a stated frame
// rate; the stop time always. The metadata and lyrics controls come with the
// data source, before the player is initialized.
#pragma once

#include <kiv/media/MPlayerBase.h>

#include <memory>
#include <string>

namespace kiv::platform {
class MediaEngine;
}

namespace kiv::media {

class MLrcControlImpl;
class MMetaDataControlImpl;
struct StreamControls;

class MDirectShowPlayer : public MPlayerBase {
public:
    MDirectShowPlayer();
    ~MDirectShowPlayer() override;

    /// Stops playback and releases the engine: a STARTED player is stopped,
    /// a READY one deinitialized (with their events).
    unsigned int Close() override;
    /// The duration of another file, from its headers (an engine opens
    /// the formats the tag reader does not know); -1 if it has none.
    int GetDuration(const wchar_t* path) override;
    /// As MPlayerBase, then lists the metadata and lyrics controls of the
    /// source now set.
    unsigned int SetDataSource(IDataSource* source) override;
    using MPlayerBase::GetDuration;

    bool SetAudioVolume(int volume) override;
    int GetAudioVolume() override;
    /// ZM_LETTERBOX and ZM_NORMAL keep the proportions, ZM_FITWINDOW
    /// stretches; ZM_PANSCAN is refused.
    bool SetZoomMode(int mode) override;
    bool StartVideo() override;
    bool StopVideo() override;
    bool HasVideo() override;

    class Controls;

protected:
    double DoGetRate() override;
    unsigned int DoSetRate(double rate) override;
    int DoGetMediaTime() override;
    unsigned int DoSetMediaTime(int time) override;
    int DoGetDuration() override;
    unsigned int DoInitialize() override;
    unsigned int DoDeinitialize() override;
    unsigned int DoStart() override;
    unsigned int DoPause() override;
    unsigned int DoStop() override;
    unsigned int DoSetDataSource(IDataSource* source) override;

private:
    unsigned int OpenSource(IDataSource* source);
    void ListControls();
    void ListSourceControls();
    void ListStreamControls();

    std::unique_ptr<platform::MediaEngine> m_engine;
    std::unique_ptr<Controls> m_controls;
    std::unique_ptr<MMetaDataControlImpl> m_metaData;
    std::unique_ptr<MLrcControlImpl> m_lyrics;
    std::unique_ptr<StreamControls> m_streamControls;
};

}  // namespace kiv::media
