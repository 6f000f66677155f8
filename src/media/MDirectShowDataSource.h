// The data source of the built-in driver: a file named by its locator.
#pragma once

#include <kiv/media/IDataSource.h>

namespace kiv::media {

class MDirectShowDataSource : public IDataSource {
public:
    explicit MDirectShowDataSource(std::wstring locator);

    // A file needs no connection and no transfer: these do nothing.
    void Connect() override;
    void Disconnect() override;
    void Start() override;
    void Stop() override;
    void Reset() override;
    /// The content type of the locator's extension, empty for an extension
    /// that the built-in driver does not know.
    std::string GetContentType() override;
    std::wstring GetLocator() override;
    /// Null: the player reads the file itself.
    void* GetStream() override;

private:
    std::wstring m_locator;
};

}  // namespace kiv::media
