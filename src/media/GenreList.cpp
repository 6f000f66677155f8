#include "media/GenreList.h"

#include <array>
#include <vector>

namespace kiv::media {
namespace {

// The classic list of 80 and the extensions that players added to it up to
// 147. Entries beyond 147 that some libraries carry are not the device's.
constexpr std::array<const wchar_t*, kGenreCount> kGenres = {
    L"Blues",
    L"Classic Rock",
    L"Country",
    L"Dance",
    L"Disco",
    L"Funk",
    L"Grunge",
    L"Hip-Hop",
    L"Jazz",
    L"Metal",
    L"New Age",
    L"Oldies",
    L"Other",
    L"Pop",
    L"R&B",
    L"Rap",
    L"Reggae",
    L"Rock",
    L"Techno",
    L"Industrial",
    L"Alternative",
    L"Ska",
    L"Death Metal",
    L"Pranks",
    L"Soundtrack",
    L"Euro-Techno",
    L"Ambient",
    L"Trip-Hop",
    L"Vocal",
    L"Jazz+Funk",
    L"Fusion",
    L"Trance",
    L"Classical",
    L"Instrumental",
    L"Acid",
    L"House",
    L"Game",
    L"Sound Clip",
    L"Gospel",
    L"Noise",
    L"AlternRock",
    L"Bass",
    L"Soul",
    L"Punk",
    L"Space",
    L"Meditative",
    L"Instrumental Pop",
    L"Instrumental Rock",
    L"Ethnic",
    L"Gothic",
    L"Darkwave",
    L"Techno-Industrial",
    L"Electronic",
    L"Pop-Folk",
    L"Eurodance",
    L"Dream",
    L"Southern Rock",
    L"Comedy",
    L"Cult",
    L"Gangsta",
    L"Top 40",
    L"Christian Rap",
    L"Pop/Funk",
    L"Jungle",
    L"Native American",
    L"Cabaret",
    L"New Wave",
    L"Psychadelic",
    L"Rave",
    L"Showtunes",
    L"Trailer",
    L"Lo-Fi",
    L"Tribal",
    L"Acid Punk",
    L"Acid Jazz",
    L"Polka",
    L"Retro",
    L"Musical",
    L"Rock & Roll",
    L"Hard Rock",
    L"Folk",
    L"Folk-Rock",
    L"National Folk",
    L"Swing",
    L"Fast Fusion",
    L"Bebob",
    L"Latin",
    L"Revival",
    L"Celtic",
    L"Bluegrass",
    L"Avantgarde",
    L"Gothic Rock",
    L"Progressive Rock",
    L"Psychedelic Rock",
    L"Symphonic Rock",
    L"Slow Rock",
    L"Big Band",
    L"Chorus",
    L"Easy Listening",
    L"Acoustic",
    L"Humour",
    L"Speech",
    L"Chanson",
    L"Opera",
    L"Chamber Music",
    L"Sonata",
    L"Symphony",
    L"Booty Bass",
    L"Primus",
    L"Porn Groove",
    L"Satire",
    L"Slow Jam",
    L"Club",
    L"Tango",
    L"Samba",
    L"Folklore",
    L"Ballad",
    L"Power Ballad",
    L"Rhythmic Soul",
    L"Freestyle",
    L"Duet",
    L"Punk Rock",
    L"Drum Solo",
    L"A capella",
    L"Euro-House",
    L"Dance Hall",
    L"Goa",
    L"Drum & Bass",
    L"Club-House",
    L"Hardcore",
    L"Terror",
    L"Indie",
    L"BritPop",
    L"Afro-Punk",  // index 133: the historical name is a slur and is not shipped
    L"Polsk Punk",
    L"Beat",
    L"Christian Gangsta Rap",
    L"Heavy Metal",
    L"Black Metal",
    L"Crossover",
    L"Contemporary Christian",
    L"Christian Rock",
    L"Merengue",
    L"Salsa",
    L"Thrash Metal",
    L"Anime",
    L"JPop",
    L"Synthpop",
};

bool IsDigit(wchar_t c) {
    return c >= L'0' && c <= L'9';
}

// A run of digits as a genre index; -1 when it is too long to be one.
int IndexOf(std::wstring_view digits) {
    if (digits.empty() || digits.size() > 3) {
        return -1;
    }
    int value = 0;
    for (wchar_t c : digits) {
        value = value * 10 + (c - L'0');
    }
    return value;
}

bool AllDigits(std::wstring_view s) {
    for (wchar_t c : s) {
        if (!IsDigit(c)) {
            return false;
        }
    }
    return !s.empty();
}

std::wstring_view Trim(std::wstring_view s) {
    const auto blank = [](wchar_t c) { return c == L' ' || c == L'\t' || c == L'\0'; };
    while (!s.empty() && blank(s.front())) {
        s.remove_prefix(1);
    }
    while (!s.empty() && blank(s.back())) {
        s.remove_suffix(1);
    }
    return s;
}

void AddPart(std::vector<std::wstring>& parts, std::wstring_view part) {
    part = Trim(part);
    if (part.empty()) {
        return;
    }
    for (const std::wstring& known : parts) {
        if (known == part) {
            return;
        }
    }
    parts.emplace_back(part);
}

void AddIndex(std::vector<std::wstring>& parts, int index) {
    if (const wchar_t* name = GenreName(index)) {
        AddPart(parts, name);
    }
}

}  // namespace

const wchar_t* GenreName(int index) {
    if (index < 0 || index >= kGenreCount) {
        return nullptr;
    }
    return kGenres[static_cast<std::size_t>(index)];
}

std::wstring ResolveGenre(std::wstring_view stored) {
    stored = Trim(stored);
    std::vector<std::wstring> parts;
    if (AllDigits(stored)) {
        AddIndex(parts, IndexOf(stored));
    } else {
        // Leading references "(17)(RX)", then free text.
        while (stored.size() >= 2 && stored[0] == L'(' && stored[1] != L'(') {
            const std::size_t close = stored.find(L')');
            if (close == std::wstring_view::npos) {
                break;
            }
            const std::wstring_view inside = stored.substr(1, close - 1);
            if (AllDigits(inside)) {
                AddIndex(parts, IndexOf(inside));
            } else if (inside == L"RX") {
                AddPart(parts, L"Remix");
            } else if (inside == L"CR") {
                AddPart(parts, L"Cover");
            } else {
                break;  // not a reference: the rest is text
            }
            stored.remove_prefix(close + 1);
        }
        if (stored.size() >= 2 && stored[0] == L'(' && stored[1] == L'(') {
            stored.remove_prefix(1);
        }
        AddPart(parts, stored);
    }
    std::wstring joined;
    for (const std::wstring& part : parts) {
        if (!joined.empty()) {
            joined += L" / ";
        }
        joined += part;
    }
    return joined;
}

}  // namespace kiv::media
