#include <kiv/files/MFileExtensionFilter.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using kiv::system::MFileExtensionFilter;

TEST(MFileExtensionFilter, MatchesTheLastExtensionOfTheNameWithOrWithoutDotIgnoringCase) {
    std::vector<std::string> extensions = {"mp3", ".WAV"};
    MFileExtensionFilter filter(extensions);
    extensions.clear();  // the filter keeps its own copy

    EXPECT_EQ(filter.IsMatching(L"/music/song.MP3", nullptr), 1);
    EXPECT_EQ(filter.IsMatching(L"/music/take.wav", nullptr), 1);
    EXPECT_EQ(filter.IsMatching(L"backup.tar.mp3", nullptr), 1);
    EXPECT_EQ(filter.IsMatching(L"\\Storage Card\\a.Wav", nullptr), 1);

    EXPECT_EQ(filter.IsMatching(L"/music/song.ogg", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music/song.mp3.ogg", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music/song.mp", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music.mp3/README", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"\\music.mp3\\README", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music/mp3", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music/end.", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(nullptr, nullptr), 0);
}

TEST(MFileExtensionFilter, AnEmptyOrDotOnlyEntryMatchesNothing) {
    std::vector<std::string> extensions = {"", "."};
    MFileExtensionFilter filter(extensions);
    EXPECT_EQ(filter.IsMatching(L"/music/README", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music/end.", nullptr), 0);
    EXPECT_EQ(filter.IsMatching(L"/music/a.b", nullptr), 0);
}
