// The extension of a media locator, as drivers and content types see it.
#pragma once

#include <optional>
#include <string>

namespace kiv::media {

/// Everything after the last dot of the whole locator (directories
/// included), in the narrow code page, with A-Z lowercased; empty when the
/// locator ends in a dot, nothing when it has no dot.
std::optional<std::string> LocatorExtension(const std::wstring& locator);

/// True for a capture locator ("capture://audio"): it names an input, not
/// a file, and belongs to the built-in driver whatever is registered.
bool IsCaptureLocator(const std::wstring& locator);

}  // namespace kiv::media
