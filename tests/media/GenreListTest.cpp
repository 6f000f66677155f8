#include "media/GenreList.h"

#include <gtest/gtest.h>

using kiv::media::GenreName;
using kiv::media::ResolveGenre;

TEST(GenreList, NamesTheClassicAndExtendedEntriesAndNothingBeyond147) {
    EXPECT_STREQ(GenreName(0), L"Blues");
    EXPECT_STREQ(GenreName(17), L"Rock");
    EXPECT_STREQ(GenreName(79), L"Hard Rock");
    EXPECT_STREQ(GenreName(80), L"Folk");
    EXPECT_STREQ(GenreName(123), L"A capella");
    EXPECT_STREQ(GenreName(147), L"Synthpop");
    EXPECT_EQ(GenreName(148), nullptr);
    EXPECT_EQ(GenreName(255), nullptr);
    EXPECT_EQ(GenreName(-1), nullptr);
}

TEST(GenreList, StoredGenreTextsResolveNumbersReferencesAndPlainText) {
    EXPECT_EQ(ResolveGenre(L"17"), L"Rock");
    EXPECT_EQ(ResolveGenre(L"(17)"), L"Rock");
    EXPECT_EQ(ResolveGenre(L"(17)Rock"), L"Rock") << "the refinement repeats the name";
    EXPECT_EQ(ResolveGenre(L"(17)Hard Rock Live"), L"Rock / Hard Rock Live");
    EXPECT_EQ(ResolveGenre(L"(0)(RX)(CR)"), L"Blues / Remix / Cover");
    EXPECT_EQ(ResolveGenre(L"((Not a reference)"), L"(Not a reference)");
    EXPECT_EQ(ResolveGenre(L"  Shoegaze "), L"Shoegaze");
    EXPECT_EQ(ResolveGenre(L"(148)"), L"");
    EXPECT_EQ(ResolveGenre(L"148"), L"");
    EXPECT_EQ(ResolveGenre(L"0147"), L"") << "four digits are no index";
    EXPECT_EQ(ResolveGenre(L"(17"), L"(17") << "an unclosed reference is text";
    EXPECT_EQ(ResolveGenre(L"(abc)def"), L"(abc)def");
    EXPECT_EQ(ResolveGenre(L""), L"");
}
