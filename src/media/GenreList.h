// The device's list of numbered genres, and the reading of the genre texts
// that tags store ("17", "(17)", "(17)Rock", "(RX)", "Rock").
#pragma once

#include <string>
#include <string_view>

namespace kiv::media {

/// Number of entries in the list: indexes 0 to 147.
inline constexpr int kGenreCount = 148;

/// The name of genre `index`; null outside 0..147 (ID3v1 uses 255 for "none").
const wchar_t* GenreName(int index);

/// The genre a stored genre text stands for: a bare number or a "(n)"
/// reference is looked up in the list (a number outside it gives nothing);
/// "(RX)" and "(CR)" give "Remix" and "Cover"; text after the references is
/// kept, "((" escapes a literal parenthesis; plain text is returned trimmed.
/// Several parts are joined with " / ". Empty when nothing names a genre.
std::wstring ResolveGenre(std::wstring_view stored);

}  // namespace kiv::media
