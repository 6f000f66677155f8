// Feeds arbitrary bytes to the lyrics reader: text decoding (byte order
// marks, UTF-8, the legacy code page detector) and the LRC parser. Checks
// what a lyrics control relies on: lines and words sorted by time, times
// not negative, and lookups that answer an index in range.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "media/LrcParser.h"

namespace {

void Check(bool ok) {
    if (!ok) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using kiv::media::LrcParser;
    const kiv::media::LrcLyrics lyrics =
        LrcParser::ParseBytes(std::string_view(reinterpret_cast<const char*>(data), size));
    const int count = static_cast<int>(lyrics.lines.size());
    int previous = 0;
    for (const kiv::media::LrcLine& line : lyrics.lines) {
        Check(line.timeMs >= previous);
        previous = line.timeMs;
        int word = 0;
        for (const kiv::media::LrcWord& w : line.words) {
            Check(w.timeMs >= word && !w.text.empty());
            word = w.timeMs;
        }
        const int at = LrcParser::LineAt(lyrics, line.timeMs);
        Check(at >= 0 && at < count &&
              lyrics.lines[static_cast<std::size_t>(at)].timeMs == line.timeMs);
        const int w = LrcParser::WordAt(line, line.timeMs);
        Check(w >= -1 && w < static_cast<int>(line.words.size()));
    }
    Check(LrcParser::LineAt(lyrics, -1) == -1);
    return 0;
}
