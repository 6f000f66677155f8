#include "media/MCapturePlayer.h"

#include <kiv/media/IDataSource.h>
#include <kiv/media/IRecordControl.h>
#include <kiv/media/MPlayerEvent.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string_view>

#include "foundation/Text.h"
#include "media/WavWriter.h"
#include "platform/AudioCapture.h"
#include "platform/MediaEngine.h"

namespace kiv::media {

using platform::AudioCapture;
using platform::MediaStatus;

const wchar_t* const MCapturePlayer::AUDIO_LOCATOR = L"capture://audio";

namespace {

bool IsAudioCapture(IDataSource* source) {
    return source != nullptr && source->GetLocator() == MCapturePlayer::AUDIO_LOCATOR;
}

}  // namespace

// Records while the application asked for it (StartRecord until StopRecord)
// and the player is STARTED; RECORD_STARTED and RECORD_STOPPED mark the
// moments the sound begins and ceases to go into the file. The capture
// thread delivers the data, so everything is under one lock.
class MCapturePlayer::Recorder final : public IRecordControl {
public:
    explicit Recorder(std::function<void(unsigned char)> fire) : m_fire(std::move(fire)) {}

    unsigned int SetRecordLocation(std::wstring locator) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_begun) {
            return MediaStatus::NOT_SUPPORTED;
        }
        std::string path = text::ToUtf8(locator);
        constexpr std::string_view kFileScheme = "file://";
        if (path.compare(0, kFileScheme.size(), kFileScheme) == 0) {
            path.erase(0, kFileScheme.size());
        }
        return m_writer.Create(path);
    }

    std::string GetContentType() override { return "audio/x-wav"; }

    unsigned int StartRecord() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_writer.IsOpen()) {
            return MediaStatus::INVALID_ARGUMENT;
        }
        m_requested = true;
        m_begun = true;
        UpdateLocked();
        return 0;
    }

    unsigned int StopRecord() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requested = false;
        UpdateLocked();
        return 0;
    }

    unsigned int Commit() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        return CommitLocked();
    }

    int SetRecordSizeLimit(int bytes) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (bytes == -1) {
            m_limit = -1;
        } else if (bytes > 0) {
            // Room for the header at least.
            m_limit = std::max<long long>(bytes, static_cast<long long>(WavWriter::HEADER_SIZE));
            if (m_writer.IsOpen() && static_cast<long long>(m_writer.FileSize()) >= m_limit) {
                CommitLocked();
            }
        }
        return static_cast<int>(m_limit);
    }

    /// Discards the recording in progress; a committed file stays.
    void Reset() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_writer.Discard();
        m_requested = false;
        m_begun = false;
        UpdateLocked();
    }

    void SetPlayerStarted(bool started) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_playerStarted = started;
        UpdateLocked();
    }

    // On the capture thread.
    void Write(const AudioCapture::Format& format, const unsigned char* data, std::size_t bytes) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_active) {
            return;
        }
        bool ok = true;
        const std::size_t taken =
            m_writer.Append(data, bytes, format.rate, format.channels, m_limit, ok);
        if (!ok || taken < bytes) {
            // The size limit (or a full disk) ends the recording, and what
            // fitted is kept.
            CommitLocked();
        }
    }

private:
    // The file is in place before RECORD_STOPPED goes out.
    unsigned int CommitLocked() {
        const unsigned int status = m_writer.Commit();
        m_requested = false;
        m_begun = false;
        UpdateLocked();
        return status;
    }

    void UpdateLocked() {
        const bool active = m_requested && m_playerStarted;
        if (active != m_active) {
            m_active = active;
            m_fire(active ? MPlayerEvent::RECORD_STARTED : MPlayerEvent::RECORD_STOPPED);
        }
    }

    std::function<void(unsigned char)> m_fire;
    std::mutex m_mutex;
    WavWriter m_writer;
    long long m_limit = -1;
    bool m_requested = false;      // between StartRecord and StopRecord
    bool m_begun = false;          // StartRecord since the location was set
    bool m_playerStarted = false;  // the player is STARTED
    bool m_active = false;         // the sound goes into the file
};

MCapturePlayer::MCapturePlayer()
    : m_capture(AudioCapture::Create()),
      m_recorder(std::make_unique<Recorder>([this](unsigned char type) { FireEvent(type); })) {
    m_capture->SetDataCallback([this](const AudioCapture::Format& format, const unsigned char* data,
                                      std::size_t bytes) {
        m_rate = format.rate;
        m_frames += static_cast<long long>(bytes / (2 * static_cast<std::size_t>(format.channels)));
        m_recorder->Write(format, data, bytes);
    });
    m_capture->SetEventCallback([this](AudioCapture::Event event) {
        // The input is spent: the recording pauses, the player stops, and
        // the next Start opens the input afresh.
        m_reopen = true;
        m_recorder->SetPlayerStarted(false);
        EndPlayback(event == AudioCapture::Event::END ? MPlayerEvent::STOPPED_END_OF_MEDIA
                                                      : MPlayerEvent::STOPPED_ERRORABORT);
    });
}

MCapturePlayer::~MCapturePlayer() {
    m_capture->SetEventCallback(nullptr);
    m_capture->SetDataCallback(nullptr);
    ShutDownListeners();
    m_capture->Close();
}

unsigned int MCapturePlayer::Close() {
    if (GetState() == STARTED) {
        Stop();
    }
    if (GetState() == READY) {
        Deinitialize();
    }
    m_capture->Close();
    m_recorder->Reset();
    return 0;
}

unsigned int MCapturePlayer::Start() {
    const unsigned int status = MPlayerBase::Start();
    if (status == 0 && GetState() == STARTED) {
        m_recorder->SetPlayerStarted(true);
    }
    return status;
}

double MCapturePlayer::DoGetRate() {
    return NORMAL_RATE;
}

unsigned int MCapturePlayer::DoSetRate(double rate) {
    return rate == NORMAL_RATE ? 0 : MediaStatus::NOT_SUPPORTED;
}

int MCapturePlayer::DoGetMediaTime() {
    const int rate = m_rate;
    return rate > 0 ? static_cast<int>(m_frames * 1000 / rate) : 0;
}

unsigned int MCapturePlayer::DoSetMediaTime(int /*time*/) {
    return MediaStatus::NOT_SUPPORTED;
}

int MCapturePlayer::DoGetDuration() {
    return UNKNOWN_TIME;
}

unsigned int MCapturePlayer::DoInitialize() {
    if (!IsAudioCapture(GetDataSource())) {
        return MediaStatus::NOT_FOUND;
    }
    const unsigned int status = m_capture->Open();
    if (status == 0) {
        m_reopen = false;
        m_frames = 0;
        AddControl(m_recorder.get());
    }
    return status;
}

unsigned int MCapturePlayer::DoDeinitialize() {
    RemoveControl(m_recorder.get());
    m_recorder->Reset();
    m_capture->Close();
    return 0;
}

unsigned int MCapturePlayer::DoStart() {
    if (m_reopen.exchange(false)) {
        const unsigned int status = m_capture->Open();
        if (status != 0) {
            m_reopen = true;
            return status;
        }
    }
    return m_capture->Start();
}

unsigned int MCapturePlayer::DoPause() {
    return Halt();
}

unsigned int MCapturePlayer::DoStop() {
    return Halt();
}

// The recording pauses with the player (RECORD_STOPPED comes before
// STOPPED_BY_REQUEST) and resumes with the next Start.
unsigned int MCapturePlayer::Halt() {
    const unsigned int status = m_capture->Pause();
    if (status == 0) {
        m_recorder->SetPlayerStarted(false);
    }
    return status;
}

unsigned int MCapturePlayer::DoSetDataSource(IDataSource* source) {
    // There is one input: another source of it changes nothing.
    return IsAudioCapture(source) ? 0 : MediaStatus::NOT_FOUND;
}

}  // namespace kiv::media
