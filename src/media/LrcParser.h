// Lyrics in the LRC format: lines timed by "[mm:ss.xx]" tags (also
// "[mm:ss:xx]", "[mm:ss]", "[mm:ss.xxx]"; several tags on one line repeat
// it), words timed by "<mm:ss.xx>" inside a line, the header tags ti, ar,
// al, by, and "[offset:+/-ms]". A line without a valid tag is skipped.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::media {

struct LrcWord {
    int timeMs = 0;
    std::wstring text;
};

struct LrcLine {
    int timeMs = 0;
    std::wstring text;  ///< the line without its word tags
    std::vector<LrcWord> words;
};

struct LrcLyrics {
    std::wstring title;   ///< ti
    std::wstring artist;  ///< ar
    std::wstring album;   ///< al
    std::wstring author;  ///< by: who made the file
    /// The file's offset, already applied to every time below. A positive
    /// offset makes the lyrics come sooner.
    int offsetMs = 0;
    std::vector<LrcLine> lines;  ///< sorted by time; equal times keep file order
};

class LrcParser {
public:
    /// Parses decoded text; lines may end in LF, CR LF or CR.
    static LrcLyrics Parse(std::wstring_view text);
    /// Decodes `bytes` (any encoding the text decoder knows) and parses them.
    static LrcLyrics ParseBytes(std::string_view bytes);
    /// Reads and parses the file at `path`; false when it cannot be read.
    /// Files beyond 4 MiB are not lyrics and are refused.
    static bool ParseFile(const std::wstring& path, LrcLyrics& lyrics);

    /// The index of the line showing at `timeMs` (the last one starting at
    /// or before it); -1 before the first line.
    static int LineAt(const LrcLyrics& lyrics, int timeMs);
    /// The index of the word of `line` sung at `timeMs`; -1 before its first
    /// word or when it has none.
    static int WordAt(const LrcLine& line, int timeMs);
};

}  // namespace kiv::media
