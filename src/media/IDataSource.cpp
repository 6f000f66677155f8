#include <kiv/media/IDataSource.h>

namespace kiv::media {

IDataSource::~IDataSource() = default;

}  // namespace kiv::media
