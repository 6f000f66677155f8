// The library's own driver, "ms.directshow": file data sources and the
// engine-backed player. One static instance is listed first by
// MPlayerManager from the moment the library is loaded; the engine starts
// only when the first player needs it.
#pragma once

#include <kiv/media/IDriver.h>

namespace kiv::media {

class MDirectShowDriver : public IDriver {
public:
    static const char* const NAME;  ///< "ms.directshow"

    IPlayer* CreatePlayer(IDataSource* source) override;
    void ReleasePlayer(IPlayer* player) override;
    IDataSource* CreateDataSource(std::wstring locator) override;
    void ReleaseDataSource(IDataSource* source) override;
    std::string GetName() override;
};

}  // namespace kiv::media
