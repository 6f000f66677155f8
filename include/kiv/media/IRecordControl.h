// Records what a capturing player receives into a file. The player fires
// RECORD_STARTED and RECORD_STOPPED. Reset discards an uncommitted recording.
#pragma once

#include <kiv/media/IControl.h>
#include <kiv/platform/KivApi.h>

namespace kiv::media {

class KIV_API IRecordControl : public IControl {
public:
    /// "RecordControl".
    static std::string DEFAULT_NAME();
    std::string GetName() override;

    /// The file to record into; refused with a status while recording.
    virtual unsigned int SetRecordLocation(std::wstring locator) = 0;
    /// The content type of the recording ("audio/x-wav", ...).
    virtual std::string GetContentType() = 0;
    /// Starts (or resumes) recording while the player is STARTED.
    virtual unsigned int StartRecord() = 0;
    /// Pauses recording; StartRecord resumes it.
    virtual unsigned int StopRecord() = 0;
    /// Ends the recording and completes the file.
    virtual unsigned int Commit() = 0;
    /// Limits the recording to `bytes`; returns the limit now set (a player
    /// may lower it). -1 removes the limit.
    virtual int SetRecordSizeLimit(int bytes) = 0;
};

}  // namespace kiv::media
