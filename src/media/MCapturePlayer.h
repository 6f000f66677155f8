// The player of the built-in driver for the locator "capture://audio": it
// captures the default input while STARTED and records it, through its
// IRecordControl, into a WAV file the application names. When the input
// fails (or a finite source ends) the player fires STOPPED_ERRORABORT
// (STOPPED_END_OF_MEDIA) and is READY; Start opens the input again. Its media time is
// the time captured while started; the duration is unknown, and neither
// the time nor the rate can be changed.
#pragma once

#include <kiv/media/MPlayerBase.h>

#include <atomic>
#include <memory>
#include <string>

namespace kiv::platform {
class AudioCapture;
}

namespace kiv::media {

class MCapturePlayer : public MPlayerBase {
public:
    /// The locator of the default audio input.
    static const wchar_t* const AUDIO_LOCATOR;

    MCapturePlayer();
    ~MCapturePlayer() override;

    /// Stops and deinitializes the player; an uncommitted recording is
    /// discarded.
    unsigned int Close() override;
    /// STARTED fires before the recording (re)starts with RECORD_STARTED.
    unsigned int Start() override;

    class Recorder;

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
    unsigned int Halt();

    std::unique_ptr<platform::AudioCapture> m_capture;
    std::unique_ptr<Recorder> m_recorder;
    // Sample frames captured while started, and their rate.
    std::atomic<long long> m_frames{0};
    std::atomic<int> m_rate{0};
    // The input ended or failed; Start opens it again.
    std::atomic<bool> m_reopen{false};
};

}  // namespace kiv::media
