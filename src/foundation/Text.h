// Conversions between the interface's wchar_t text (UTF-32 on Linux), the
// UTF-16LE the device stores and exchanges, and the narrow "ANSI code page",
// which on Linux is UTF-8.
//
// Invalid input (lone surrogates, values beyond U+10FFFF, malformed UTF-8, an
// odd trailing byte) becomes U+FFFD; no function reads past the length it is
// given or past a terminator.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kiv::text {

/// Length of `s` up to its terminator, at most `max` characters; 0 for null.
std::size_t BoundedLength(const wchar_t* s, std::size_t max);
std::size_t BoundedLength(const char16_t* s, std::size_t max);

/// Wide text to UTF-16 code units (no terminator added).
std::u16string ToUtf16(std::wstring_view s);
/// UTF-16 code units to wide text.
std::wstring FromUtf16(std::u16string_view s);

/// Wide text to UTF-16LE bytes; with `terminate`, a 2-byte terminator follows.
std::string ToUtf16Le(std::wstring_view s, bool terminate = false);
/// UTF-16LE bytes to wide text. Stops at the first zero unit; an odd last
/// byte becomes U+FFFD.
std::wstring FromUtf16Le(const void* bytes, std::size_t byteCount);

/// Wide text to UTF-8 (the narrow code page).
std::string ToUtf8(std::wstring_view s);
/// UTF-8 to wide text.
std::wstring FromUtf8(std::string_view s);

/// Null-safe forms for C strings: null converts to the empty string.
std::string ToUtf8(const wchar_t* s);
std::wstring FromUtf8(const char* s);

}  // namespace kiv::text
