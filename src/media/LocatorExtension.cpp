#include "media/LocatorExtension.h"

#include "foundation/Text.h"

namespace kiv::media {

std::optional<std::string> LocatorExtension(const std::wstring& locator) {
    const auto dot = locator.rfind(L'.');
    if (dot == std::wstring::npos) {
        return std::nullopt;
    }
    std::string extension = text::ToUtf8(std::wstring_view(locator).substr(dot + 1));
    // Only ASCII letters change: other bytes are parts of UTF-8 sequences,
    // which a byte-wise lowercasing in a legacy locale would corrupt.
    for (char& c : extension) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return extension;
}

bool IsCaptureLocator(const std::wstring& locator) {
    return locator.rfind(L"capture://", 0) == 0;
}

}  // namespace kiv::media
