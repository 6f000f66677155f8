// Text files of unknown encoding (lyrics files, mostly) to wide text.
#pragma once

#include <string>
#include <string_view>

namespace kiv::platform {

/// Decodes `bytes`: a byte order mark names UTF-8, UTF-16LE/BE or
/// UTF-32LE/BE; without one, valid UTF-8 is taken as UTF-8 and anything else
/// is detected among the legacy single- and double-byte code pages (GBK,
/// Big5, Shift-JIS, EUC-KR, Windows-125x, ...) and converted. The mark is
/// not part of the result. `charset`, when given, receives the name of the
/// encoding used. Undecodable bytes become U+FFFD; never fails.
std::wstring DecodeText(std::string_view bytes, std::string* charset = nullptr);

}  // namespace kiv::platform
