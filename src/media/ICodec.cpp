#include <kiv/media/ICodec.h>

namespace kiv::media {

ICodec::ICodec() = default;
ICodec::ICodec(const ICodec&) = default;
ICodec& ICodec::operator=(const ICodec&) = default;
ICodec::~ICodec() = default;

}  // namespace kiv::media
