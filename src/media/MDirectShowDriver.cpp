#include "media/MDirectShowDriver.h"

#include <kiv/media/IPlayer.h>

#include <new>
#include <utility>

#include "media/BuiltInPlayer.h"
#include "media/MDirectShowDataSource.h"

namespace kiv::media {

const char* const MDirectShowDriver::NAME = "ms.directshow";

IPlayer* MDirectShowDriver::CreatePlayer(IDataSource* source) {
    IPlayer* player = CreateBuiltInPlayer(source);
    if (player != nullptr && source != nullptr) {
        player->SetDataSource(source);
    }
    return player;
}

void MDirectShowDriver::ReleasePlayer(IPlayer* player) {
    ReleaseBuiltInPlayer(player);
}

IDataSource* MDirectShowDriver::CreateDataSource(std::wstring locator) {
    return new (std::nothrow) MDirectShowDataSource(std::move(locator));
}

void MDirectShowDriver::ReleaseDataSource(IDataSource* source) {
    delete source;
}

std::string MDirectShowDriver::GetName() {
    return NAME;
}

}  // namespace kiv::media
