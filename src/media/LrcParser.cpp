#include "media/LrcParser.h"

#include <kiv/files/MFile.h>

#include <algorithm>
#include <climits>

#include "platform/TextDecoder.h"

namespace kiv::media {
namespace {

constexpr std::size_t kMaxFileBytes = 4 * 1024 * 1024;
// Longer runs of digits are not times; the limits keep every sum in an int.
constexpr std::size_t kMaxMinuteDigits = 4;
constexpr std::size_t kMaxOffsetDigits = 7;

bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t' || c == 0xFEFF;
}

std::wstring_view Trim(std::wstring_view s) {
    while (!s.empty() && IsBlank(s.front())) {
        s.remove_prefix(1);
    }
    while (!s.empty() && IsBlank(s.back())) {
        s.remove_suffix(1);
    }
    return s;
}

// Digits at the front of `s`, at least one and at most `max`; -1 otherwise.
int TakeNumber(std::wstring_view& s, std::size_t max, std::size_t* digits = nullptr) {
    std::size_t n = 0;
    int value = 0;
    while (n < s.size() && IsDigit(s[n])) {
        if (n == max) {
            return -1;
        }
        value = value * 10 + (s[n] - L'0');
        ++n;
    }
    if (n == 0) {
        return -1;
    }
    s.remove_prefix(n);
    if (digits != nullptr) {
        *digits = n;
    }
    return value;
}

// "mm:ss", "mm:ss.xx", "mm:ss:xx" or "mm:ss.xxx" (a fraction of one, two or
// three digits is tenths, hundredths or thousandths); -1 when not a time.
int ParseTime(std::wstring_view s) {
    const int minutes = TakeNumber(s, kMaxMinuteDigits);
    if (minutes < 0 || s.empty() || s.front() != L':') {
        return -1;
    }
    s.remove_prefix(1);
    const int seconds = TakeNumber(s, 2);
    if (seconds < 0 || seconds >= 60) {
        return -1;
    }
    int fractionMs = 0;
    if (!s.empty()) {
        if (s.front() != L'.' && s.front() != L':') {
            return -1;
        }
        s.remove_prefix(1);
        std::size_t digits = 0;
        const int fraction = TakeNumber(s, 3, &digits);
        if (fraction < 0 || !s.empty()) {
            return -1;
        }
        fractionMs = digits == 1 ? fraction * 100 : digits == 2 ? fraction * 10 : fraction;
    }
    return minutes * 60000 + seconds * 1000 + fractionMs;
}

bool ParseOffset(std::wstring_view s, int& offset) {
    s = Trim(s);
    int sign = 1;
    if (!s.empty() && (s.front() == L'+' || s.front() == L'-')) {
        sign = s.front() == L'-' ? -1 : 1;
        s.remove_prefix(1);
    }
    const int value = TakeNumber(s, kMaxOffsetDigits);
    if (value < 0 || !s.empty()) {
        return false;
    }
    offset = sign * value;
    return true;
}

bool EqualsLower(std::wstring_view s, std::wstring_view lower) {
    if (s.size() != lower.size()) {
        return false;
    }
    for (std::size_t i = 0; i < s.size(); ++i) {
        const wchar_t c =
            (s[i] >= L'A' && s[i] <= L'Z') ? static_cast<wchar_t>(s[i] - L'A' + L'a') : s[i];
        if (c != lower[i]) {
            return false;
        }
    }
    return true;
}

// A "[key:value]" header; false when the tag is not one this parser knows.
bool ApplyHeader(std::wstring_view tag, LrcLyrics& lyrics) {
    const std::size_t colon = tag.find(L':');
    if (colon == std::wstring_view::npos) {
        return false;
    }
    const std::wstring_view key = Trim(tag.substr(0, colon));
    const std::wstring_view value = Trim(tag.substr(colon + 1));
    if (EqualsLower(key, L"ti")) {
        lyrics.title = value;
    } else if (EqualsLower(key, L"ar")) {
        lyrics.artist = value;
    } else if (EqualsLower(key, L"al")) {
        lyrics.album = value;
    } else if (EqualsLower(key, L"by")) {
        lyrics.author = value;
    } else if (EqualsLower(key, L"offset")) {
        return ParseOffset(value, lyrics.offsetMs);
    } else {
        return false;
    }
    return true;
}

// The text after a line's time tags: its words, where "<mm:ss.xx>" tags
// time them, and the text without the tags. Text before the first word tag
// is a word at the line's own time; a tag followed by no text only ends the
// word before it.
void ParseWords(std::wstring_view rest, int lineTimeMs, LrcLine& line) {
    std::wstring current;
    int currentTime = lineTimeMs;
    bool timed = false;
    const auto flush = [&] {
        if (!current.empty()) {
            line.words.push_back(LrcWord{currentTime, current});
        }
        current.clear();
    };
    std::size_t i = 0;
    while (i < rest.size()) {
        if (rest[i] == L'<') {
            const std::size_t close = rest.find(L'>', i + 1);
            if (close != std::wstring_view::npos) {
                const int time = ParseTime(rest.substr(i + 1, close - i - 1));
                if (time >= 0) {
                    flush();
                    currentTime = time;
                    timed = true;
                    i = close + 1;
                    continue;
                }
            }
        }
        current += rest[i];
        line.text += rest[i];
        ++i;
    }
    flush();
    if (!timed) {
        line.words.clear();
    }
    const std::wstring_view trimmed = Trim(line.text);
    line.text = std::wstring(trimmed);
}

void ParseLine(std::wstring_view raw, LrcLyrics& lyrics) {
    std::wstring_view s = Trim(raw);
    std::vector<int> times;
    while (!s.empty() && s.front() == L'[') {
        const std::size_t close = s.find(L']');
        if (close == std::wstring_view::npos) {
            break;
        }
        const std::wstring_view tag = s.substr(1, close - 1);
        const int time = ParseTime(Trim(tag));
        if (time >= 0) {
            times.push_back(time);
        } else if (!times.empty() || !ApplyHeader(tag, lyrics)) {
            break;
        }
        s.remove_prefix(close + 1);
    }
    if (times.empty()) {
        return;  // a header, a blank line or not a lyrics line at all
    }
    LrcLine first;
    first.timeMs = times.front();
    ParseWords(s, first.timeMs, first);
    // Word times belong to the first time of the line; its repeats keep the
    // same spacing.
    for (const int time : times) {
        LrcLine line = first;
        line.timeMs = time;
        for (LrcWord& word : line.words) {
            word.timeMs = word.timeMs - first.timeMs + time;
        }
        lyrics.lines.push_back(std::move(line));
    }
}

int Shift(int timeMs, int offsetMs) {
    const long long shifted = static_cast<long long>(timeMs) - offsetMs;
    return shifted < 0 ? 0 : shifted > INT_MAX ? INT_MAX : static_cast<int>(shifted);
}

}  // namespace

LrcLyrics LrcParser::Parse(std::wstring_view text) {
    LrcLyrics lyrics;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find_first_of(L"\r\n", start);
        if (end == std::wstring_view::npos) {
            end = text.size();
        }
        ParseLine(text.substr(start, end - start), lyrics);
        if (end < text.size() && text[end] == L'\r' && end + 1 < text.size() &&
            text[end + 1] == L'\n') {
            ++end;
        }
        start = end + 1;
    }
    for (LrcLine& line : lyrics.lines) {
        line.timeMs = Shift(line.timeMs, lyrics.offsetMs);
        for (LrcWord& word : line.words) {
            word.timeMs = Shift(word.timeMs, lyrics.offsetMs);
        }
        std::stable_sort(line.words.begin(), line.words.end(),
                         [](const LrcWord& a, const LrcWord& b) { return a.timeMs < b.timeMs; });
    }
    std::stable_sort(lyrics.lines.begin(), lyrics.lines.end(),
                     [](const LrcLine& a, const LrcLine& b) { return a.timeMs < b.timeMs; });
    return lyrics;
}

LrcLyrics LrcParser::ParseBytes(std::string_view bytes) {
    return Parse(platform::DecodeText(bytes));
}

bool LrcParser::ParseFile(const std::wstring& path, LrcLyrics& lyrics) {
    system::MFile file(path.c_str(), L"rb");
    if (file.IsOpen() == 0) {
        return false;
    }
    std::string bytes;
    char block[16 * 1024];
    while (const unsigned int n = file.Read(block, 1, sizeof block)) {
        if (bytes.size() + n > kMaxFileBytes) {
            return false;
        }
        bytes.append(block, n);
    }
    lyrics = ParseBytes(bytes);
    return true;
}

int LrcParser::LineAt(const LrcLyrics& lyrics, int timeMs) {
    const auto after = std::upper_bound(lyrics.lines.begin(), lyrics.lines.end(), timeMs,
                                        [](int t, const LrcLine& line) { return t < line.timeMs; });
    return static_cast<int>(after - lyrics.lines.begin()) - 1;
}

int LrcParser::WordAt(const LrcLine& line, int timeMs) {
    const auto after = std::upper_bound(line.words.begin(), line.words.end(), timeMs,
                                        [](int t, const LrcWord& word) { return t < word.timeMs; });
    return static_cast<int>(after - line.words.begin()) - 1;
}

}  // namespace kiv::media
