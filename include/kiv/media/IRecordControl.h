// Records what a capturing player receives into a file (the player of the
// locator "capture://audio" records 16-bit PCM WAV). Sound goes into the
// file while recording is asked for (StartRecord until StopRecord) and the
// player is STARTED: the player fires RECORD_STARTED when it begins to go in
// and RECORD_STOPPED when it ceases, so stopping the player pauses the
// recording and starting it again resumes it. The file appears under its
// name only with Commit; Reset, or closing the player, discards an
// uncommitted recording.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IRecordControl : public IControl {
public:
    /// "RecordControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// The file to record into (a path, or a "file://" locator); refused
    /// with a status after StartRecord until Commit or Reset.
    virtual unsigned int SetRecordLocation(std::wstring locator) = 0;
    /// The content type of the recording ("audio/x-wav").
    virtual std::string GetContentType() = 0;
    /// Starts (or resumes) recording; it waits for the player to be STARTED.
    /// A status without a record location.
    virtual unsigned int StartRecord() = 0;
    /// Pauses recording; StartRecord resumes it in the same file.
    virtual unsigned int StopRecord() = 0;
    /// Ends the recording (stopping it first) and moves the file to its
    /// name; a new location is needed to record again.
    virtual unsigned int Commit() = 0;
    /// Limits the file to `bytes` (header included); returns the limit now
    /// set, which may be raised to the header's size. -1 removes the limit;
    /// other values below 1 change nothing. Reaching the limit commits the
    /// recording, as does setting a limit it already exceeds.
    virtual int SetRecordSizeLimit(int bytes) = 0;
};

}  // namespace kiv::media
