// Where a player's media comes from. Sources are made by a driver
// (MPlayerManager::CreateDataSource) and handed back to it when done.
#pragma once

#include <kiv/platform/KivApi.h>

#include <string>

namespace kiv::media {

class KIV_API IDataSource {
public:
    virtual ~IDataSource();
    /// Opens the connection to a streamed source; a file source does nothing.
    virtual void Connect() = 0;
    /// Closes what Connect opened; a file source does nothing.
    virtual void Disconnect() = 0;
    /// Starts the transfer of a streamed source; a file source does nothing.
    virtual void Start() = 0;
    /// Stops the transfer; a file source does nothing.
    virtual void Stop() = 0;
    /// Returns a streamed source to its beginning; a file source does nothing.
    virtual void Reset() = 0;
    /// The content type derived from the locator ("audio/x-wav", ...); empty
    /// when the source does not know it.
    virtual std::string GetContentType() = 0;
    /// The locator the source was made for.
    virtual std::wstring GetLocator() = 0;
    /// The stream behind a source that is not a file; null for a file.
    virtual void* GetStream() = 0;
};

}  // namespace kiv::media
